#include "benchmarks/atomic_load.h"

#include <atomic>

namespace {

std::atomic<bool> flag = false;

}  // namespace

bool load_flag() noexcept {
    return flag.load();
}
