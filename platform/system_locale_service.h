#pragma once

/// \file
/// The system's locale, read from the environment.

#include <string>

#include "export.h"

namespace install::cpputil {

/// The system's locale for one category. The constructor reads it from the environment.
///
/// The locale is the value of the first of LC_ALL, the category's own variable (LC_MESSAGES) and
/// LANG that is set and not empty. It has the form "language_REGION.codeset@modifier"; every part
/// is optional. "C", "POSIX" and a missing value mean the language "en" and the region "US".
///
/// \par Thread safety
///     Objects may be created on several threads at once, provided that no thread changes the
///     environment.
class INSTALL_CPPUTIL_EXPORT SystemLocaleService {
public:
    /// The categories of a locale.
    enum class Category : int {
        messages = 1,  ///< the language of messages
    };

    /// Reads the system's setting for \p category.
    explicit SystemLocaleService(Category category);

    /// Returns the language, e.g. "en"; may be empty.
    std::string const& language() const noexcept { return language_; }

    /// Returns the region, e.g. "US"; may be empty.
    std::string const& region() const noexcept { return region_; }

private:
    std::string language_;
    std::string region_;
};

}  // namespace install::cpputil
