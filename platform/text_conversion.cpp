#include "platform/text_conversion.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace install::cpputil {
namespace {

template <typename Unit>
constexpr char const* encoding_name = sizeof(Unit) == 1 ? "UTF-8" : "UTF-16";

/// The maximum number of units that one unit of the other encoding expands to.
template <typename Unit>
constexpr std::size_t most_units = sizeof(Unit) == 1 ? 3 : 1;

// Most text that an installer handles is ASCII, so runs of ASCII are read a word at a time: eight
// bytes, or four UTF-16 units.

template <typename Unit>
constexpr std::size_t word_length = sizeof(std::uint64_t) / sizeof(Unit);

/// The bits of a word that are zero in every ASCII character.
template <typename Unit>
constexpr std::uint64_t non_ascii_bits = sizeof(Unit) == 1 ? 0x8080'8080'8080'8080U
                                                           : 0xFF80'FF80'FF80'FF80U;

template <typename Unit>
constexpr bool is_ascii(Unit unit) {
    return (unit & ~0x7F) == 0;
}

constexpr bool is_surrogate(char32_t unit) {
    return (unit & 0xFFFF'F800) == 0xD800;
}

/// Returns the number of ASCII characters at the start of the word at \p text.
template <typename Unit>
std::size_t ascii_length_of_word(Unit const* text) {
    std::uint64_t word = 0;
    std::memcpy(&word, text, sizeof word);
    word &= non_ascii_bits<Unit>;
    auto const ascii_bits = std::endian::native == std::endian::little ? std::countr_zero(word)
                                                                       : std::countl_zero(word);
    return static_cast<std::size_t>(ascii_bits) / (8 * sizeof(Unit));
}

/// Returns the number of ASCII characters at the start of \p text.
template <typename Unit>
std::size_t ascii_length(std::basic_string_view<Unit> text) {
    std::size_t length = 0;
    for (; text.size() - length >= word_length<Unit>; length += word_length<Unit>) {
        auto const in_word = ascii_length_of_word(text.data() + length);
        if (in_word != word_length<Unit>) {
            return length + in_word;
        }
    }
    while (length != text.size() && is_ascii(text[length])) {
        ++length;
    }
    return length;
}

/// Copies the ASCII characters at \p source, up to \p end, to \p target, and moves both pointers
/// past them. Copies whole words to avoid data-dependent branches; \p target must therefore have
/// room for `end - source` units.
template <typename From, typename To>
void copy_ascii(From const*& source, From const* end, To*& target) {
    while (static_cast<std::size_t>(end - source) >= word_length<From>) {
        std::copy_n(source, word_length<From>, target);
        auto const length = ascii_length_of_word(source);
        source += length;
        target += length;
        if (length != word_length<From>) {
            return;
        }
    }
    while (source != end && is_ascii(*source)) {
        *target++ = static_cast<To>(*source++);
    }
}

/// A character and the end of its sequence, which is null if the sequence is malformed.
template <typename Unit>
struct Decoded {
    char32_t character = 0;
    Unit const* next = nullptr;
};

constexpr bool is_continuation(char byte) {
    return (byte & 0xC0) == 0x80;
}

/// Returns the bits of \p byte that \p mask selects, shifted left by \p shift.
constexpr char32_t bits(char byte, unsigned mask, int shift) {
    return (static_cast<unsigned char>(byte) & mask) << shift;
}

// Decode one non-ASCII sequence that starts at \p text and ends no later than \p end.

constexpr Decoded<char> decode(char const* text, char const* end) {
    auto const lead = static_cast<unsigned char>(text[0]);
    auto const size = end - text;
    if (lead < 0xE0) {
        if (lead >= 0xC2 && size >= 2 && is_continuation(text[1])) {
            return {bits(text[0], 0x1F, 6) | bits(text[1], 0x3F, 0), text + 2};
        }
        return {};
    }
    if (size < 3 || !is_continuation(text[1]) || !is_continuation(text[2])) {
        return {};
    }
    if (lead < 0xF0) {
        auto const character =
            bits(text[0], 0x0F, 12) | bits(text[1], 0x3F, 6) | bits(text[2], 0x3F, 0);
        if (character >= 0x800 && !is_surrogate(character)) {
            return {character, text + 3};
        }
        return {};
    }
    if (lead <= 0xF4 && size >= 4 && is_continuation(text[3])) {
        auto const character = bits(text[0], 0x07, 18) | bits(text[1], 0x3F, 12) |
                               bits(text[2], 0x3F, 6) | bits(text[3], 0x3F, 0);
        if (character >= 0x10000 && character <= 0x10FFFF) {
            return {character, text + 4};
        }
    }
    return {};
}

constexpr Decoded<char16_t> decode(char16_t const* text, char16_t const* end) {
    if (!is_surrogate(text[0])) {
        return {text[0], text + 1};
    }
    if (text[0] < 0xDC00 && end - text >= 2 && (text[1] & 0xFC00) == 0xDC00) {
        return {0x10000 + ((text[0] & 0x3FFU) << 10 | (text[1] & 0x3FFU)), text + 2};
    }
    return {};
}

/// Writes \p character, which is not ASCII, to \p target; returns the end of what it wrote.
constexpr char* encode(char32_t character, char* target) {
    auto const continuation = [character](int shift) {
        return static_cast<char>(0x80 | (character >> shift & 0x3F));
    };
    if (character < 0x800) {
        target[0] = static_cast<char>(0xC0 | character >> 6);
        target[1] = continuation(0);
        return target + 2;
    }
    if (character < 0x10000) {
        target[0] = static_cast<char>(0xE0 | character >> 12);
        target[1] = continuation(6);
        target[2] = continuation(0);
        return target + 3;
    }
    target[0] = static_cast<char>(0xF0 | character >> 18);
    target[1] = continuation(12);
    target[2] = continuation(6);
    target[3] = continuation(0);
    return target + 4;
}

constexpr char16_t* encode(char32_t character, char16_t* target) {
    if (character < 0x10000) {
        *target++ = static_cast<char16_t>(character);
        return target;
    }
    *target++ = static_cast<char16_t>(0xD7C0 + (character >> 10));
    *target++ = static_cast<char16_t>(0xDC00 | (character & 0x3FF));
    return target;
}

template <typename Unit>
[[noreturn]] void reject(std::size_t offset) {
    throw TextConversionError(std::string("text is not ") + encoding_name<Unit> +
                              ": malformed at offset " + std::to_string(offset));
}

/// Decodes the sequence of \p text at \p position, which is not ASCII.
template <typename Unit>
constexpr Decoded<Unit> decode_next(std::basic_string_view<Unit> text, Unit const* position) {
    auto const decoded = decode(position, text.data() + text.size());
    if (decoded.next == nullptr) {
        reject<Unit>(static_cast<std::size_t>(position - text.data()));
    }
    return decoded;
}

template <typename To, typename From>
std::basic_string<To> convert(std::basic_string_view<From> text) {
    auto const start = ascii_length(text);
    std::basic_string<To> result(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(start));
    if (start == text.size()) {
        return result;
    }
    // Writing to a result of the maximum size is faster than appending, see docs/performance.md.
    result.resize(start + (text.size() - start) * most_units<To>);
    auto* target = result.data() + start;
    auto const* source = text.data() + start;
    auto const* const end = text.data() + text.size();
    while (source != end) {
        do {
            auto const [character, next] = decode_next(text, source);
            target = encode(character, target);
            source = next;
        } while (source != end && !is_ascii(*source));
        copy_ascii(source, end, target);
    }
    result.resize(static_cast<std::size_t>(target - result.data()));
    return result;
}

}  // namespace

TextConversionError::TextConversionError(std::string const& text) : std::runtime_error(text) {}

TextConversionError::~TextConversionError() = default;

std::u16string TextConversion::fromUtf8(std::string_view text) {
    return convert<char16_t>(text);
}

void TextConversion::checkUtf8(std::string_view text) {
    auto const* source = text.data() + ascii_length(text);
    auto const* const end = text.data() + text.size();
    while (source != end) {
        do {
            source = decode_next(text, source).next;
        } while (source != end && !is_ascii(*source));
        source += ascii_length(std::string_view(source, end));
    }
}

std::string TextConversion::toUtf8(std::u16string_view text) {
    return convert<char>(text);
}

std::string TextConversion::toNarrow(std::u16string_view text) {
    return toUtf8(text);
}

}  // namespace install::cpputil
