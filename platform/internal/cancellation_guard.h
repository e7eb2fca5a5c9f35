#pragma once

#include <pthread.h>

namespace install::cpputil {

/// Defers cancellation of the calling thread while the guard exists.
///
/// Cancellation unwinds the stack from inside a system call. This terminates the process if a
/// calling function is `noexcept`, and can leave a system library in an unknown state.
class CancellationGuard {
public:
    CancellationGuard() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &earlier_); }
    CancellationGuard(CancellationGuard const&) = delete;
    CancellationGuard& operator=(CancellationGuard const&) = delete;
    ~CancellationGuard() { ::pthread_setcancelstate(earlier_, nullptr); }

private:
    int earlier_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace install::cpputil
