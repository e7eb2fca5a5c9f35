#include "platform/diagnostic_channel.h"

#include "tests/record_sink.h"

namespace install::cpputil::tests {
namespace {

TEST(DiagnosticChannel, JoinsThePiecesOfARecord) {
    DiagnosticChannel channel("test");
    RecordSink sink("test", 8 | 4);
    std::u16string const text = std::u16string(100'000, u'\u20ac') + u"\U0001F600";
    channel.write(Severity::changes, {text});
    channel.write(Severity::details, {" a=", u"\u00e9", std::string_view("\0b", 2), true, false});
    channel.write(Severity::details, {});
    EXPECT_THAT(sink.take(), ElementsAre("8:" + TextConversion::toUtf8(text),
                                         std::string("4: a=\xC3\xA9\0btruefalse", 18), "4:"));
}

TEST(DiagnosticChannel, WritesNothingWhileTheLoggingCoreIsDisabled) {
    DiagnosticChannel channel("test");
    RecordSink sink("test");
    boost::log::core::get()->set_logging_enabled(false);
    channel.write(Severity::changes, {"dropped"});
    boost::log::core::get()->set_logging_enabled(true);
    EXPECT_THAT(sink.take(), IsEmpty());
}

TEST(DiagnosticChannel, RejectsMalformedPieces) {
    DiagnosticChannel channel("test");
    RecordSink sink("test");
    // Boost.Log's own conversion never returns for the second string.
    for (std::u16string const malformed : {u"a\xDC00", u"a\xD800"}) {
        auto const write = [&] { channel.write(Severity::changes, {" x=", malformed}); };
        EXPECT_EQ(error_text<TextConversionError>(write),
                  "text is not UTF-16: malformed at offset 1");
    }
    DiagnosticChannel::setEnabledSeverities("test", 4 | 1);
    channel.write(Severity::changes, {u"\xD800"});  // Not enabled, so it is not converted.
    EXPECT_THAT(sink.take(), IsEmpty());
}

TEST(DiagnosticChannel, IsEnabledByItsNameWhileItExists) {
    auto const enable_unknown = [] { DiagnosticChannel::setEnabledSeverities("unknown", 4); };
    {
        DiagnosticChannel first("test");
        DiagnosticChannel second("test::more");
        DiagnosticChannel namesake("test");
        DiagnosticChannel::setEnabledSeverities("test", 8);
        EXPECT_TRUE(first.isEnabled(Severity::changes));
        EXPECT_TRUE(namesake.isEnabled(Severity::changes));
        EXPECT_FALSE(first.isEnabled(Severity::details));
        EXPECT_FALSE(second.isEnabled(Severity::changes));
        auto const text = error_text<std::invalid_argument>(enable_unknown);
        EXPECT_THAT(text, HasSubstr("no diagnostic channel \"unknown\"; the channels are "));
        EXPECT_THAT(text, HasSubstr("\"test\", \"test::more\", \"test\""));
        EXPECT_THAT(text, HasSubstr("\"install::cpputil::InputFileParser\""));
    }
    EXPECT_THAT(error_text<std::invalid_argument>(enable_unknown),
                ::testing::Not(HasSubstr("test")));
}

}  // namespace
}  // namespace install::cpputil::tests
