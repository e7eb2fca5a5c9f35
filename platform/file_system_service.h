#pragma once

#include <string>

#include "export.h"
#include "path.h"

namespace install::cpputil {

/// Operations on names in the file system and on what they refer to. Texts are UTF-16.
///
/// \par Thread safety
///     Every function may be called from any thread at any time. `tempDirectory` reads the process
///     environment, which no other thread may change at the same time.
class INSTALL_CPPUTIL_EXPORT FileSystemService {
public:
    /// Returns whether \p path refers to an existing entry; symbolic links are followed. Returns false
    /// for an empty path, a dangling or circular link and a name that is too long for the system.
    /// \throws std::filesystem::filesystem_error if the system does not report whether the entry exists,
    ///     e.g. without search permission on a parent directory
    static bool exists(Path const& path);

    /// Creates the directory \p path and its missing parents, with mode 0777 under the umask. Returns
    /// whether this call created the directory.
    /// \throws std::filesystem::filesystem_error if one of them cannot be created
    static bool createDirectories(Path const& path);

    /// Returns the text of the directory that contains \p path. Separators at the end of \p path are
    /// ignored: "/a/b/c/" and "/a/b/c" both give "/a/b". A single component, the root and an empty
    /// text have no parent and give an empty text.
    static std::u16string parentPath(std::u16string const& path);

    /// Returns \p path in the form that the system expects: the text of `Path(path)`.
    /// \throws std::invalid_argument, TextConversionError as the constructor of `Path` does
    static std::u16string nativeForm(std::u16string const& path);

    /// Returns \p path with \p component added as its last component. An empty \p path gives
    /// \p component alone.
    /// \throws std::invalid_argument, TextConversionError as the constructor of `Path` does
    static Path concatenatePath(Path const& path, std::u16string const& component);

    /// Returns the directory of the installation: the one set by `setInstallRoot`, or else the
    /// directory of the running executable.
    /// \throws std::filesystem::filesystem_error if the executable's name cannot be read
    /// \throws TextConversionError if the executable's directory is not UTF-8
    static std::u16string installRoot();

    /// Sets the directory of the installation for the whole process. An empty text restores the
    /// default, the directory of the running executable.
    /// \throws std::invalid_argument, TextConversionError as the constructor of `Path` does; nothing
    ///     changes then
    static void setInstallRoot(std::u16string const& path);

    /// Returns the directory for temporary files, without a trailing separator: the value of the
    /// environment variable TMPDIR if it is set, not empty and UTF-8, or else "/tmp". The root
    /// directory gives an empty text, so that a separator and a name can always follow. Does not check
    /// that the directory exists or is writable.
    static std::u16string tempDirectory();
};

}  // namespace install::cpputil
