#include "platform/internal/library_mutex.h"

#include <memory>
#include <type_traits>

namespace install::cpputil {
namespace {

static_assert(std::is_trivially_destructible_v<LibraryMutex>);

/// The registered mutexes in lock order. Changed only by static constructors.
constinit LibraryMutex* first_mutex = nullptr;

}  // namespace

void LibraryMutex::lock() {
    mutex_.lock();
    owner_.store(::pthread_self(), std::memory_order_relaxed);
}

bool LibraryMutex::lockUntil(TimePoint deadline) noexcept {
    if (isMine() || !wait_until(deadline, [this] { return mutex_.try_lock(); })) {
        return false;
    }
    owner_.store(::pthread_self(), std::memory_order_relaxed);
    return true;
}

void LibraryMutex::unlock() noexcept {
    owner_.store(no_thread, std::memory_order_relaxed);
    mutex_.unlock();
}

LibraryMutex::Lock::Lock(LibraryMutex& mutex) : locked_(mutex.isMine() ? nullptr : &mutex) {
    if (locked_ != nullptr) {
        locked_->lock();
    }
}

LibraryMutex::Lock::~Lock() {
    if (locked_ != nullptr) {
        locked_->unlock();
    }
}

LibraryMutex::ForkRegistration::ForkRegistration(LibraryMutex& mutex) noexcept {
    if (first_mutex == nullptr) {
        // The C library removes the handlers when the library is unloaded. If registration fails
        // (out of memory), forks are unprotected.
        static_cast<void>(::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild));
    }
    auto** link = &first_mutex;
    while (*link != nullptr && (*link)->rank_ < mutex.rank_) {
        link = &(*link)->next_;
    }
    mutex.next_ = *link;
    *link = &mutex;
}

void LibraryMutex::beforeFork() noexcept {
    auto const deadline = in_a_second();
    for (auto* mutex = first_mutex; mutex != nullptr; mutex = mutex->next_) {
        if (mutex->lockUntil(deadline)) {
            mutex->forkOwner_.store(::pthread_self());
        }
    }
}

void LibraryMutex::afterForkInParent() noexcept {
    for (auto* mutex = first_mutex; mutex != nullptr; mutex = mutex->next_) {
        if (mutex->forkOwner_.load() == ::pthread_self()) {
            mutex->forkOwner_.store(no_thread);
            mutex->unlock();
        }
    }
}

void LibraryMutex::afterForkInChild() noexcept {
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
