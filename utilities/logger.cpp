#include "utilities/logger.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/file_stream.h"
#include "platform/file_system_service.h"
#include "platform/library_channel.h"
#include "platform/platform_info.h"
#include "platform/text_conversion.h"

namespace install::cpputil::logger {
namespace {

constexpr char const* log_time_pattern = "%b %d, %Y %H:%M:%S";

/// How much longer an entry is than its message.
constexpr std::size_t entry_overhead = std::string_view("(Nov 16, 2026 17:22:45) \n").size();

constinit LibraryChannel channel;
LibraryChannel::Lifetime const channel_lifetime(channel, "install::cpputil::logger");

/// Guards destination_file and last_destination_file, and is held while an entry is written. Taken
/// before the lock of the channel, never after, and never held across a call of append_message or
/// unset_destination.
constinit std::mutex destination_mutex;

/// Where entries go; empty while no destination is set.
Path destination_file;

/// The destination that was unset last.
Path last_destination_file;

/// Knows the user's name, which names the fallback file, and keeps it from entry to entry.
std::unique_ptr<PlatformInfo const> const platform_info = std::make_unique<PlatformInfo const>();

/// Locks destination_mutex for an entry. Another thread's entry is over sooner than this thread could
/// be put to sleep and woken, which would leave several threads slower together than one alone.
std::unique_lock<std::mutex> lock_for_entry() {
    constexpr int attempts = 50;
    std::unique_lock lock(destination_mutex, std::try_to_lock);
    for (int attempt = 0; !lock && attempt != attempts; ++attempt) {
        std::this_thread::yield();
        static_cast<void>(lock.try_lock());
    }
    if (!lock) {
        lock.lock();
    }
    return lock;
}

Path destination() {
    std::lock_guard const lock(destination_mutex);
    return destination_file;
}

bool is_destination_set() {
    std::lock_guard const lock(destination_mutex);
    return !destination_file.string().empty();
}

Path fallback_file(std::string const& user_name) {
    return Path(FileSystemService::tempDirectory() + u"/" + u"velmora_" +
                TextConversion::fromUtf8(user_name) + u".log");
}

/// Returns one entry, UTF-8, with the line feed that ends it.
std::string make_log_line(std::string message) {
    auto const prefix = '(' + PlatformInfo::currentTime(log_time_pattern) + ") ";
    message.reserve(prefix.size() + message.size() + 1);
    message.insert(0, prefix);
    message += '\n';
    return message;
}

void write_line(OutputFileStream stream, std::string_view line) {
    if (stream.isOpen()) {
        stream.write(line);
        return;
    }
    line.remove_suffix(1);
    channel.write(Severity::details, {"failed to open destination_file for u8msg ", line});
}

/// Appends \p message, which is UTF-8 and known to be.
void append_utf8(std::string message) {
    channel.write(Severity::details, {" msg=", message});
    if (message.empty()) {
        return;
    }
    // The time is taken under the lock, so that entries stand in the order of their times.
    auto const lock = lock_for_entry();
    auto const line = make_log_line(std::move(message));
    if (destination_file.string().empty()) {
        auto const user = platform_info->effectiveUser();
        write_line(OutputFileStream(fallback_file(user.name), user.id), line);
    }
    // With no destination this writes nothing but the record that there is none.
    write_line(OutputFileStream(destination_file), line);
}

[[noreturn]] void refuse_file(char const* record, char const* error) {
    channel.write(Severity::changes, {record});
    throw std::runtime_error(error);
}

/// Tells of a destination that cannot be set in the log as it is, on the channel and to the caller.
[[noreturn]] void refuse_destination(std::u16string const& message, std::string const& error,
                                     std::u16string const& path) {
    if (is_destination_set()) {
        append_message(message + path);
    }
    auto const text = error + '"' + TextConversion::toUtf8(path) + '"';
    channel.write(Severity::details, {"set destination:", text});
    throw std::runtime_error(text);
}

/// Returns whether the system let us look for \p directory and make it where it is missing.
bool provide_directory(std::u16string const& directory) {
    try {
        Path const path(directory);
        if (!FileSystemService::exists(path)) {
            FileSystemService::createDirectories(path);
        }
        return true;
    } catch (...) {
        // The caller tells the user, in words that name the log; why is of no use to the installer.
        return false;
    }
}

void unset_destination() {
    auto old_destination = destination();
    if (old_destination.string().empty()) {
        auto const last = [] {
            std::lock_guard const lock(destination_mutex);
            return last_destination_file.string();
        }();
        channel.write(Severity::details, {"no destination, keep last \"", last, "\""});
        return;
    }
    channel.write(Severity::changes, {"flush destination"});
    auto const text = old_destination.string();
    {
        std::lock_guard const lock(destination_mutex);
        last_destination_file = std::move(old_destination);
    }
    channel.write(Severity::details, {" last_destination_file.string()=", text});
    channel.write(Severity::changes, {"unset destination"});
    std::lock_guard const lock(destination_mutex);
    destination_file = Path();
}

void set_destination(Path const& file) {
    auto const& text = file.string();
    channel.write(Severity::details, {"set destination", text});
    auto const parent = FileSystemService::parentPath(text);
    if (!parent.empty() && !provide_directory(parent)) {
        refuse_destination(unable_to_create_folder_message,
                           "Install Logger: Cannot create directory ", parent);
    }
    OutputFileStream const ofile(file);
    if (!ofile.isOpen()) {
        refuse_destination(unable_to_create_file_message, "Install Logger: Cannot open file ",
                           text);
    }
    if (auto const old = destination().string(); !old.empty()) {
        channel.write(Severity::details,
                      {" destination_file.string()=", old, " ofile.string()=", text});
        append_message(reset_destination_message + old + u" to " + text);
        unset_destination();
    }
    auto new_destination = file;
    std::lock_guard const lock(destination_mutex);
    destination_file = std::move(new_destination);
    try {
        channel.write(Severity::details, {" destination_file.string()=", text});
    } catch (...) {
        // The constructor fails with the sink, so that no Logger would ever unset the destination.
        destination_file = Path();
        throw;
    }
}

}  // namespace

Logger::Logger(Path const& file) {
    set_destination(file);
}

Logger::Logger(std::u16string const& file) : Logger(Path(file)) {}

Logger::Logger(std::string const& file) : Logger(TextConversion::fromUtf8(file)) {}

Logger::~Logger() {
    unset_destination();
}

void append_message(std::u16string const& message) {
    append_utf8(TextConversion::toUtf8(message));
}

void append_message(std::string const& message) {
    TextConversion::checkUtf8(message);
    append_utf8(message);
}

void append_file(std::u16string const& path) {
    if (!is_destination_set()) {
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
        // Room for all of it at once, where the system knows the size; what claims to be huge may
        // have little to read.
        constexpr std::int64_t most = std::int64_t{1} << 30;
        auto const size = std::clamp(stream.endPosition(), std::int64_t{0}, most);
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
    append_file(TextConversion::fromUtf8(path));
}

void append_file(Path const& path) {
    append_file(path.string());
}

Path const& get_destination() {
    std::lock_guard const lock(destination_mutex);
    return destination_file;
}

namespace detail {

Path const& get_last_destination() {
    std::lock_guard const lock(destination_mutex);
    return last_destination_file;
}

void forget_last_destination() {
    std::lock_guard const lock(destination_mutex);
    last_destination_file = Path();
}

}  // namespace detail
}  // namespace install::cpputil::logger
