#pragma once

/// \file
/// The name of the system's locale.

#include <string>

#include "../platform/export.h"

namespace install::cpputil::installer_locale {

/// Returns the UTF-16 name of the system's locale for messages: language, "_" and region, as in
/// "en_US". The "_" is present even if a part is missing. Reads LC_ALL, LC_MESSAGES and LANG at
/// every call, as described for `SystemLocaleService`.
/// \throws TextConversionError if the value is not UTF-8
/// \par Thread safety
///     May be called from any thread, provided that no thread changes the environment.
INSTALL_CPPUTIL_EXPORT std::u16string getLocale();

}  // namespace install::cpputil::installer_locale
