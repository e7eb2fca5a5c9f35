#pragma once

/// Exports a class or function. The library is built with hidden visibility, and its version script
/// exports nothing outside the namespace install::cpputil.
#define INSTALL_CPPUTIL_EXPORT __attribute__((visibility("default")))

/// Gives each program and each library its own copy of an inline variable. Without it, g++ emits a
/// symbol that is unique in the process, and a plugin that contains one stays loaded after dlclose.
#define INSTALL_CPPUTIL_LOCAL __attribute__((visibility("hidden")))
