#pragma once

#include <pthread.h>

#include <atomic>
#include <mutex>

#include "platform/internal/thread_annotations.h"
#include "platform/internal/wait.h"

namespace install::cpputil {

/// A mutex for library-wide state. The mutex survives fork and process exit.
///
/// Instances have static storage duration and are `constinit`, so that they can be locked before
/// the library's constructors have run and after its destructors. A registered instance can be
/// locked in the child of a fork, even if another thread held it in the parent.
class CAPABILITY LibraryMutex {
public:
    /// The lock order: a thread that holds a mutex of one rank locks only mutexes of later ranks.
    enum class Rank { installation_log, install_root, channel_registry, user_names };

    explicit constexpr LibraryMutex(Rank rank) noexcept : rank_(rank) {}
    LibraryMutex(LibraryMutex const&) = delete;
    LibraryMutex& operator=(LibraryMutex const&) = delete;

    /// Returns whether the calling thread holds the mutex.
    bool isMine() const noexcept {
        return owner_.load(std::memory_order_relaxed) == ::pthread_self();
    }

    /// Locks the mutex. The calling thread must not hold it.
    /// \throws std::system_error if the mutex cannot be locked
    void lock() ACQUIRE();

    /// Locks the mutex unless another thread holds it until \p deadline. Returns false at once if
    /// the calling thread holds it, e.g. if a sink of the logging core calls exit.
    bool lockUntil(TimePoint deadline) noexcept TRY_ACQUIRE(true);

    void unlock() noexcept RELEASE();

    /// Holds a mutex for a scope. Does nothing if the calling thread already holds it.
    class SCOPED_CAPABILITY Lock {
    public:
        /// \throws std::system_error if the mutex cannot be locked
        explicit Lock(LibraryMutex& mutex) ACQUIRE(mutex);
        Lock(Lock const&) = delete;
        Lock& operator=(Lock const&) = delete;
        ~Lock() RELEASE();

    private:
        // Null if the thread already held the mutex.
        LibraryMutex* const locked_;
    };

    /// Locks \p mutex around every fork until the library is unloaded. fork waits up to a second in
    /// total, and skips mutexes that its own thread holds.
    class ForkRegistration {
    public:
        explicit ForkRegistration(LibraryMutex& mutex) noexcept;
    };

private:
    static constexpr pthread_t no_thread = 0;

    // The analysis does not follow a list of mutexes.
    static void beforeFork() noexcept NO_THREAD_SAFETY_ANALYSIS;
    static void afterForkInParent() noexcept NO_THREAD_SAFETY_ANALYSIS;
    static void afterForkInChild() noexcept;

    std::mutex mutex_;
    std::atomic<pthread_t> owner_{no_thread};
    // The thread that holds the mutex for the duration of a fork.
    std::atomic<pthread_t> forkOwner_{no_thread};
    Rank const rank_;
    // The next registered mutex, of the same or a later rank.
    LibraryMutex* next_ = nullptr;
};

}  // namespace install::cpputil
