#pragma once

#include <string>

#include "export.h"
#include "path.h"

namespace install::cpputil {

/// Names in the file system and what stands under them. Texts are UTF-16.
///
/// \par Thread safety
///     Every function may be called from any thread at any time. `tempDirectory` reads the process
///     environment, which no other thread may change meanwhile.
class INSTALL_CPPUTIL_EXPORT FileSystemService {
public:
    /// Returns whether there is an entry under \p path; symbolic links are followed. False for an
    /// empty path.
    /// \throws std::filesystem::filesystem_error if the system will not tell, for instance for want
    ///     of search permission on a directory on the way
    static bool exists(Path const& path);

    /// Makes the directory \p path and those above it that are missing, mode 0777 under the umask.
    /// Returns whether the directory was made by this call.
    /// \throws std::filesystem::filesystem_error if one of them cannot be made
    static bool createDirectories(Path const& path);

    /// Returns the text of the directory that \p path stands in. Separators at the end of \p path
    /// do not count: "/a/b/c/" and "/a/b/c" both give "/a/b". A lone component, the root and an
    /// empty text have no parent and give an empty text.
    static std::u16string parentPath(std::u16string const& path);

    /// Returns \p path as the system takes it: with runs of "/" become one, otherwise unchanged.
    /// ".." stays, since resolving it would change the meaning behind a symbolic link.
    static std::u16string nativeForm(std::u16string const& path);

    /// Returns the narrow name, UTF-8, under which the system knows \p path.
    static std::string nativeForm(Path const& path);

    /// Returns \p path with \p component as one more component at its end. An empty \p path gives
    /// \p component alone.
    /// \throws std::invalid_argument, TextConversionError as the constructor of `Path` does
    static Path concatenatePath(Path const& path, std::u16string const& component);

    /// Returns the directory of the installation: the one that `setInstallRoot` named, else the
    /// folder of the running executable.
    /// \throws std::filesystem::filesystem_error if the executable cannot be told
    /// \throws TextConversionError if the executable's folder is not UTF-8
    static std::u16string installRoot();

    /// Names the directory of the installation for the whole process. An empty text goes back to
    /// the folder of the running executable.
    /// \throws std::invalid_argument, TextConversionError as the constructor of `Path` does; the
    ///     directory named before stays then
    static void setInstallRoot(std::u16string const& path);

    /// Returns the directory for temporary files, without a separator at its end: the value of the
    /// environment variable TMPDIR where that is set and neither empty nor malformed UTF-8, else
    /// "/tmp". The root directory gives an empty text, so that a separator and a name can always
    /// follow. Nobody tests whether the directory is there or can be written to.
    static std::u16string tempDirectory();
};

}  // namespace install::cpputil
