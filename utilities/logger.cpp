#include "utilities/logger.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/file_system_service.h"
#include "platform/internal/file_stream.h"
#include "platform/internal/guarded.h"
#include "platform/internal/library_channel.h"
#include "platform/platform_info.h"
#include "platform/text_conversion.h"

namespace install::cpputil::logger {

std::u16string const unable_to_create_folder_message =
    u"Unable to create specified folder for installation log ";
std::u16string const unable_to_create_file_message =
    u"Unable to create specified file for installation log ";
std::u16string const reset_destination_message = u"Reset destination file log ";

namespace {

// State

constinit LibraryChannel channel;
LibraryChannel::Lifetime const channel_lifetime(channel, "install::cpputil::logger");

struct State {
    /// Where entries go; empty while no destination is set.
    Path destination_file;

    /// The most recently unset or replaced destination.
    Path last_destination_file;

    /// A copy of `destination_file`, so that unsetting it allocates no memory.
    /// Moved to `last_destination_file` when the destination is unset.
    Path next_last_file;

    /// Supplies the user name, which is part of the fallback file's name.
    std::unique_ptr<PlatformInfo const> platform_info = std::make_unique<PlatformInfo const>();
};

/// Held while an entry is written and while the destination changes, and during the diagnostic
/// records of these steps. Locked before the locks of the logging core, never after.
constinit LibraryMutex destination_mutex(LibraryMutex::Rank::installation_log);
constinit Guarded<State> state(destination_mutex);
Guarded<State>::Lifetime const state_lifetime(state);

/// Set while the calling thread writes a record from whose sinks the state cannot be changed.
thread_local constinit bool is_sealed = false;

/// Access for queries. A sink that calls the log from a record of this thread has it, too.
class ReadAccess : public Guarded<State>::Access {
public:
    ReadAccess() : Access(state) {}
};

/// Access for entries and changes. Converts to false during a sealed record as well; callers then
/// return without effect.
class WriteAccess : public Guarded<State>::Access {
public:
    WriteAccess() : Access(state) {}
    explicit operator bool() const noexcept { return Access::operator bool() && !is_sealed; }
};

/// Writes a record from whose sinks the state cannot be changed: an entry that a sink appends, or a
/// destination that it sets, would end up inside the step that the record reports.
void write_sealed(std::initializer_list<LibraryChannel::Piece> pieces) {
    struct Seal {
        Seal() noexcept { is_sealed = true; }
        Seal(Seal const&) = delete;
        Seal& operator=(Seal const&) = delete;
        ~Seal() { is_sealed = false; }
    };
    Seal const seal;
    channel.write(Severity::details, pieces);
}

/// Returns whether a destination is set, or nothing if there is no access.
std::optional<bool> is_destination_set() {
    WriteAccess const log;
    return log ? std::optional(!log->destination_file.string().empty()) : std::nullopt;
}

/// Returns a copy of \p path, which may be one of the state's own, or nothing if there is no
/// access.
std::optional<Path> copy_of(Path const& path) {
    WriteAccess const log;
    return log ? std::optional(path) : std::nullopt;
}

/// Returns an empty path, which is never destroyed, because threads may query the log while the
/// process exits.
Path const& no_path() {
    static auto const& path = *new Path();
    return path;
}

// Format of an entry

constexpr char const* log_time_pattern = "%b %d, %Y %H:%M:%S";

/// The length of an entry apart from its message.
constexpr std::size_t entry_overhead = std::string_view("(Nov 16, 2026 17:22:45) \n").size();

/// Returns one UTF-8 entry, including its line feed.
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
    write_sealed({"failed to open destination_file for u8msg ", line});
}

/// Writes an entry with \p message, which is valid UTF-8 and not empty.
void write_entry(State const& log, std::string message) {
    // The time is read under the lock, so that entries are in chronological order.
    auto const line = make_log_line(std::move(message));
    if (log.destination_file.string().empty()) {
        auto const file = fallback_file(log.platform_info->userName());
        write_line(OutputFileStream::openPrivate(file), line);
    }
    // Without a destination, this only records that the empty path cannot be opened.
    write_line(OutputFileStream(log.destination_file), line);
}

void record_message(std::string_view message) {
    channel.write(Severity::details, {" msg=", message});
}

/// Appends an entry with the valid UTF-8 \p message.
void append_utf8(std::string message) {
    record_message(message);
    if (message.empty()) {
        return;
    }
    if (WriteAccess const log; log) {
        write_entry(*log, std::move(message));
    }
}

[[noreturn]] void reject_file(char const* record, char const* error) {
    channel.write(Severity::changes, {record});
    throw std::runtime_error(error);
}

// Changes of the destination

/// Reports a rejected destination: in the current log, on the channel and to the caller.
[[noreturn]] void refuse_destination(std::u16string const& message, std::string const& error,
                                     std::u16string const& path) {
    if (WriteAccess const log; log && !log->destination_file.string().empty()) {
        auto entry = TextConversion::toUtf8(message + path);
        record_message(entry);
        write_entry(*log, std::move(entry));
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
        // Every failure is reported with the same message, so the cause is not needed.
        return false;
    }
}

/// Unsets the destination and keeps it as the last one. Allocates no memory while the channel is
/// disabled, because a destructor calls it, which terminates the process if an allocation fails.
void unset_destination(State& log) {
    if (log.destination_file.string().empty()) {
        channel.write(Severity::details,
                      {"no destination, keep last \"", log.last_destination_file.string(), "\""});
        return;
    }
    channel.write(Severity::changes, {"flush destination"});
    if (log.next_last_file.string().empty()) {
        // A sink has unset or replaced the destination inside this function.
        log.next_last_file = log.destination_file;
    }
    log.last_destination_file = std::exchange(log.next_last_file, Path());
    channel.write(Severity::details,
                  {" last_destination_file.string()=", log.last_destination_file.string()});
    channel.write(Severity::changes, {"unset destination"});
    log.destination_file = Path();
}

/// Sets the destination to \p file in one step: other threads see either the old destination or the
/// new one, and none of them appends to the old log after the entry that reports the change.
void replace_destination(Path file) {
    WriteAccess const log;
    if (!log) {
        return;
    }
    // All copies are made before the first record: a sink may block until the process exits, which
    // destroys `reset_destination_message`.
    auto old = log->destination_file;
    auto old_copy = old;
    auto last = log->last_destination_file;
    auto copy = file;
    auto const text = file.string();
    auto entry = TextConversion::toUtf8(reset_destination_message + old.string() + u" to " + text);
    try {
        if (!old.string().empty()) {
            channel.write(Severity::details,
                          {" destination_file.string()=", old.string(), " ofile.string()=", text});
            record_message(entry);
            write_entry(*log, std::move(entry));
            unset_destination(*log);
        }
        log->destination_file = std::move(file);
        log->next_last_file = std::move(copy);
        write_sealed({" destination_file.string()=", text});
    } catch (...) {
        // A sink has thrown, or there is no memory. What a sink has changed meanwhile is undone,
        // too.
        log->destination_file = std::move(old);
        log->next_last_file = std::move(old_copy);
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

Logger::Logger(std::u16string const& file) : Logger(state.hasEnded() ? Path() : Path(file)) {}

Logger::Logger(std::string const& file)
    : Logger(state.hasEnded() ? std::u16string() : TextConversion::fromUtf8(file)) {}

Logger::~Logger() {
    if (WriteAccess const log; log) {
        unset_destination(*log);
    }
}

void append_message(std::u16string const& message) {
    if (state.hasEnded()) {
        return;
    }
    append_utf8(TextConversion::toUtf8(message));
}

void append_message(std::string const& message) {
    if (state.hasEnded()) {
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
        reject_file("append_file: The output file destination is not set.",
                    "Logger destination was not initialized.");
    }
    Path const file(path);
    if (!FileSystemService::exists(file)) {
        reject_file("append_file: The file does not exist.", "The file does not exist.");
    }
    auto const name = TextConversion::toUtf8(path);
    auto message = "Content of the file " + name + '\n';
    auto const trailer = "End of the file " + name;
    {
        InputFileStream stream(file);
        if (!stream.isOpen()) {
            throw std::runtime_error("append_file: Cannot open file.");
        }
        // Reserves once, but not blindly: special files may report a huge size.
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
    if (!state.hasEnded()) {
        append_file(TextConversion::fromUtf8(path));
    }
}

void append_file(Path const& path) {
    if (auto const file = copy_of(path)) {
        append_file(file->string());
    }
}

Path const& get_destination() {
    ReadAccess const log;
    return log ? log->destination_file : no_path();
}

namespace detail {

Path const& get_last_destination() {
    ReadAccess const log;
    return log ? log->last_destination_file : no_path();
}

void forget_last_destination() {
    if (WriteAccess const log; log) {
        log->last_destination_file = Path();
    }
}

}  // namespace detail
}  // namespace install::cpputil::logger
