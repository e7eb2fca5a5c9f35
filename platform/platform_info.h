#pragma once

#include <sys/types.h>

#include <ctime>
#include <mutex>
#include <optional>
#include <string>

#include "export.h"

namespace install::cpputil {

/// Facts about the user and the clock of this machine. Narrow texts are UTF-8.
///
/// \par Thread safety
///     Several threads may use one object. The time functions read the process's time zone, the
///     user name the user database; both may run on several threads at once.
class INSTALL_CPPUTIL_EXPORT PlatformInfo {
public:
    /// Returns the effective user's name in the user database; empty when there is none. The object
    /// keeps the name until the effective user changes, since the database may be a directory
    /// server behind the network.
    std::string userName() const;

    /// Returns the current local time in the form of \p pattern, as `formatTime` does.
    std::string currentTime(std::string const& pattern) const;

    /// Returns \p time as local time in the form of \p pattern, a pattern of strftime. Names of
    /// months and days are English whatever the process's locale.
    /// \throws std::system_error if \p time has no local time
    /// \throws std::invalid_argument if \p pattern holds a NUL
    static std::string formatTime(std::time_t time, std::string const& pattern);

private:
    mutable std::mutex mutex_;
    // Whose name is kept, if anyone's. Both are guarded by mutex_.
    mutable std::optional<uid_t> user_;
    mutable std::string userName_;
};

}  // namespace install::cpputil
