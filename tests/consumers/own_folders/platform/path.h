#pragma once

#include <string>

namespace own {

/// Converts an ASCII path.
inline std::u16string to_utf16(std::string const& path) {
    return {path.begin(), path.end()};
}

}  // namespace own
