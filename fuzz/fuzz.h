#pragma once

#include <algorithm>
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

/// The input's first line, and what follows it.
inline std::pair<std::string, std::string> halves_of(std::uint8_t const* data, std::size_t size) {
    auto const text = text_of(data, size);
    auto const half = std::min(text.find('\n'), size);
    return {text.substr(0, half), text.substr(std::min(half + 1, size))};
}

/// The text of the exception of type \p Error that \p call throws; empty without one.
template <typename Error, typename Call>
std::string error_of(Call call) {
    try {
        call();
        return {};
    } catch (Error const& error) {
        return error.what();
    }
}
