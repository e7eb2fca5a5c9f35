#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

/// Ends the process, which makes the fuzzer report the input, if a property does not hold.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// Returns the text of the exception of type \p Error that \p call throws, or an empty text.
template <typename Error, typename Call>
std::string error_of(Call call) {
    try {
        call();
        return {};
    } catch (Error const& error) {
        return error.what();
    }
}
