#pragma once

#include <string>

#include "export.h"

namespace install::cpputil {

/// The name of a file or directory: UTF-16 text, and the narrow name under which the system knows
/// it.
///
/// A value: copying copies the text. Nothing is looked up in the file system, and neither "." nor
/// ".." is resolved.
///
/// \par Thread safety
///     As for a `std::u16string`: several threads may read one `Path`, or use different ones.
class INSTALL_CPPUTIL_EXPORT Path {
public:
    /// Makes an empty path, which names nothing.
    Path() noexcept = default;

    /// Makes a path of \p text, UTF-16, in the form of `FileSystemService::nativeForm`: as it is,
    /// with runs of "/" become one. An empty text makes an empty path.
    /// \throws std::invalid_argument if \p text holds a NUL, since the system would take the text
    ///     before it for the name of another file
    /// \throws TextConversionError if \p text is not UTF-16
    explicit Path(std::u16string const& text);

    /// Returns the path's text, UTF-16; empty for an empty path.
    std::u16string const& string() const noexcept { return text_; }

    /// Returns the name to give to the system, UTF-8; empty for an empty path.
    std::string const& narrowName() const noexcept { return narrowName_; }

private:
    std::u16string text_;
    std::string narrowName_;
};

}  // namespace install::cpputil
