#pragma once

#include <sys/types.h>

#include <ctime>
#include <map>
#include <optional>
#include <string>

#include "export.h"

namespace install::cpputil {

/// The user's name and the local time. Narrow texts are UTF-8.
///
/// \par Thread safety
///     Several threads may use one object. The time functions read the time zone from the environment,
///     which no other thread may change at the same time.
class INSTALL_CPPUTIL_EXPORT PlatformInfo {
public:
    /// A user of this machine. The name is empty if it is not known.
    struct User {
        uid_t id;          ///< the user's number
        std::string name;  ///< the user's name, UTF-8
    };

    /// Returns the effective user. The object caches the name until the effective user changes, because
    /// the database may be a directory server. If the database cannot be queried, returns the user's
    /// last known name.
    User effectiveUser() const;

    /// Returns the name of `effectiveUser`.
    std::string userName() const;

    /// Returns the current local time in the form of \p pattern, as `formatTime` does.
    static std::string currentTime(std::string const& pattern);

    /// Returns \p time as local time in the form of \p pattern, a pattern of strftime. Names of months
    /// and days are English in every locale.
    /// \throws std::system_error if \p time cannot be converted to local time
    /// \throws std::invalid_argument if \p pattern contains a NUL
    static std::string formatTime(std::time_t time, std::string const& pattern);

private:
    // The user whose name was looked up last, and the known names. One mutex guards them in all
    // objects: an object can be used in the child of a fork, because the library locks that mutex
    // around every fork.
    mutable std::optional<uid_t> current_;
    mutable std::map<uid_t, std::string> names_;
};

}  // namespace install::cpputil
