#include "utilities/interrupt.h"

#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <initializer_list>

#include "platform/diagnostic_channel.h"

namespace install::cpputil::interrupt {
namespace {

static_assert(std::atomic<bool>::is_always_lock_free);

constinit std::atomic<bool> flag = false;

DiagnosticChannel channel("install::cpputil::interrupt");

void write_or_drop(Severity severity,
                   std::initializer_list<DiagnosticChannel::Piece> pieces) noexcept {
    try {
        channel.write(severity, pieces);
    } catch (...) {
        // The flag must work even where a sink does not, and its callers have no use for the
        // failure.
    }
}

void sleep_tenth_of_a_second() noexcept {
    timespec time = {.tv_sec = 0, .tv_nsec = 100'000'000};
    while (::nanosleep(&time, &time) == -1 && errno == EINTR) {}
}

}  // namespace

Exception::Exception() : std::runtime_error("Interrupted.") {}

Exception::Exception(std::string const& tag) : std::runtime_error("Interrupted. " + tag) {}

Exception::~Exception() = default;

void set() noexcept {
    flag.store(true);
    write_or_drop(Severity::changes, {"Set INTERRUPT."});
}

bool is_set() noexcept {
    bool const status = flag.load();
    if (status) {
        write_or_drop(Severity::details, {" interruptStatus=", status});
    }
    return status;
}

void throw_if_set(std::string const& tag) {
    if (!is_set()) {
        return;
    }
    if (tag.empty()) {
        channel.write(Severity::changes, {"Throw interrupt::Exception with DEFAULT tag."});
        throw Exception();
    }
    channel.write(Severity::changes, {"Throw interrupt::Exception tag ", tag});
    throw Exception(tag);
}

namespace detail {

void unset() noexcept {
    flag.store(false);
    write_or_drop(Severity::changes, {"Unset INTERRUPT."});
}

}  // namespace detail

namespace test {

void pause_and_throw_if_set(char const* name) {
    if (std::getenv(name) == nullptr) {
        return;
    }
    constexpr int tests_in_a_minute = 600;
    auto const tag = std::string("env ") + name + " is set.";
    channel.write(Severity::changes, {tag, " Waiting 1 minute for interrupt..."});
    for (int count = 0; count != tests_in_a_minute; ++count) {
        throw_if_set(tag);
        sleep_tenth_of_a_second();
    }
}

}  // namespace test
}  // namespace install::cpputil::interrupt
