#include "utilities/logger.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/file_stream.h"
#include "platform/file_system_service.h"
#include "platform/internal/library_storage.h"
#include "platform/internal/process_mutex.h"
#include "platform/library_channel.h"
#include "platform/platform_info.h"
#include "platform/text_conversion.h"

namespace install::cpputil::logger {
namespace {

// State

constinit LibraryChannel channel;
LibraryChannel::Lifetime const channel_lifetime(channel, "install::cpputil::logger");

struct State {
    /// Where entries go; empty while no destination is set.
    Path destination_file;

    /// The destination that was unset last.
    Path last_destination_file;

    /// Supplies the user name, which is part of the fallback file's name.
    std::unique_ptr<PlatformInfo const> platform_info = std::make_unique<PlatformInfo const>();
};

/// Guards `state`. Held while an entry is written and while the destination changes, and during the
/// diagnostic records of these steps. Locked before the locks of the logging core, never after.
constinit ProcessMutex destination_mutex(ProcessMutex::Rank::installation_log);
ProcessMutex::ForkRegistration const destination_mutex_registration(destination_mutex);

constinit LibraryStorage<State> state;

/// Set when the state is about to be destroyed. Unlike the state, it needs no lock.
constinit std::atomic<bool> has_ended = false;

/// An empty path to return after the state was destroyed. It owns no memory and is never destroyed.
constinit LibraryStorage<Path const> no_path;

struct StateLifetime {
    StateLifetime() {
        no_path.create();
        state.create();
    }
    StateLifetime(StateLifetime const&) = delete;
    StateLifetime& operator=(StateLifetime const&) = delete;

    /// Waits for an entry that another thread is writing. If that takes too long, or if a sink called
    /// exit in the middle of an entry, the state is still in use and is not destroyed.
    ~StateLifetime() {
        has_ended = true;
        if (destination_mutex.lockBriefly()) {
            state.destroy();
            destination_mutex.unlock();
        }
    }
};
StateLifetime const state_lifetime;

/// Exclusive access to the state. Converts to false if access is refused, because the process ends or
/// because a sink calls the log in the middle of an entry; the caller then does nothing.
class LockedState {
public:
    LockedState() : lock_(destination_mutex, std::defer_lock) {
        if (!destination_mutex.isMine()) {
            lock_.lock();
            state_ = has_ended ? nullptr : state.get();
        }
    }

    explicit operator bool() const noexcept { return state_ != nullptr; }
    State* operator->() const noexcept { return state_; }

private:
    std::unique_lock<ProcessMutex> lock_;
    State* state_ = nullptr;
};

/// Returns whether a destination is set, or nothing if access to the state is refused.
std::optional<bool> is_destination_set() {
    LockedState const log;
    return log ? std::optional(!log->destination_file.string().empty()) : std::nullopt;
}

/// Returns a copy of \p path, which may be one of the state's own, or nothing if access to the state
/// is refused.
std::optional<Path> copy_of(Path const& path) {
    LockedState const log;
    return log ? std::optional(path) : std::nullopt;
}

// Format of an entry

constexpr char const* log_time_pattern = "%b %d, %Y %H:%M:%S";

/// The length of an entry apart from its message.
constexpr std::size_t entry_overhead = std::string_view("(Nov 16, 2026 17:22:45) \n").size();

/// Returns one entry, UTF-8, including the line feed that ends it.
std::string make_log_line(std::string message) {
    auto const prefix = '(' + PlatformInfo::currentTime(log_time_pattern) + ") ";
    message.reserve(prefix.size() + message.size() + 1);
    message.insert(0, prefix);
    message += '\n';
    return message;
}

// Writing entries

Path fallback_file(std::string const& user_name) {
    return Path(FileSystemService::tempDirectory() + u"/" + u"velmora_" +
                TextConversion::fromUtf8(user_name) + u".log");
}

void write_line(OutputFileStream stream, std::string_view line) {
    if (stream.isOpen()) {
        stream.write(line);
        return;
    }
    line.remove_suffix(1);
    channel.write(Severity::details, {"failed to open destination_file for u8msg ", line});
}

/// Appends \p message, valid UTF-8.
void append_utf8(std::string message) {
    channel.write(Severity::details, {" msg=", message});
    if (message.empty()) {
        return;
    }
    LockedState const log;
    if (!log) {
        return;
    }
    // The time is read under the lock, so that entries appear in the order of their times.
    auto const line = make_log_line(std::move(message));
    if (log->destination_file.string().empty()) {
        auto const user = log->platform_info->effectiveUser();
        write_line(OutputFileStream(fallback_file(user.name), user.id), line);
    }
    // Without a destination, this only records that the empty path cannot be opened.
    write_line(OutputFileStream(log->destination_file), line);
}

/// Appends an entry with \p text to the destination, which must be set.
void append_to_destination(LockedState const& log, std::u16string const& text) {
    auto message = TextConversion::toUtf8(text);
    channel.write(Severity::details, {" msg=", message});
    write_line(OutputFileStream(log->destination_file), make_log_line(std::move(message)));
}

[[noreturn]] void refuse_file(char const* record, char const* error) {
    channel.write(Severity::changes, {record});
    throw std::runtime_error(error);
}

// Changes of the destination

/// Reports a destination that cannot be set: in the current log, on the channel and to the caller.
[[noreturn]] void refuse_destination(std::u16string const& message, std::string const& error,
                                     std::u16string const& path) {
    if (LockedState const log; log && !log->destination_file.string().empty()) {
        append_to_destination(log, message + path);
    }
    auto const text = error + '"' + TextConversion::toUtf8(path) + '"';
    channel.write(Severity::details, {"set destination:", text});
    throw std::runtime_error(text);
}

/// Creates \p directory if it is missing. Returns false if the system reports an error.
bool provide_directory(Path const& directory) {
    try {
        if (!FileSystemService::exists(directory)) {
            FileSystemService::createDirectories(directory);
        }
        return true;
    } catch (...) {
        // Every failure is reported with the same text, so the cause is not needed.
        return false;
    }
}

/// Unsets the destination, which must be set, and keeps it as the last one. Allocates no memory while
/// the channel is disabled, because a destructor calls it.
void clear_destination(LockedState const& log) {
    channel.write(Severity::changes, {"flush destination"});
    log->last_destination_file = std::exchange(log->destination_file, Path());
    channel.write(Severity::details,
                  {" last_destination_file.string()=", log->last_destination_file.string()});
    channel.write(Severity::changes, {"unset destination"});
}

void unset_destination() {
    LockedState const log;
    if (!log) {
        return;
    }
    if (log->destination_file.string().empty()) {
        channel.write(Severity::details,
                      {"no destination, keep last \"", log->last_destination_file.string(), "\""});
        return;
    }
    clear_destination(log);
}

/// Sets the destination to \p file in one step: other threads see either the old destination or the
/// new one, and the entry that reports the change is the last one in the old log.
void replace_destination(Path file) {
    LockedState const log;
    if (!log) {
        return;
    }
    auto old = log->destination_file;
    auto last = log->last_destination_file;
    auto const text = file.string();
    auto const message = reset_destination_message + old.string() + u" to " + text;
    try {
        if (!old.string().empty()) {
            channel.write(Severity::details,
                          {" destination_file.string()=", old.string(), " ofile.string()=", text});
            append_to_destination(log, message);
            clear_destination(log);
        }
        log->destination_file = std::move(file);
        channel.write(Severity::details, {" destination_file.string()=", text});
    } catch (...) {
        // A sink has thrown, or there is no memory.
        log->destination_file = std::move(old);
        log->last_destination_file = std::move(last);
        throw;
    }
}

void set_destination(Path const& argument) {
    auto const file = copy_of(argument);
    if (!file) {
        return;
    }
    auto const& text = file->string();
    channel.write(Severity::details, {"set destination", text});
    auto const parent = FileSystemService::parentPath(text);
    if (!parent.empty() && !provide_directory(Path(parent))) {
        refuse_destination(unable_to_create_folder_message,
                           "Install Logger: Cannot create directory ", parent);
    }
    OutputFileStream const ofile(*file);
    if (!ofile.isOpen()) {
        refuse_destination(unable_to_create_file_message, "Install Logger: Cannot open file ",
                           text);
    }
    replace_destination(*file);
}

}  // namespace

Logger::Logger(Path const& file) {
    set_destination(file);
}

Logger::Logger(std::u16string const& file) : Logger(has_ended ? Path() : Path(file)) {}

Logger::Logger(std::string const& file)
    : Logger(has_ended ? std::u16string() : TextConversion::fromUtf8(file)) {}

Logger::~Logger() {
    unset_destination();
}

void append_message(std::u16string const& message) {
    if (has_ended) {
        return;
    }
    append_utf8(TextConversion::toUtf8(message));
}

void append_message(std::string const& message) {
    if (has_ended) {
        return;
    }
    TextConversion::checkUtf8(message);
    append_utf8(message);
}

void append_file(std::u16string const& path) {
    auto const is_set = is_destination_set();
    if (!is_set) {
        return;
    }
    if (!*is_set) {
        refuse_file("append_file: The output file destination is not set.",
                    "Logger destination was not initialized.");
    }
    Path const file(path);
    if (!FileSystemService::exists(file)) {
        refuse_file("append_file: The file does not exist.", "The file does not exist.");
    }
    auto const name = TextConversion::toUtf8(path);
    auto message = "Content of the file " + name + '\n';
    auto const trailer = "End of the file " + name;
    {
        InputFileStream stream(file);
        if (!stream.isOpen()) {
            throw std::runtime_error("append_file: Cannot open file.");
        }
        // Reserves memory once if the size is known. The size of a special file may be huge.
        constexpr std::int64_t largest = std::int64_t{1} << 30;
        auto const size = std::clamp(stream.endPosition(), std::int64_t{0}, largest);
        message.reserve(message.size() + static_cast<std::size_t>(size) + trailer.size() +
                        entry_overhead);
        while (auto const line = stream.readLine()) {
            message.append(*line).append(1, '\n');
            channel.write(Severity::details, {" line=", *line});
        }
    }
    message += trailer;
    TextConversion::checkUtf8(message);
    append_utf8(std::move(message));
}

void append_file(std::string const& path) {
    if (!has_ended) {
        append_file(TextConversion::fromUtf8(path));
    }
}

void append_file(Path const& path) {
    if (auto const file = copy_of(path)) {
        append_file(file->string());
    }
}

Path const& get_destination() {
    LockedState const log;
    return log ? log->destination_file : *no_path.get();
}

namespace detail {

Path const& get_last_destination() {
    LockedState const log;
    return log ? log->last_destination_file : *no_path.get();
}

void forget_last_destination() {
    LockedState const log;
    if (log) {
        log->last_destination_file = Path();
    }
}

}  // namespace detail
}  // namespace install::cpputil::logger
