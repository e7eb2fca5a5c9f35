#include "platform/diagnostic_channel.h"

#include <gmock/gmock.h>

#include "tests/support.h"

namespace install::cpputil {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using Record = Records::value_type;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(DiagnosticChannel, JoinsThePiecesOfARecord) {
    DiagnosticChannel channel("test");
    RecordSink sink("test");
    std::u16string const text = std::u16string(100'000, u'\u20ac') + u"\U0001F600";
    channel.write(Severity::details, {" a=", u"\u00e9", std::string_view("\0b", 2), true, false});
    channel.write(Severity::changes, {text});
    channel.write(Severity::changes, {});
    EXPECT_THAT(sink.take(), ElementsAre(Record{4, std::string(" a=\xC3\xA9\0btruefalse", 16)},
                                         Record{8, TextConversion::toUtf8(text)}, Record{8, ""}));
}

TEST(DiagnosticChannel, WritesNothingWhileItOrTheCoreIsOff) {
    DiagnosticChannel channel("test");
    RecordSink sink("test", 0);
    channel.write(Severity::details, {u"\xD800"});  // a piece that would not pass is not looked at
    DiagnosticChannel::setEnabledSeverities("test", 8 | 1);
    channel.write(Severity::details, {u"\xD800"});
    channel.write(Severity::changes, {"changes"});
    boost::log::core::get()->set_logging_enabled(false);
    channel.write(Severity::changes, {u"\xD800"});
    boost::log::core::get()->set_logging_enabled(true);
    EXPECT_THAT(sink.take(), ElementsAre(Record{8, "changes"}));
}

// The core's own conversion would not come back from the second text.
TEST(DiagnosticChannel, RefusesMalformedPieces) {
    DiagnosticChannel channel("test");
    RecordSink sink("test");
    for (std::u16string const malformed : {u"a\xDC00", u"a\xD800"}) {
        EXPECT_EQ(error_text<TextConversionError>([&] {
                      channel.write(Severity::details, {" x=", malformed});
                  }),
                  "text is not UTF-16: malformed at offset 1");
    }
    EXPECT_THAT(sink.take(), IsEmpty());
    channel.write(Severity::details, {"next"});
    EXPECT_THAT(sink.take(), ElementsAre(Record{4, "next"}));
}

TEST(DiagnosticChannel, IsFoundByItsNameWhileItLives) {
    auto const set_unknown = [] { DiagnosticChannel::setEnabledSeverities("nobody", 4); };
    {
        DiagnosticChannel first("test");
        DiagnosticChannel second("test::more");
        DiagnosticChannel::setEnabledSeverities("test", 8);
        EXPECT_TRUE(first.isEnabled(Severity::changes));
        EXPECT_FALSE(first.isEnabled(Severity::details) || second.isEnabled(Severity::changes));
        auto const text = error_text<std::invalid_argument>(set_unknown);
        EXPECT_THAT(text, HasSubstr("there is no diagnostic channel \"nobody\", only "));
        EXPECT_THAT(text, HasSubstr("\"test::more\", \"test\""));
        EXPECT_THAT(text, HasSubstr("\"install::cpputil::InputFileParser\""));
    }
    EXPECT_THAT(error_text<std::invalid_argument>(set_unknown), ::testing::Not(HasSubstr("test")));
}

}  // namespace
}  // namespace install::cpputil
