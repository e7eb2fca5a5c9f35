#pragma once

/// \file
/// The user's name and the local time.

#include <ctime>
#include <string>

#include "export.h"

namespace install::cpputil {

/// The user's name and the local time. All strings are UTF-8.
///
/// \par Thread safety
///     Every function may be called from any thread at any time. The time functions read the time
///     zone from the environment, which no other thread may change at the same time.
class INSTALL_CPPUTIL_EXPORT PlatformInfo {
public:
    /// Returns the name of the effective user, or an empty string if it is not known. A name that
    /// is not UTF-8 or contains "/" counts as not known. The library caches the name until the
    /// effective user changes, because the lookup may query a directory server. If the user
    /// database cannot be queried, returns the user's last known name.
    std::string userName() const;

    /// Returns the current local time formatted with \p pattern, as `formatTime` does.
    static std::string currentTime(std::string const& pattern);

    /// Returns \p time as local time formatted with \p pattern, a pattern of strftime. Names of
    /// months and days are English in every locale.
    /// \throws std::system_error if \p time cannot be converted to local time
    /// \throws std::invalid_argument if \p pattern contains a NUL
    static std::string formatTime(std::time_t time, std::string const& pattern);
};

}  // namespace install::cpputil
