// Conversion there and back is the identity, or an error in both ways of asking.

#include <cstring>

#include "fuzz/fuzz.h"
#include "platform/text_conversion.h"

using namespace install::cpputil;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const utf8 = text_of(data, size);
    require(error_of<TextConversionError>([&] {
                require(TextConversion::toUtf8(TextConversion::fromUtf8(utf8)) == utf8);
            }) == error_of<TextConversionError>([&] { TextConversion::checkUtf8(utf8); }));

    std::u16string utf16(size / sizeof(char16_t), u'\0');
    std::memcpy(utf16.data(), data, utf16.size() * sizeof(char16_t));
    error_of<TextConversionError>(
        [&] { require(TextConversion::fromUtf8(TextConversion::toUtf8(utf16)) == utf16); });
    return 0;
}
