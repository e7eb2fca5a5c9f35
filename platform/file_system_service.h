#pragma once

/// \file
/// Path manipulation and file-system queries.

#include <string>

#include "export.h"
#include "path.h"

namespace install::cpputil {

/// Path manipulation and file-system queries. All strings are UTF-16.
///
/// \par Thread safety
///     Every function may be called from any thread at any time. `tempDirectory` reads the process
///     environment, which no other thread may change at the same time.
class INSTALL_CPPUTIL_EXPORT FileSystemService {
public:
    /// Returns whether \p path refers to an existing entry; symbolic links are followed. Returns
    /// false for an empty path, a dangling or circular link and a name that is too long for the
    /// system.
    /// \throws std::filesystem::filesystem_error if the entry's existence cannot be determined,
    ///     e.g. without search permission on a parent directory
    static bool exists(Path const& path);

    /// Creates the directory \p path and its missing parents, with mode 0777, less the umask.
    /// Returns whether this call created the directory.
    /// \throws std::filesystem::filesystem_error if one of them cannot be created
    static bool createDirectories(Path const& path);

    /// Returns the directory that contains \p path. Separators at the end of \p path are ignored:
    /// "/a/b/c/" and "/a/b/c" both give "/a/b". A single component, the root and an empty string
    /// have no parent; for them, the result is empty.
    static std::u16string parentPath(std::u16string const& path);

    /// Returns \p path with each run of "/" reduced to one: `Path(path).string()`.
    /// \throws what the constructor of `Path` throws
    static std::u16string nativeForm(std::u16string const& path);

    /// Returns \p path with \p component appended as its last component; if \p path is empty,
    /// returns \p component.
    /// \throws what the constructor of `Path` throws
    static Path concatenatePath(Path const& path, std::u16string const& component);

    /// Returns the installation root: the one set by `setInstallRoot`, by default the directory of
    /// the running executable.
    /// \throws std::filesystem::filesystem_error if the executable's name cannot be read
    /// \throws TextConversionError if the executable's directory is not UTF-8
    static std::u16string installRoot();

    /// Sets the installation root for the whole process. An empty string restores the default.
    /// \throws what the constructor of `Path` throws; nothing changes then
    static void setInstallRoot(std::u16string const& path);

    /// Returns the directory for temporary files, without a trailing separator: the value of the
    /// environment variable TMPDIR if it is set, not empty and UTF-8; otherwise "/tmp". Returns an
    /// empty string for the root directory, so that callers can append "/" and a name. Does not
    /// check that the directory exists or is writable.
    static std::u16string tempDirectory();
};

}  // namespace install::cpputil
