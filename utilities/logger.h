#pragma once

/// \file
/// The installation log: a text file that records, entry by entry, what an installation did.
///
///     install::cpputil::logger::Logger const log(u"/var/log/app/install.log");
///     install::cpputil::logger::append_message(u"installing to /opt/app");
///     install::cpputil::logger::append_file(u"inputs.txt");
///
/// One file is the destination of the whole process. An entry consists of the local time, the message
/// and a line feed, in UTF-8:
///
///     (Nov 16, 2026 17:22:45) installing to /opt/app
///
/// While no destination is set, messages go to the user's fallback file: "velmora_", the effective
/// user's name and ".log" in the directory for temporary files (TMPDIR, or else /tmp). A relative
/// destination is opened relative to the current directory of the process, so entries after a `chdir`
/// go to another file.
///
/// Each entry opens the file, appends with one write, and closes it:
/// - Entries of several threads and processes never interleave.
/// - If the process is killed, no entry is lost whose call has returned.
/// - A file that was removed, renamed or rotated away is created again by the next entry.
/// - If the file cannot be opened or written, the entry is lost and nothing is thrown. A failed open is
///   recorded on the diagnostic channel. A failed write, e.g. on a full disk, is not.
///
/// Limits:
/// - A process that is killed during a write, or a disk that becomes full, may leave the beginning of
///   that one entry in the file.
/// - The system splits a write of more than 2 GiB, so such an entry may be interleaved with others.
/// - Unless the process ignores them, SIGXFSZ ends it if the file exceeds the size limit, and SIGPIPE
///   if the destination is a pipe whose reader has closed it.
/// - The umask determines who can read the log. Copied input files in it can contain passwords.
/// - A line feed in a message starts a line that can look like an entry. Escape untrusted text.
///
/// The functions write records to the diagnostic channel "install::cpputil::logger".
///
/// \par Thread safety
///     Every function may be called from any thread at any time, provided that no thread changes the
///     environment. No function may be called from a signal handler. A change of the destination is atomic
///     for other threads: each message goes to one file, and not to the fallback file while one
///     destination replaces another. A sink of the logging core must not call the functions of this
///     header, and must not wait for a thread that does, because records are written under the log's
///     lock. Such a call has no effect while its thread holds the lock.
/// \par End of the process
///     If `main` returns or a thread calls `exit`, the process waits up to a second for an entry that
///     another thread is writing. Calls that begin during this wait or later have no effect.
/// \par Fork
///     The child of `fork` may use every function at once, even if other threads of the parent were
///     writing entries. `fork` waits for the entry that is being written, up to a second. Other locks
///     can remain locked in the child: those of the logging core if another thread was writing a
///     diagnostic record, and that of the C library's time zone if another thread was converting a
///     time.
/// \par Cancellation
///     A thread is not cancelled inside these functions, unless its cancellation type is asynchronous.
///     A pending cancellation takes effect at the thread's next cancellation point.
///
/// Any exception that a sink throws propagates to the caller of the function that wrote the record.

#include <string>

#include "../platform/export.h"
#include "../platform/path.h"

namespace install::cpputil::logger {

/// Starts the entry for a directory that cannot be created, followed by its path.
INSTALL_CPPUTIL_EXPORT extern std::u16string const unable_to_create_folder_message;

/// Starts the entry for a file that cannot be opened, followed by its path.
INSTALL_CPPUTIL_EXPORT extern std::u16string const unable_to_create_file_message;

/// Starts the entry for a replaced destination, followed by the paths of the old and the new one.
INSTALL_CPPUTIL_EXPORT extern std::u16string const reset_destination_message;

/// Sets the destination for the lifetime of the object.
///
/// There is only one destination, and `Logger` objects do not stack: a later object replaces the
/// destination, and the end of any of them unsets it, even if an earlier one still exists.
class INSTALL_CPPUTIL_EXPORT Logger {
public:
    /// Sets the destination to \p file. Creates the file and its parent directories if they are missing;
    /// keeps the content of an existing file. If a destination was set before, appends an entry to it
    /// that reports the change, or the failure.
    /// \throws std::runtime_error if a directory cannot be created or the file cannot be opened for
    ///     appending; `what()` names it
    ///
    /// If the constructor throws, the destination is unchanged. \p file may be a reference that
    /// `get_destination` returned.
    [[nodiscard]] explicit Logger(Path const& file);

    /// Sets the destination to \p file, UTF-16, like the constructor above.
    /// \throws std::invalid_argument, TextConversionError in addition, as the constructor of `Path` does
    [[nodiscard]] explicit Logger(std::u16string const& file);

    /// Sets the destination to \p file, UTF-8, like the constructors above.
    /// \throws TextConversionError in addition, if \p file is not UTF-8
    [[nodiscard]] explicit Logger(std::string const& file);

    Logger(Logger const&) = delete;
    Logger& operator=(Logger const&) = delete;

    /// Unsets the current destination, even if another `Logger` has set it. Writes nothing to the log.
    /// If a sink throws, the process ends.
    ~Logger();
};

/// Appends an entry with \p message, UTF-16, to the destination or, if none is set, to the fallback
/// file. Line breaks in it are written as they are. An empty message writes nothing.
/// \throws TextConversionError if \p message is not UTF-16; nothing is written then
INSTALL_CPPUTIL_EXPORT void append_message(std::u16string const& message);

/// Appends an entry with \p message, UTF-8, like the overload for UTF-16.
/// \throws TextConversionError if \p message is not UTF-8; nothing is written then
INSTALL_CPPUTIL_EXPORT void append_message(std::string const& message);

/// Appends the whole file at \p path, UTF-16, to the destination as one entry: a line that names the
/// file, its lines, and a line that names it again. Reads the file into memory first.
/// \throws std::runtime_error if no destination is set, or the file does not exist or cannot be opened
///     for reading
/// \throws TextConversionError if \p path is not UTF-16 or the file is not UTF-8
/// \throws std::invalid_argument if \p path contains a NUL
/// \throws std::filesystem::filesystem_error if the system does not report whether the file exists
///
/// If it throws, nothing is written.
INSTALL_CPPUTIL_EXPORT void append_file(std::u16string const& path);

/// Appends the file at \p path, UTF-8, like the overload for UTF-16.
INSTALL_CPPUTIL_EXPORT void append_file(std::string const& path);

/// Appends the file at \p path like the overload for UTF-16. \p path may be a reference that
/// `get_destination` returned.
INSTALL_CPPUTIL_EXPORT void append_file(Path const& path);

/// Returns the destination, or an empty path if none is set. Waits for an entry that is being written
/// and a change in progress. The reference stays valid until the process ends, but its path changes
/// with the destination: read it only while no other thread creates or destroys a `Logger`.
/// \throws std::system_error if the lock cannot be acquired
INSTALL_CPPUTIL_EXPORT Path const& get_destination();

namespace detail {

/// Returns the destination that was unset last. The path is empty if no destination has been unset since
/// the library was loaded or `forget_last_destination` was called. The reference is valid like that of
/// `get_destination`.
INSTALL_CPPUTIL_EXPORT Path const& get_last_destination();

/// Forgets the destination that was unset last. Does not change the current one.
INSTALL_CPPUTIL_EXPORT void forget_last_destination();

}  // namespace detail
}  // namespace install::cpputil::logger
