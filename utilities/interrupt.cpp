#include "utilities/interrupt.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <initializer_list>
#include <thread>

#include "platform/internal/library_channel.h"

namespace install::cpputil::interrupt {
namespace {

static_assert(std::atomic<bool>::is_always_lock_free);

constinit std::atomic<bool> flag = false;

constinit LibraryChannel channel;
LibraryChannel::Lifetime const channel_lifetime(channel, "install::cpputil::interrupt");

void write_or_drop(Severity severity,
                   std::initializer_list<LibraryChannel::Piece> pieces) noexcept {
    try {
        channel.write(severity, pieces);
    } catch (...) {
        // The callers are noexcept, and the flag must work even if a sink throws.
    }
}

// Not inlined into the functions that load the flag, so that these need no stack frame.
[[gnu::noinline, gnu::cold]] void record_raised_flag() noexcept {
    write_or_drop(Severity::details, {" interruptStatus=", true});
}

[[noreturn, gnu::noinline, gnu::cold]] void throw_exception(std::string const& tag) {
    if (tag.empty()) {
        channel.write(Severity::changes, {"Throw interrupt::Exception with DEFAULT tag."});
        throw Exception();
    }
    channel.write(Severity::changes, {"Throw interrupt::Exception tag ", tag});
    throw Exception(tag);
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
        record_raised_flag();
    }
    return status;
}

void throw_if_set(std::string const& tag) {
    if (is_set()) {
        throw_exception(tag);
    }
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
    constexpr int checks_in_a_minute = 600;
    auto const tag = std::string("env ") + name + " is set.";
    channel.write(Severity::changes, {tag, " Waiting 1 minute for interrupt..."});
    for (int count = 0; count != checks_in_a_minute; ++count) {
        throw_if_set(tag);
        // Signals do not shorten this sleep.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace test
}  // namespace install::cpputil::interrupt
