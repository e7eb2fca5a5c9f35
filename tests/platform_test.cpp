#include "platform/text_conversion.h"

#include "tests/support.h"

namespace install::cpputil {
namespace {

using namespace testing;

TEST(TextConversion, KeepsEveryCharacter) {
    Rows<std::string, std::u16string> const rows = {
        {"", u""},
        {"1234567", u"1234567"},
        {"12345678\x7F", u"12345678\x7F"},
        {{"a\0b\0", 4}, {u"a\0b\0", 4}},
        {"\xC2\x80\xDF\xBF", u"\u0080\u07FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\u0800\uD7FF\uE000\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
        {"\xEF\xBB\xBFx", u"\uFEFFx"}};
    for (auto const& [narrow, wide] : rows) {
        // At every distance from a word of ASCII.
        for (std::size_t before = 0; before != 9; ++before) {
            auto const utf8 = std::string(before, 'x') + narrow + "ASCII after";
            auto const utf16 = std::u16string(before, u'x') + wide + u"ASCII after";
            EXPECT_EQ(TextConversion::fromUtf8(utf8), utf16) << narrow;
            EXPECT_EQ(TextConversion::toUtf8(utf16), utf8);
            EXPECT_EQ(TextConversion::toNarrow(utf16), utf8);
        }
    }
}

TEST(TextConversion, NamesTheFirstMalformedSequence) {
    for (std::string const malformed :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x9F\xBF", "\xE2\x82",
          "\xE2\x82(", "\xE2(\x80", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF",
          "\xF0\x90\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFE",
          "\xFF"}) {
        for (std::string const after : {"", "x", "\xFF 12345678"}) {
            auto const text = "12345678\xC3\xA9" + malformed + after;
            EXPECT_EQ(error_text<TextConversionError>([&] { TextConversion::fromUtf8(text); }),
                      "text is not UTF-8: malformed at offset 10");
        }
    }
    for (std::u16string const malformed :
         {u"\xD800", u"\xDBFFx", u"\xD800\xD800\xDC00", u"\xDC00\xD800", u"\xDFFF"}) {
        auto const text = u"1234\U00010000" + malformed;
        EXPECT_EQ(error_text<TextConversionError>([&] { TextConversion::toNarrow(text); }),
                  "text is not UTF-16: malformed at offset 6");
    }
}

}  // namespace
}  // namespace install::cpputil
