#pragma once

/// \file
/// Names of files and directories.

#include <string>

#include "export.h"

namespace install::cpputil {

/// The name of a file or directory, in UTF-16 and in UTF-8 as the system expects it.
///
/// A value type. It does not access the file system, and resolves neither "." nor "..".
///
/// \par Thread safety
///     As for a `std::u16string`: several threads may read one `Path`, or use different ones.
class INSTALL_CPPUTIL_EXPORT Path {
public:
    /// Creates an empty path, which names nothing.
    Path() noexcept = default;

    /// Creates a path from the UTF-16 \p text, with every run of "/" reduced to one. ".." stays,
    /// since resolving it would change the meaning of a path that contains symbolic links. An empty
    /// string creates an empty path.
    /// \throws std::invalid_argument if \p text contains a NUL, where the system would truncate the
    ///     name
    /// \throws TextConversionError if \p text is not UTF-16
    explicit Path(std::u16string const& text);

    /// Returns the UTF-16 name; empty for an empty path.
    std::u16string const& string() const noexcept { return text_; }

    /// Returns the UTF-8 name to pass to the system; empty for an empty path.
    std::string const& narrowName() const noexcept { return narrowName_; }

private:
    std::u16string text_;
    std::string narrowName_;
};

}  // namespace install::cpputil
