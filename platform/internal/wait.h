#pragma once

#include <chrono>
#include <thread>

#include "platform/internal/cancellation_guard.h"

namespace install::cpputil {

using TimePoint = std::chrono::steady_clock::time_point;

inline TimePoint in_a_second() noexcept {
    return std::chrono::steady_clock::now() + std::chrono::seconds(1);
}

/// Returns the time at which the library's destructors stop waiting for other threads: a second
/// after the first call.
TimePoint exit_deadline() noexcept;

/// Waits until \p condition returns true. Returns false if it has not done so by \p deadline.
///
/// Polls: in a busy log, other threads lock the mutex again before a thread that waits for a timed
/// mutex wakes up. With 16 threads that log, polling let a fork through after 0.3 to 0.8 ms
/// (medians), and a timed mutex after 64 to 196 ms. With the latter, 4 of 180 forks waited for more
/// than a second.
template <typename Condition>
bool wait_until(TimePoint deadline, Condition condition) noexcept {
    CancellationGuard const uncancelled;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    return true;
}

}  // namespace install::cpputil
