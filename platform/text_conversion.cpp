#include "platform/text_conversion.h"

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace install::cpputil {
namespace {

namespace utf = boost::locale::utf;

template <typename Unit>
constexpr char const* encoding_name = sizeof(Unit) == 1 ? "UTF-8" : "UTF-16";

/// The bits that no ASCII character has, in eight bytes or in four UTF-16 units read as one word.
template <typename Unit>
constexpr std::uint64_t non_ascii_bits = sizeof(Unit) == 1 ? 0x8080'8080'8080'8080U
                                                           : 0xFF80'FF80'FF80'FF80U;

/// Returns the length of the run of ASCII that \p text begins with. Nearly all that an installer
/// handles is ASCII, and a word at a time is several times as fast as decoding it.
template <typename Unit>
std::size_t ascii_length(std::basic_string_view<Unit> text) {
    constexpr std::size_t units = sizeof(std::uint64_t) / sizeof(Unit);
    std::size_t length = 0;
    for (std::uint64_t word = 0; text.size() - length >= units; length += units) {
        std::memcpy(&word, text.data() + length, sizeof word);
        if ((word & non_ascii_bits<Unit>) != 0) {
            break;
        }
    }
    while (length != text.size() && (text[length] & ~0x7F) == 0) {
        ++length;
    }
    return length;
}

/// Returns the character at \p offset of \p text, which is not ASCII, and moves \p offset behind it.
template <typename Unit>
utf::code_point decode(std::basic_string_view<Unit> text, std::size_t& offset) {
    auto const* position = text.data() + offset;
    auto const character = utf::utf_traits<Unit>::decode(position, text.data() + text.size());
    if (character == utf::illegal || character == utf::incomplete) {
        throw TextConversionError(std::string("text is not ") + encoding_name<Unit> +
                                  ": malformed at offset " + std::to_string(offset));
    }
    offset = static_cast<std::size_t>(position - text.data());
    return character;
}

template <typename To, typename From>
std::basic_string<To> convert(std::basic_string_view<From> text) {
    auto offset = ascii_length(text);
    std::basic_string<To> result(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset));
    while (offset != text.size()) {
        utf::utf_traits<To>::encode(decode(text, offset), std::back_inserter(result));
        auto const ascii = text.substr(offset, ascii_length(text.substr(offset)));
        auto const start = result.size();
        result.resize(start + ascii.size());
        std::copy(ascii.begin(), ascii.end(), result.data() + start);
        offset += ascii.size();
    }
    return result;
}

}  // namespace

TextConversionError::TextConversionError(std::string const& text) : std::runtime_error(text) {}

TextConversionError::~TextConversionError() = default;

std::u16string TextConversion::fromUtf8(std::string_view text) {
    return convert<char16_t>(text);
}

void TextConversion::checkUtf8(std::string_view text) {
    for (auto offset = ascii_length(text); offset != text.size();) {
        decode(text, offset);
        offset += ascii_length(text.substr(offset));
    }
}

std::string TextConversion::toUtf8(std::u16string_view text) {
    return convert<char>(text);
}

std::string TextConversion::toNarrow(std::u16string_view text) {
    return toUtf8(text);
}

}  // namespace install::cpputil
