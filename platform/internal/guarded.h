#pragma once

#include <atomic>
#include <cstddef>
#include <new>

#include "platform/internal/library_mutex.h"

namespace install::cpputil {

/// An object that threads share, from library load to unload, with the mutex that guards it. The
/// object is accessible only through an `Access`.
///
/// Instances are `constinit` and have no destructor, so that a thread that calls the library during
/// process exit can still check whether the object exists.
template <typename Object>
class Guarded {
public:
    explicit constexpr Guarded(LibraryMutex& mutex) noexcept : mutex_(mutex) {}
    Guarded(Guarded const&) = delete;
    Guarded& operator=(Guarded const&) = delete;

    /// Returns whether the destruction of the object has begun. Needs no lock.
    bool hasEnded() const noexcept { return hasEnded_; }

    class Lifetime;
    class Access;

private:
    LibraryMutex& mutex_;
    std::atomic<bool> hasEnded_ = false;
    // Null before the lifetime begins. Not to be used once hasEnded_ is set.
    Object* object_ GUARDED_BY(mutex_) = nullptr;
    alignas(Object) std::byte storage_[sizeof(Object)] = {};
};

/// Creates the object and protects its mutex in forks. The destructor waits for an access in
/// progress until `exit_deadline`. If the access takes longer, or belongs to this thread because a
/// sink has called exit, the object is still in use and is not destroyed.
template <typename Object>
class Guarded<Object>::Lifetime {
public:
    explicit Lifetime(Guarded& guarded) : guarded_(guarded), registration_(guarded.mutex_) {
        LibraryMutex::Lock const lock(guarded.mutex_);
        guarded.object_ = new (guarded.storage_) Object();
    }
    Lifetime(Lifetime const&) = delete;
    Lifetime& operator=(Lifetime const&) = delete;
    ~Lifetime() {
        guarded_.hasEnded_ = true;
        if (guarded_.mutex_.lockUntil(exit_deadline())) {
            guarded_.object_->~Object();
            guarded_.mutex_.unlock();
        }
    }

private:
    Guarded& guarded_;
    LibraryMutex::ForkRegistration registration_;
};

/// Exclusive access to the object for a scope. Converts to false if the object does not exist.
template <typename Object>
class SCOPED_CAPABILITY Guarded<Object>::Access {
public:
    /// \throws std::system_error if the mutex cannot be locked
    explicit Access(Guarded& guarded) ACQUIRE(guarded.mutex_)
        : lock_(guarded.mutex_), object_(guarded.hasEnded_ ? nullptr : guarded.object_) {}
    Access(Access const&) = delete;
    Access& operator=(Access const&) = delete;
    ~Access() RELEASE() = default;

    explicit operator bool() const noexcept { return object_ != nullptr; }
    Object& operator*() const noexcept { return *object_; }
    Object* operator->() const noexcept { return object_; }

private:
    LibraryMutex::Lock const lock_;
    Object* const object_;
};

}  // namespace install::cpputil
