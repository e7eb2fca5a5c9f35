#pragma once

/// \file
/// The installation log: a text file that records, entry by entry, what an installation did.
///
///     install::cpputil::logger::Logger const log(u"/var/log/app/install.log");
///     install::cpputil::logger::append_message(u"installing to /opt/app");
///     install::cpputil::logger::append_file(u"inputs.txt");
///
/// A process has one destination file. An entry consists of the local time, the message and a line
/// feed, in UTF-8:
///
///     (Nov 16, 2026 17:22:45) installing to /opt/app
///
/// Each entry opens the file, appends with one write, and closes it:
/// - Entries of several threads and processes never interleave in a local file.
/// - If the process is killed, every entry whose call has returned is in the file.
/// - A file that was removed, renamed or rotated away is recreated by the next entry.
/// - If the file cannot be opened or written, the entry is lost and nothing is thrown.
///
/// \par Thread safety
///     Every function may be called from any thread at any time, provided that no thread changes
///     the environment. No function may be called from a signal handler. docs/architecture.md
///     describes exit, fork and cancellation.
/// \par Diagnostic records
///     The functions write records to the channel "install::cpputil::logger". A sink may call them
///     in turn if the records of other threads do not wait for it, as behind `unlocked_sink` or an
///     asynchronous frontend, and finds the current destination. Its entries and changes are
///     ignored during two records: that of a file that cannot be opened, and that of a new
///     destination. A `Logger` that it creates there nevertheless unsets the destination when it is
///     destroyed later. A sink must not wait for another thread that uses the log. Exceptions
///     thrown by a sink propagate to the caller.

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
/// destination, and destroying any of them unsets it, even if an earlier one still exists.
///
/// Choose the destination with care:
/// - Do not put it into a directory where other users can create files: they could plant a link
///   or a pipe. The umask determines who can read it. It may contain passwords from copied input
///   files.
/// - A relative path is opened relative to the current directory, which `chdir` changes.
/// - A full pipe or a stopped terminal blocks every call of the log until it accepts data again,
///   and each fork and exit for up to a second. A lease of another process on the file blocks for
///   up to a minute.
/// - Entries of more than 4,096 bytes that several processes write to a pipe may interleave. The
///   reader of a pipe sees the end of the file between entries.
/// - Unless ignored, SIGXFSZ (size limit exceeded) and SIGPIPE (the pipe's reader is gone)
///   terminate the process.
class INSTALL_CPPUTIL_EXPORT Logger {
public:
    /// Sets the destination to \p file. Creates the file and its parent directories if they are
    /// missing; keeps the content of an existing file. If a destination was set before, first
    /// appends an entry about the change (or failure) to it. The change is atomic for other
    /// threads: each message goes to one file, and none to the fallback file while one destination
    /// replaces another.
    /// \throws std::runtime_error if a directory cannot be created or the file cannot be opened for
    ///     appending; `what()` names it
    ///
    /// If the constructor throws, the destination is unchanged; what a sink changed during the
    /// replacement itself is undone. The old destination may already contain the entry about the
    /// change. \p file may alias the result of `get_destination`.
    [[nodiscard]] explicit Logger(Path const& file);

    /// Sets the destination to the UTF-16 \p file, like the constructor above.
    /// \throws also what the constructor of `Path` throws
    [[nodiscard]] explicit Logger(std::u16string const& file);

    /// Sets the destination to the UTF-8 \p file, like the constructors above.
    /// \throws also TextConversionError if \p file is not UTF-8
    [[nodiscard]] explicit Logger(std::string const& file);

    Logger(Logger const&) = delete;
    Logger& operator=(Logger const&) = delete;

    /// Unsets the current destination, even if another `Logger` has set it. Writes nothing to the
    /// log. Terminates the process if a sink throws, or if memory runs out while records are
    /// enabled.
    ~Logger();
};

/// Appends an entry with the UTF-16 \p message to the destination or, while none is set, to the
/// fallback file of the effective user: "velmora_", the user's name and ".log" in the directory for
/// temporary files (TMPDIR, by default /tmp). The fallback file is created with mode 0600 and used
/// only if it is a regular file of the user with one link.
///
/// Line breaks in \p message are written as they are. Escape untrusted text: a line feed starts a
/// line that can look like an entry. An empty message writes nothing. A failed open is recorded; a
/// failed write, e.g. on a full disk, is not.
///
/// If the process is killed during the write, or the disk becomes full, the file may contain the
/// beginning of the entry. Entries of more than 2 GiB, and entries on a network file system, may
/// interleave. A power failure can lose entries.
/// \throws TextConversionError if \p message is not UTF-16; nothing is written then
INSTALL_CPPUTIL_EXPORT void append_message(std::u16string const& message);

/// Appends an entry with the UTF-8 \p message, like the overload for UTF-16.
/// \throws TextConversionError if \p message is not UTF-8; nothing is written then
INSTALL_CPPUTIL_EXPORT void append_message(std::string const& message);

/// Appends the whole file at the UTF-16 \p path to the destination as one entry: a line that names
/// the file, its lines, and a line that names it again. Reads the file into memory first, up to the
/// first read error; a line cut short by it is dropped. Waits for the writer of a pipe;
/// meanwhile, the thread can be cancelled.
/// \throws std::runtime_error if no destination is set, or the file does not exist or cannot be
///     opened for reading
/// \throws TextConversionError if \p path is not UTF-16 or the file is not UTF-8
/// \throws std::invalid_argument if \p path contains a NUL
/// \throws std::filesystem::filesystem_error if the file's existence cannot be determined
///
/// If it throws, nothing is written.
INSTALL_CPPUTIL_EXPORT void append_file(std::u16string const& path);

/// Appends the file at the UTF-8 \p path, like the overload for UTF-16.
INSTALL_CPPUTIL_EXPORT void append_file(std::string const& path);

/// Appends the file at \p path, like the overload for UTF-16. \p path may alias the result of
/// `get_destination`.
INSTALL_CPPUTIL_EXPORT void append_file(Path const& path);

/// Returns the destination, or an empty path if none is set. Waits for any entry or change in
/// progress. The reference stays valid until the process exits or unloads the library, but its path
/// changes with the destination: read it only while no other thread creates or destroys a `Logger`.
/// \throws std::system_error if the lock cannot be acquired
INSTALL_CPPUTIL_EXPORT Path const& get_destination();

namespace detail {

/// Returns the most recently unset or replaced destination. The path is empty if there has been
/// none since the library was loaded or `forget_last_destination` was called. The rules of
/// `get_destination` about its reference apply here, too.
INSTALL_CPPUTIL_EXPORT Path const& get_last_destination();

/// Forgets that destination. Does not change the current one.
INSTALL_CPPUTIL_EXPORT void forget_last_destination();

}  // namespace detail
}  // namespace install::cpputil::logger
