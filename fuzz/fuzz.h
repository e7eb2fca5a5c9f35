#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

/// Aborts if a property does not hold, so that the fuzzer reports the input.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// Returns `what()` of the exception of type \p Error that \p call throws, or an empty string.
template <typename Error, typename Call>
std::string error_of(Call call) {
    try {
        call();
        return {};
    } catch (Error const& error) {
        return error.what();
    }
}
