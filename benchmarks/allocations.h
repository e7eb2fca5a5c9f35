#pragma once

#include <cstddef>

/// Returns how often this process has allocated memory through operator new.
std::size_t allocations() noexcept;
