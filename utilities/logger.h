#pragma once

/// \file
/// The installation log: a text file that records, line by line, what an installation did.
///
///     install::cpputil::logger::Logger const log(u"/var/log/app/install.log");
///     install::cpputil::logger::append_message(u"installing to /opt/app");
///     install::cpputil::logger::append_file(u"inputs.txt");
///
/// One file is the destination of the whole process. An entry is the local time, the message as it
/// is, and a line feed, in UTF-8:
///
///     (Nov 16, 2026 17:22:45) installing to /opt/app
///
/// While no destination is set, messages go to the user's fallback file: "velmora_", the effective
/// user's name and ".log" in the directory for temporary files (TMPDIR, else /tmp).
///
/// Every entry opens the file, appends with one write, and closes it. So entries of several threads
/// and processes never mix, the crash of the process loses no entry whose call has returned, and a
/// file that was removed, renamed or rotated away is made again by the next entry. A file that
/// cannot be opened or written costs the entry, never an exception. A process that is killed while
/// it writes, or a disk that fills up meanwhile, may leave the beginning of that one entry.
///
/// What happens is also told on the diagnostic channel "install::cpputil::logger".
///
/// \par Thread safety
///     Every function may be called from any thread at any time, while no thread changes the
///     environment. A message goes to exactly one file even while other threads change the
///     destination. A sink of the logging core must not call into this header: records are written
///     under the log's lock.
///
/// What a sink throws passes to the caller of every function here.

#include <string>

#include "../platform/export.h"
#include "../platform/path.h"

namespace install::cpputil::logger {

/// Begins the entry that tells the old log that a directory could not be made; its path follows.
std::u16string const unable_to_create_folder_message =
    u"Unable to create specified folder for installation log ";
/// Begins the entry that tells the old log that a file could not be opened; its path follows.
std::u16string const unable_to_create_file_message =
    u"Unable to create specified file for installation log ";
/// Begins the last entry of an old log; the paths of the old and the new log follow.
std::u16string const reset_destination_message = u"Reset destination file log ";

/// Sets the destination for as long as it lives.
///
/// There is one destination, and `Logger` objects do not stack: a later one replaces it, and the
/// end of any of them leaves none set, even while an earlier one still lives.
class INSTALL_CPPUTIL_EXPORT Logger {
public:
    /// Makes \p file the destination. Missing directories above it and the file itself are made;
    /// what the file holds stays. A destination that was set before gets an entry that tells of
    /// the change, or of the failure to make it.
    /// \throws std::runtime_error if a directory cannot be made or the file not be opened for
    ///     appending; its text names the one or the other, and the destination stays as it was
    [[nodiscard]] explicit Logger(Path const& file);

    /// As above; \p file is UTF-16.
    /// \throws std::invalid_argument, TextConversionError also, as the constructor of `Path` does
    [[nodiscard]] explicit Logger(std::u16string const& file);

    /// As above; \p file is UTF-8.
    /// \throws TextConversionError also if \p file is not UTF-8
    [[nodiscard]] explicit Logger(std::string const& file);

    Logger(Logger const&) = delete;
    Logger& operator=(Logger const&) = delete;

    /// Unsets the destination, whatever it is by now. Writes nothing to the log. A sink that throws
    /// ends the process here.
    ~Logger();
};

/// Appends one entry with \p message, UTF-16, to the destination or, while none is set, to the
/// fallback file. Line breaks in it are written as they are. An empty message writes nothing.
/// \throws TextConversionError if \p message is not UTF-16; nothing is written then
INSTALL_CPPUTIL_EXPORT void append_message(std::u16string const& message);

/// As above; \p message is UTF-8.
/// \throws TextConversionError if \p message is not UTF-8; nothing is written then
INSTALL_CPPUTIL_EXPORT void append_message(std::string const& message);

/// Appends the whole file at \p path, UTF-16, to the destination as one entry: a line that names
/// the file, its lines, and a line that names it again. The file is held in memory meanwhile.
/// \throws std::runtime_error if no destination is set, there is no such file, or it cannot be
///     opened for reading
/// \throws TextConversionError if \p path is not UTF-16 or the file not UTF-8
/// \throws std::invalid_argument if \p path holds a NUL
/// \throws std::filesystem::filesystem_error if the system will not tell whether the file exists
///
/// Whatever is thrown, nothing is written.
INSTALL_CPPUTIL_EXPORT void append_file(std::u16string const& path);

/// As above; \p path is UTF-8.
INSTALL_CPPUTIL_EXPORT void append_file(std::string const& path);

/// As above.
INSTALL_CPPUTIL_EXPORT void append_file(Path const& path);

/// Returns the destination; an empty path while none is set. Waits for an entry that is being
/// written and a change that is being made. The reference stays valid, but the path behind it
/// changes with the destination: read it only while no other thread makes or destroys a `Logger`.
/// \throws std::system_error if the lock cannot be taken
INSTALL_CPPUTIL_EXPORT Path const& get_destination();

namespace detail {

/// Returns the destination that was unset last; an empty path if there was none since the library
/// was loaded or `forget_last_destination` was called. The reference is as that of
/// `get_destination`.
INSTALL_CPPUTIL_EXPORT Path const& get_last_destination();

/// Forgets the destination that was unset last. The current one stays.
INSTALL_CPPUTIL_EXPORT void forget_last_destination();

}  // namespace detail
}  // namespace install::cpputil::logger
