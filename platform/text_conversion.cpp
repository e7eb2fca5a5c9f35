#include "platform/text_conversion.h"

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

/// Returns the length of the longest run of whole words of ASCII that \p text begins with. Nearly
/// all that an installer handles is ASCII, and a word at a time is several times as fast as
/// decoding it.
template <typename Unit>
std::size_t length_in_ascii_words(std::basic_string_view<Unit> text) {
    constexpr std::size_t units = sizeof(std::uint64_t) / sizeof(Unit);
    std::size_t length = 0;
    while (text.size() - length >= units) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + length, sizeof word);
        if ((word & non_ascii_bits<Unit>) != 0) {
            break;
        }
        length += units;
    }
    return length;
}

/// Reads \p text to its end: hands runs of ASCII to \p take_ascii, as views, and other characters,
/// with some of ASCII among them, to \p take_character, as code points.
template <typename Unit, typename TakeAscii, typename TakeCharacter>
void decode(std::basic_string_view<Unit> text, TakeAscii take_ascii, TakeCharacter take_character) {
    auto const* const end = text.data() + text.size();
    for (auto const* position = text.data(); position != end;) {
        auto const offset = static_cast<std::size_t>(position - text.data());
        if (auto const length = length_in_ascii_words(text.substr(offset)); length != 0) {
            take_ascii(text.substr(offset, length));
            position += length;
            continue;
        }
        auto const character = utf::utf_traits<Unit>::decode(position, end);
        if (character == utf::illegal || character == utf::incomplete) {
            throw TextConversionError(std::string("text is not ") + encoding_name<Unit> +
                                      ": malformed at offset " + std::to_string(offset));
        }
        take_character(character);
    }
}

template <typename To, typename From>
std::basic_string<To> convert(std::basic_string_view<From> text) {
    std::basic_string<To> result;
    result.reserve(text.size());
    decode(
        text, [&](auto ascii) { result.append(ascii.begin(), ascii.end()); },
        [&](auto character) {
            utf::utf_traits<To>::encode(character, std::back_inserter(result));
        });
    return result;
}

}  // namespace

TextConversionError::TextConversionError(std::string const& text) : std::runtime_error(text) {}

TextConversionError::~TextConversionError() = default;

std::u16string TextConversion::fromUtf8(std::string_view text) {
    return convert<char16_t>(text);
}

void TextConversion::checkUtf8(std::string_view text) {
    decode(
        text, [](auto) {}, [](auto) {});
}

std::string TextConversion::toUtf8(std::u16string_view text) {
    return convert<char>(text);
}

std::string TextConversion::toNarrow(std::u16string_view text) {
    return toUtf8(text);
}

}  // namespace install::cpputil
