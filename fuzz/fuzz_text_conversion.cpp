// Text survives a round trip through both conversions. checkUtf8 reports the same errors as
// fromUtf8.

#include <algorithm>
#include <vector>

#include "fuzz/fuzz.h"
#include "platform/text_conversion.h"

using namespace install::cpputil;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    // Each view ends where its memory ends, so that AddressSanitizer detects reads past the end.
    std::string_view const utf8(reinterpret_cast<char const*>(data), size);
    require(error_of<TextConversionError>([&] {
                require(TextConversion::toUtf8(TextConversion::fromUtf8(utf8)) == utf8);
            }) == error_of<TextConversionError>([&] { TextConversion::checkUtf8(utf8); }));

    std::vector<char16_t> units(size / sizeof(char16_t));
    std::copy_n(data, units.size() * sizeof(char16_t),
                reinterpret_cast<std::uint8_t*>(units.data()));
    std::u16string_view const utf16(units.data(), units.size());
    error_of<TextConversionError>(
        [&] { require(TextConversion::fromUtf8(TextConversion::toUtf8(utf16)) == utf16); });
    return 0;
}
