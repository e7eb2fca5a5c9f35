#include "utilities/interrupt.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/support.h"

namespace install::cpputil::interrupt {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Record = Records::value_type;
using std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr char const* variable = "INSTALL_CPPUTIL_TEST_PAUSE";
constexpr char const* channel_name = "install::cpputil::interrupt";

class Interrupt : public ::testing::Test {
protected:
    ~Interrupt() override { detail::unset(); }

    RecordSink sink_{channel_name};
};

std::string thrown(std::string const& tag) {
    return error_text<Exception>([&] { throw_if_set(tag); });
}

TEST_F(Interrupt, StopsWorkWhileTheFlagIsRaised) {
    EXPECT_FALSE(is_set());
    throw_if_set();
    throw_if_set("tag");
    detail::unset();
    EXPECT_THAT(sink_.take(), ElementsAre(Record{8, "Unset INTERRUPT."}));
    set();
    set();
    EXPECT_TRUE(is_set());
    EXPECT_THAT(sink_.take(), ElementsAre(Record{8, "Set INTERRUPT."}, Record{8, "Set INTERRUPT."},
                                          Record{4, " interruptStatus=true"}));
    EXPECT_EQ(error_text<Exception>([] { throw_if_set(); }), "Interrupted.");
    EXPECT_EQ(thrown("unpacking"), "Interrupted. unpacking");
    EXPECT_THAT(sink_.take(), ElementsAre(Record{4, " interruptStatus=true"},
                                          Record{8, "Throw interrupt::Exception with DEFAULT tag."},
                                          Record{4, " interruptStatus=true"},
                                          Record{8, "Throw interrupt::Exception tag unpacking"}));
    DiagnosticChannel::setEnabledSeverities(channel_name, 4);
    EXPECT_EQ(thrown("again"), "Interrupted. again");
    EXPECT_THAT(sink_.take(), ElementsAre(Record{4, " interruptStatus=true"}));
    detail::unset();
    EXPECT_FALSE(is_set());
    EXPECT_STREQ(Exception("").what(), "Interrupted. ");
}

TEST_F(Interrupt, WorksWhileASinkThrows) {
    struct Thrower
        : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
        void consume(boost::log::record_view const&) { throw std::logic_error("sink"); }
    };
    using Sink = boost::log::sinks::synchronous_sink<Thrower>;
    auto const sink = boost::make_shared<Sink>(boost::make_shared<Thrower>());
    boost::log::core::get()->add_sink(sink);
    set();
    EXPECT_TRUE(is_set());
    EXPECT_EQ(error_text<std::logic_error>([] { throw_if_set(); }), "sink");
    EXPECT_EQ(error_text<std::logic_error>([] { throw_if_set("tag"); }), "sink");
    ScopedVariable const present(variable, "1");
    EXPECT_EQ(error_text<std::logic_error>([] { test::pause_and_throw_if_set(variable); }), "sink");
    detail::unset();
    EXPECT_FALSE(is_set());
    boost::log::core::get()->remove_sink(sink);
}

TEST_F(Interrupt, PauseEndsWhenTheFlagIsRaised) {
    ::unsetenv(variable);
    set();
    sink_.take();
    test::pause_and_throw_if_set(variable);
    EXPECT_THAT(sink_.take(), IsEmpty());

    ScopedVariable const set_to_nothing(variable, "");
    auto const pause = [] { test::pause_and_throw_if_set(variable); };
    auto const tag = std::string("env ") + variable + " is set.";
    EXPECT_EQ(error_text<Exception>(pause), "Interrupted. " + tag);
    EXPECT_THAT(sink_.take(), ElementsAre(Record{8, tag + " Waiting 1 minute for interrupt..."},
                                          Record{4, " interruptStatus=true"},
                                          Record{8, "Throw interrupt::Exception tag " + tag}));
    detail::unset();
    // The best of three, since other work may hold up the machine.
    auto shortest = steady_clock::duration::max();
    auto shortest_when_raised = shortest;
    for (int round = 0; round != 3; ++round) {
        auto const start = steady_clock::now();
        std::thread raiser([] {
            std::this_thread::sleep_for(450ms);
            set();
        });
        EXPECT_EQ(error_text<Exception>(pause), "Interrupted. " + tag);
        shortest = std::min(shortest, steady_clock::now() - start);
        raiser.join();
        auto const again = steady_clock::now();
        EXPECT_THROW(pause(), Exception);
        shortest_when_raised = std::min(shortest_when_raised, steady_clock::now() - again);
        detail::unset();
    }
    EXPECT_GE(shortest, 450ms);
    EXPECT_LT(shortest, 900ms);
    EXPECT_LT(shortest_when_raised, 90ms);
}

TEST_F(Interrupt, PauseLastsAMinuteWhateverSignalsCome) {
    ScopedVariable const present(variable, "1");
    std::optional<FrequentSignals> signals(std::in_place);
    auto const start = steady_clock::now();
    test::pause_and_throw_if_set(variable);
    auto const paused = steady_clock::now() - start;
    signals.reset();
    EXPECT_GT(FrequentSignals::count, 1000);
    EXPECT_GE(paused, 60s);
    EXPECT_LT(paused, 70s);
    EXPECT_THAT(sink_.take(), ::testing::SizeIs(1));
}

}  // namespace
}  // namespace install::cpputil::interrupt
