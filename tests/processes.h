#pragma once

// Child processes and signals for tests.

#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <thread>

#include "tests/files.h"

namespace install::cpputil::tests {

/// The number of signals received since the last call of `with_signals`.
inline std::atomic<int> signal_count = 0;

inline void await_signals(int count) {
    while (signal_count < count) {
        std::this_thread::yield();
    }
}

/// Sends the process a signal every five milliseconds, which interrupts system calls.
[[nodiscard]] inline Undo with_signals() {
    signal_count = 0;
    struct sigaction action = {}, earlier = {};
    action.sa_handler = [](int) { ++signal_count; };
    ::sigaction(SIGALRM, &action, &earlier);
    ::ualarm(5'000, 5'000);
    return {nullptr, [=](void*) {
                ::ualarm(0, 0);
                ::sigaction(SIGALRM, &earlier, nullptr);
            }};
}

/// Forks a child that runs \p work and exits with status 1 if an expectation failed. The system
/// kills a child that runs for five minutes.
inline pid_t start_child(std::function<void()> const& work) noexcept {
    std::fflush(stdout);  // Otherwise, std::exit in the child would write the buffered text again.
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(300);
        work();
        ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

/// Waits until \p child exits, and returns its wait status.
inline int status_of(pid_t child) {
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

}  // namespace install::cpputil::tests
