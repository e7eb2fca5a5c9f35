#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace install::cpputil {

/// Storage for an object that exists from the load of the library to its unload.
///
/// The storage is `constinit` and has no destructor, so that a thread that calls the library while
/// the process ends can still check whether the object exists.
///
/// \par Thread safety
///     As for a pointer: the mutex that guards the object guards its storage, too.
template <typename Object>
class LibraryStorage {
public:
    constexpr LibraryStorage() noexcept = default;
    LibraryStorage(LibraryStorage const&) = delete;
    LibraryStorage& operator=(LibraryStorage const&) = delete;

    /// Returns the object; null before `create` and after `destroy`.
    Object* get() const noexcept { return object_; }

    void create() { object_ = new (bytes_) Object(); }
    void destroy() noexcept { std::exchange(object_, nullptr)->~Object(); }

private:
    alignas(Object) std::byte bytes_[sizeof(Object)] = {};
    Object* object_ = nullptr;
};

}  // namespace install::cpputil
