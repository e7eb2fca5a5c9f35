#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace install::cpputil {

/// Thrown for text that is not well-formed. `what()` tells which encoding it is not and the offset,
/// counted from 0 in bytes (UTF-8) or code units (UTF-16), at which the first malformed sequence
/// begins.
class INSTALL_CPPUTIL_EXPORT TextConversionError : public std::runtime_error {
public:
    /// Makes an error whose `what()` is \p text.
    explicit TextConversionError(std::string const& text);
    /// Copies the text.
    TextConversionError(TextConversionError const&) = default;
    /// Copies the text.
    TextConversionError& operator=(TextConversionError const&) = default;
    ~TextConversionError() override;
};

/// Conversion between UTF-16, in which installers hold names and user inputs, and the UTF-8 of
/// files and diagnostic records.
///
/// Strict in both directions: nothing is ever replaced or dropped. Malformed, overlong, surrogate
/// and out-of-range UTF-8 and unpaired UTF-16 surrogates are refused; NUL is a character like any
/// other, and a byte-order mark is kept.
///
/// \par Thread safety
///     Every function may be called from any thread at any time.
class INSTALL_CPPUTIL_EXPORT TextConversion {
public:
    /// Returns \p text, which is UTF-8, as UTF-16.
    /// \throws TextConversionError if \p text is not UTF-8
    static std::u16string fromUtf8(std::string_view text);

    /// Does nothing but throw what `fromUtf8` would throw for \p text.
    /// \throws TextConversionError if \p text is not UTF-8
    static void checkUtf8(std::string_view text);

    /// Returns \p text, which is UTF-16, as UTF-8.
    /// \throws TextConversionError if \p text is not UTF-16
    static std::string toUtf8(std::u16string_view text);

    /// Returns \p text, which is UTF-16, in the narrow encoding of this platform: UTF-8.
    /// \throws TextConversionError if \p text is not UTF-16
    static std::string toNarrow(std::u16string_view text);
};

}  // namespace install::cpputil
