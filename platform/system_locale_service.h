#pragma once

#include <string>

#include "export.h"

namespace install::cpputil {

/// The locale that the system is set to, for one category: a value, read from the process
/// environment when it is made and not changed after.
///
/// The setting is that of the environment variable LC_ALL, else the category's own (LC_MESSAGES),
/// else LANG: the first that is set and not empty. It has the form
/// "language_REGION.codeset@modifier", of which any part may be missing. "C", "POSIX" and no
/// setting at all stand for the language "en" and the region "US".
///
/// \par Thread safety
///     Objects may be made on several threads at once, while no thread changes the environment.
class INSTALL_CPPUTIL_EXPORT SystemLocaleService {
public:
    /// What a locale is asked for.
    enum class Category : int {
        messages = 1,  ///< the language of messages
    };

    /// Reads the system's setting for \p category.
    explicit SystemLocaleService(Category category);

    /// Returns the language as it is set, such as "en"; may be empty.
    std::string const& language() const noexcept { return language_; }

    /// Returns the region as it is set, such as "US"; may be empty.
    std::string const& region() const noexcept { return region_; }

private:
    std::string language_;
    std::string region_;
};

}  // namespace install::cpputil
