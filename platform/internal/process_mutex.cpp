#include "platform/internal/process_mutex.h"

#include <memory>
#include <thread>
#include <type_traits>

#include "platform/internal/cancellation_guard.h"

namespace install::cpputil {
namespace {

static_assert(std::is_trivially_destructible_v<ProcessMutex>);

/// The registered mutexes in lock order. Changed only by static constructors.
constinit ProcessMutex* first_mutex = nullptr;

std::chrono::steady_clock::time_point in_a_second() noexcept {
    return std::chrono::steady_clock::now() + std::chrono::seconds(1);
}

}  // namespace

bool ProcessMutex::lockBriefly() noexcept {
    return lockUntil(in_a_second());
}

bool ProcessMutex::lockUntil(TimePoint deadline) noexcept {
    if (isMine()) {
        return false;
    }
    CancellationGuard const uncancelled;
    // Not a timed mutex: ThreadSanitizer does not know all of the system's functions that it calls. The
    // sleep is short, because a thread that logs without a pause unlocks the mutex only for moments.
    while (!mutex_.try_lock()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    owner_.store(::pthread_self(), std::memory_order_relaxed);
    return true;
}

ProcessMutex::ForkRegistration::ForkRegistration(ProcessMutex& mutex) noexcept {
    if (first_mutex == nullptr) {
        // The C library removes the handlers when the library is unloaded. If there is no memory for
        // them, forks are not guarded.
        static_cast<void>(::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild));
    }
    auto** link = &first_mutex;
    while (*link != nullptr && (*link)->rank_ < mutex.rank_) {
        link = &(*link)->next_;
    }
    mutex.next_ = *link;
    *link = &mutex;
}

void ProcessMutex::beforeFork() noexcept {
    auto const deadline = in_a_second();
    for (auto* mutex = first_mutex; mutex != nullptr; mutex = mutex->next_) {
        if (mutex->lockUntil(deadline)) {
            mutex->forkOwner_.store(::pthread_self());
        }
    }
}

void ProcessMutex::afterForkInParent() noexcept {
    for (auto* mutex = first_mutex; mutex != nullptr; mutex = mutex->next_) {
        if (mutex->forkOwner_.load() == ::pthread_self()) {
            mutex->forkOwner_.store(no_thread);
            mutex->unlock();
        }
    }
}

void ProcessMutex::afterForkInChild() noexcept {
    afterForkInParent();
    for (auto* mutex = first_mutex; mutex != nullptr; mutex = mutex->next_) {
        if (!mutex->isMine()) {
            // The thread that held the mutex for too long does not exist in the child.
            std::construct_at(&mutex->mutex_);
            mutex->owner_.store(no_thread);
            mutex->forkOwner_.store(no_thread);
        }
    }
}

}  // namespace install::cpputil
