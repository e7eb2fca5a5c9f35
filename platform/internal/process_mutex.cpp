#include "platform/internal/process_mutex.h"

#include <chrono>
#include <memory>
#include <thread>
#include <type_traits>

#include "platform/internal/cancellation_guard.h"

namespace install::cpputil {
namespace {

static_assert(std::is_trivially_destructible_v<ProcessMutex>);

/// The registered mutexes in lock order. Changed only while the library is loaded.
constinit ProcessMutex* first_mutex = nullptr;

}  // namespace

bool ProcessMutex::try_lock() noexcept {
    if (!mutex_.try_lock()) {
        return false;
    }
    owner_.store(::pthread_self(), std::memory_order_relaxed);
    return true;
}

bool ProcessMutex::lockBriefly() noexcept {
    using namespace std::chrono_literals;
    CancellationGuard const uncancelled;
    auto const deadline = std::chrono::steady_clock::now() + 1s;
    while (!try_lock()) {
        if (isMine() || std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
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
    for (auto* mutex = first_mutex; mutex != nullptr; mutex = mutex->next_) {
        if (mutex->lockBriefly()) {
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
