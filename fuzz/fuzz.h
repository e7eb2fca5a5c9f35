#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/// Ends the run, and so reports the input, when a property does not hold.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

inline std::string text_of(std::uint8_t const* data, std::size_t size) {
    return {reinterpret_cast<char const*>(data), size};
}
