#pragma once

#include <string>

#include "../platform/export.h"

namespace install::cpputil::installer_locale {

/// Returns the name of the locale that the system is set to for messages: language, "_" and region,
/// such as "en_US", in UTF-16. The "_" is there even where a part is missing. Reads the settings
/// LC_ALL, LC_MESSAGES and LANG afresh at every call; `SystemLocaleService` tells how.
/// \throws TextConversionError if the setting is not UTF-8
/// \par Thread safety
///     May be called from any thread while no thread changes the environment.
INSTALL_CPPUTIL_EXPORT std::u16string getLocale();

}  // namespace install::cpputil::installer_locale
