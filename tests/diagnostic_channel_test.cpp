#include "platform/diagnostic_channel.h"

#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <thread>

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

TEST(DiagnosticChannel, WritesWhatItsMaskAndTheCoreLetThrough) {
    DiagnosticChannel channel("test");
    RecordSink sink("test", 0);
    auto const write_both = [&] {
        channel.write(Severity::details, {"details"});
        channel.write(Severity::changes, {"changes"});
        return sink.take();
    };
    EXPECT_THAT(write_both(), IsEmpty());
    DiagnosticChannel::setEnabledSeverities("test", 4);
    EXPECT_THAT(write_both(), ElementsAre(Record{4, "details"}));
    DiagnosticChannel::setEnabledSeverities("test", 8 | 1);
    EXPECT_THAT(write_both(), ElementsAre(Record{8, "changes"}));

    DiagnosticChannel::setEnabledSeverities("test", 4 | 8);
    boost::log::core::get()->set_logging_enabled(false);
    EXPECT_THAT(write_both(), IsEmpty());
    channel.write(Severity::details, {u"\xD800"});  // a piece that would not pass is not looked at
    boost::log::core::get()->set_logging_enabled(true);
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

TEST(DiagnosticChannel, MayBeSwitchedWhileOthersWrite) {
    DiagnosticChannel channel("test");
    RecordSink sink("test");
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        for (bool last = false; !last;) {
            last = stop;
            channel.write(Severity::details, {"from one thread ", u"16", true});
        }
    });
    for (unsigned round = 0; round != 2000; ++round) {
        DiagnosticChannel::setEnabledSeverities("test", round % 2 == 0 ? 8 : 4 | 8);
        channel.write(Severity::changes, {"from the other ", u"16", false});
    }
    stop = true;
    writer.join();
    auto const records = sink.take();
    EXPECT_THAT(
        std::set<Record>(records.begin(), records.end()),
        ElementsAre(Record{4, "from one thread 16true"}, Record{8, "from the other 16false"}));
}

}  // namespace
}  // namespace install::cpputil
