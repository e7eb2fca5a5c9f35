#pragma once

/// \file
/// Conversion between UTF-8 and UTF-16.

#include <stdexcept>
#include <string>
#include <string_view>

#include "export.h"

namespace install::cpputil {

/// Thrown for malformed text. `what()` names the expected encoding and the offset of the first
/// malformed sequence, counted from 0 in bytes (UTF-8) or code units (UTF-16).
class INSTALL_CPPUTIL_EXPORT TextConversionError : public std::runtime_error {
public:
    /// Creates an error whose `what()` is \p text.
    explicit TextConversionError(std::string const& text);
    ~TextConversionError() override;
};

/// Conversion between UTF-16, the encoding of names and user inputs in installers, and UTF-8, the
/// encoding of files and diagnostic records.
///
/// Conversion is strict: no character is replaced or dropped. Malformed, overlong and out-of-range
/// UTF-8, UTF-8 for surrogates and unpaired UTF-16 surrogates are errors. A NUL is an ordinary
/// character, and a byte-order mark is kept.
///
/// \par Thread safety
///     Every function may be called from any thread at any time.
class INSTALL_CPPUTIL_EXPORT TextConversion {
public:
    /// Returns the UTF-8 \p text as UTF-16.
    /// \throws TextConversionError if \p text is not UTF-8
    static std::u16string fromUtf8(std::string_view text);

    /// Checks that \p text is UTF-8 without converting it; throws what `fromUtf8` would throw.
    /// \throws TextConversionError if \p text is not UTF-8
    static void checkUtf8(std::string_view text);

    /// Returns the UTF-16 \p text as UTF-8.
    /// \throws TextConversionError if \p text is not UTF-16
    static std::string toUtf8(std::u16string_view text);

    /// Returns the UTF-16 \p text in the narrow encoding of this platform, which is UTF-8.
    /// \throws TextConversionError if \p text is not UTF-16
    static std::string toNarrow(std::u16string_view text);
};

}  // namespace install::cpputil
