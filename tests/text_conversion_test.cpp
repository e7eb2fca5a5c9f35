#include "platform/text_conversion.h"

#include "tests/files.h"

namespace install::cpputil::tests {
namespace {

TEST(TextConversion, PreservesEveryCharacter) {
    std::map<std::string, std::u16string> const texts = {
        {"", u""},
        {"1234567", u"1234567"},
        {"12345678\x7F", u"12345678\x7F"},
        {{"a\0b\0", 4}, {u"a\0b\0", 4}},
        // The first and the last character of each length.
        {"\xC2\x80\xDF\xBF", u"\u0080\u07FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\u0800\uD7FF\uE000\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
        {"\xEF\xBB\xBFx", u"\uFEFFx"},
        {"\xE4\xB8\x80", u"\u4E00"},  // Its low byte is zero.
        {"\xC3\xA9 1\xE4\xB8\x80 12345678901\xF0\x9F\x98\x80\xC3\xA9",
         u"\u00E9 1\u4E00 12345678901\U0001F600\u00E9"}};
    for (auto const& [narrow, wide] : texts) {
        // ASCII is read in 8-byte words: test every alignment.
        for (std::size_t distance = 0; distance != 81; ++distance) {
            auto const before = distance / 9;
            auto const after = distance % 9;
            auto const utf8 = std::string(before, 'x') + narrow + std::string(after, 'y');
            auto const utf16 = std::u16string(before, u'x') + wide + std::u16string(after, u'y');
            EXPECT_EQ(TextConversion::fromUtf8(utf8), utf16) << narrow;
            EXPECT_EQ(TextConversion::toUtf8(utf16), utf8);
            EXPECT_EQ(TextConversion::toNarrow(utf16), utf8);
        }
    }
}

TEST(TextConversion, ReportsTheOffsetOfMalformedUtf8) {
    std::map<std::string, Strings> const rows = {
        {"continuation byte first", {"\x80", "\xBF"}},
        {"incomplete", {"\xC3", "\xC3(", "\xE2\x82", "\xE2\x82(", "\xE2(\x80", "\xF0\x90\x80"}},
        {"overlong", {"\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF"}},
        {"surrogate", {"\xED\xA0\x80", "\xED\xBF\xBF"}},
        {"out of range", {"\xF4\x90\x80\x80", "\xF5\x80\x80\x80"}},
        {"invalid first byte",
         {"\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80", "\xFE", "\xFF"}}};
    for (auto const& [reason, texts] : rows) {
        for (auto const& malformed : texts) {
            for (std::string const after : {"", "x", "\xFF 12345678"}) {
                auto const text = "12345678\xC3\xA9" + malformed + after;
                EXPECT_EQ(error_text<TextConversionError>([&] { TextConversion::fromUtf8(text); }),
                          "text is not UTF-8: malformed at offset 10")
                    << reason;
            }
        }
    }
}

TEST(TextConversion, ReportsTheOffsetOfMalformedUtf16) {
    for (std::u16string const malformed : {u"\xD800", u"\xDBFFx", u"\xD800\xD800\xDC00",
                                           u"\xDC00\xD800", u"\xDC00\xDC00", u"\xDFFF"}) {
        auto const text = u"1234\U00010000" + malformed;
        EXPECT_EQ(error_text<TextConversionError>([&] { TextConversion::toNarrow(text); }),
                  "text is not UTF-16: malformed at offset 6");
    }
}

TEST(TextConversion, ReadsNothingAfterTheEndOfAView) {
    for (std::string_view const text : {"\xC2\x80", "\xE0\xA0\x80", "\xF0\x90\x80\x80"}) {
        auto const cut = [&] { TextConversion::checkUtf8(text.substr(0, text.size() - 1)); };
        EXPECT_EQ(error_text<TextConversionError>(cut), "text is not UTF-8: malformed at offset 0");
    }
    auto const half = [] { TextConversion::toUtf8({u"\U00010000", 1}); };
    EXPECT_EQ(error_text<TextConversionError>(half), "text is not UTF-16: malformed at offset 0");
}

}  // namespace
}  // namespace install::cpputil::tests
