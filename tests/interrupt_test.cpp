#include "utilities/interrupt.h"

#include <chrono>

#include "platform/platform_info.h"
#include "tests/processes.h"
#include "tests/record_sink.h"
#include "utilities/input_file_parser.h"
#include "utilities/logger.h"

namespace install::cpputil::interrupt {
namespace {

using namespace tests;
using std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr char const* variable = "INSTALL_CPPUTIL_TEST_PAUSE";
constexpr char const* channel_name = "install::cpputil::interrupt";
std::string const tag = std::string("env ") + variable + " is set.";

class Interrupt : public ::testing::Test {
protected:
    ~Interrupt() override { detail::unset(); }

    RecordSink sink_{channel_name};
};

constexpr auto throw_default = [] { throw_if_set(); };
constexpr auto throw_tagged = [] { throw_if_set("tag"); };
constexpr auto pause = [] { test::pause_and_throw_if_set(variable); };

TEST_F(Interrupt, DoesNothingWhileTheFlagIsLowered) {
    EXPECT_FALSE(is_set());
    throw_default();
    throw_tagged();
    detail::unset();
    auto const absent = with_variable(variable, std::nullopt);
    pause();
    EXPECT_THAT(sink_.take(), ElementsAre("8:Unset INTERRUPT."));
}

TEST_F(Interrupt, ThrowsWhileTheFlagIsRaised) {
    set();
    set();
    EXPECT_TRUE(is_set());
    constexpr auto reading = "4: interruptStatus=true", raised = "8:Set INTERRUPT.";
    EXPECT_THAT(sink_.take(), ElementsAre(raised, raised, reading));
    EXPECT_EQ(error_text<Exception>(throw_default), "Interrupted.");
    EXPECT_EQ(error_text<Exception>(throw_tagged), "Interrupted. tag");
    EXPECT_THAT(sink_.take(), ElementsAre(reading, "8:Throw interrupt::Exception with DEFAULT tag.",
                                          reading, "8:Throw interrupt::Exception tag tag"));
    detail::unset();
    EXPECT_FALSE(is_set());
    EXPECT_STREQ(Exception("").what(), "Interrupted. ");
}

TEST_F(Interrupt, WorksWhileASinkThrows) {
    auto const present = with_variable(variable, "1");
    sink_.callForEach([](std::string const&) { throw std::logic_error("sink"); });
    set();
    EXPECT_TRUE(is_set());
    EXPECT_EQ(error_text<std::logic_error>(throw_default), "sink");
    EXPECT_EQ(error_text<std::logic_error>(throw_tagged), "sink");
    detail::unset();
    EXPECT_EQ(error_text<std::logic_error>(pause), "sink");
    EXPECT_FALSE(is_set());
}

TEST_F(Interrupt, ChangesTheFlagBeforeItsRecord) {
    DiagnosticChannel::setEnabledSeverities(channel_name, 8);  // Not the record of is_set.
    sink_.callForEach([](std::string const& record) {
        EXPECT_EQ(is_set(), record == "8:Set INTERRUPT.") << record;
    });
    set();
    detail::unset();
}

// The sink uses the library, so that cancellation guards are nested.
TEST_F(Interrupt, IsACancellationPointInAPauseButNotInARecord) {
    auto const present = with_variable(variable, "1");
    auto const child = [this] {
        sink_.callForEach([](std::string const&) {
            logger::append_message(u"");
            static_cast<void>(PlatformInfo().userName());
            InputFileParser().parse(u"/dev/null");
            ::pthread_testcancel();
        });
        std::thread([] {
            ::pthread_cancel(::pthread_self());
            set();
            detail::unset();
            pause();
            ADD_FAILURE() << "not cancelled";
        }).join();
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
}

TEST_F(Interrupt, PausesUntilTheFlagIsRaised) {
    auto const present = with_variable(variable, "");
    // The shortest of three pauses, because other processes may delay this one.
    auto shortest = steady_clock::duration::max();
    auto shortest_while_raised = shortest;
    for (int round = 0; round != 3; ++round) {
        detail::unset();
        auto const start = steady_clock::now();
        std::thread raiser([] {
            std::this_thread::sleep_for(450ms);
            set();
        });
        EXPECT_THROW(pause(), Exception);
        auto const raised = steady_clock::now();
        sink_.take();
        EXPECT_EQ(error_text<Exception>(pause), "Interrupted. " + tag);
        EXPECT_THAT(sink_.take(), ElementsAre("8:" + tag + " Waiting 1 minute for interrupt...",
                                              "4: interruptStatus=true",
                                              "8:Throw interrupt::Exception tag " + tag));
        shortest_while_raised = std::min(shortest_while_raised, steady_clock::now() - raised);
        shortest = std::min(shortest, raised - start);
        raiser.join();
    }
    EXPECT_GE(shortest, 450ms);
    EXPECT_LT(shortest, 900ms);
    EXPECT_LT(shortest_while_raised, 90ms);
}

TEST_F(Interrupt, PausesForAMinuteDespiteSignals) {
    auto const present = with_variable(variable, "1");
    auto const signals = with_signals();
    auto const start = steady_clock::now();
    pause();
    auto const paused = steady_clock::now() - start;
    EXPECT_GT(signal_count.load(), 1000);
    EXPECT_GE(paused, 60s);
    EXPECT_LT(paused, 70s);
    EXPECT_THAT(sink_.take(), ::testing::SizeIs(1));
}

}  // namespace
}  // namespace install::cpputil::interrupt
