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

/// Appends the longest run of whole words of ASCII that \p from begins with to \p result and
/// returns its length. Nearly all that an installer handles is ASCII, and a word at a time is
/// several times as fast as decoding it.
template <typename From, typename To>
std::size_t append_ascii_words(std::basic_string_view<From> from, std::basic_string<To>& result) {
    constexpr std::size_t units = sizeof(std::uint64_t) / sizeof(From);
    std::size_t length = 0;
    while (from.size() - length >= units) {
        std::uint64_t word = 0;
        std::memcpy(&word, from.data() + length, sizeof word);
        if ((word & non_ascii_bits<From>) != 0) {
            break;
        }
        length += units;
    }
    result.append(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(length));
    return length;
}

template <typename To, typename From>
std::basic_string<To> convert(std::basic_string_view<From> from) {
    std::basic_string<To> result;
    result.reserve(from.size());
    auto const* const end = from.data() + from.size();
    for (auto const* position = from.data(); position != end;) {
        auto const rest =
            std::basic_string_view<From>(position, static_cast<std::size_t>(end - position));
        position += append_ascii_words(rest, result);
        // Up to the next word: decode at least one character, then try whole words again.
        if (position == end) {
            break;
        }
        auto const* const start = position;
        auto const character = utf::utf_traits<From>::decode(position, end);
        if (character == utf::illegal || character == utf::incomplete) {
            throw TextConversionError(std::string("text is not ") + encoding_name<From> +
                                      ": malformed at offset " +
                                      std::to_string(start - from.data()));
        }
        utf::utf_traits<To>::encode(character, std::back_inserter(result));
    }
    return result;
}

}  // namespace

TextConversionError::TextConversionError(std::string const& text) : std::runtime_error(text) {}

TextConversionError::~TextConversionError() = default;

std::u16string TextConversion::fromUtf8(std::string_view text) {
    return convert<char16_t>(text);
}

std::string TextConversion::toUtf8(std::u16string_view text) {
    return convert<char>(text);
}

std::string TextConversion::toNarrow(std::u16string_view text) {
    return toUtf8(text);
}

}  // namespace install::cpputil
