#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <mutex>

namespace install::cpputil {

/// A mutex that guards state of the whole library, with support for fork and the end of the process.
///
/// Instances have static storage duration and are `constinit`, so that they can be locked before
/// the library's constructors have run and after its destructors. An instance that is registered
/// can be locked in the child of a fork, even if another thread held it in the parent.
///
/// Not recursive. Satisfies the standard's BasicLockable requirements.
class ProcessMutex {
public:
    /// The lock order: a thread that holds a mutex of one rank locks only mutexes of later ranks.
    enum class Rank { installation_log, install_root, channel_registry, user_names };

    explicit constexpr ProcessMutex(Rank rank) noexcept : rank_(rank) {}
    ProcessMutex(ProcessMutex const&) = delete;
    ProcessMutex& operator=(ProcessMutex const&) = delete;

    /// \throws std::system_error if the mutex cannot be locked
    void lock() {
        mutex_.lock();
        owner_.store(::pthread_self(), std::memory_order_relaxed);
    }

    void unlock() noexcept {
        owner_.store(no_thread, std::memory_order_relaxed);
        mutex_.unlock();
    }

    /// Locks the mutex, but waits at most a second, because the end of the process must not block for
    /// ever. Returns false if another thread holds the mutex for longer. Returns false at once if the
    /// calling thread holds it, which happens if a sink of the logging core calls exit.
    bool lockBriefly() noexcept;

    /// Returns whether the calling thread holds the mutex.
    bool isMine() const noexcept {
        return owner_.load(std::memory_order_relaxed) == ::pthread_self();
    }

    /// Locks \p mutex around every fork until the library is unloaded. A fork waits at most a second
    /// for all registered mutexes together, and not for a mutex that its thread holds.
    class ForkRegistration {
    public:
        explicit ForkRegistration(ProcessMutex& mutex) noexcept;
    };

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr pthread_t no_thread = 0;

    bool lockUntil(TimePoint deadline) noexcept;

    static void beforeFork() noexcept;
    static void afterForkInParent() noexcept;
    static void afterForkInChild() noexcept;

    std::mutex mutex_;
    std::atomic<pthread_t> owner_{no_thread};
    // The thread that holds the mutex for the duration of a fork.
    std::atomic<pthread_t> forkOwner_{no_thread};
    Rank const rank_;
    // The next registered mutex, of the same or a later rank.
    ProcessMutex* next_ = nullptr;
};

}  // namespace install::cpputil
