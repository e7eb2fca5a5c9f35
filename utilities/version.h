#pragma once

/// \file
/// The version of the headers that a program is compiled against, for the preprocessor:
///
///     #if INSTALL_CPPUTIL_VERSION_MAJOR == 2 && INSTALL_CPPUTIL_VERSION_MINOR >= 1
///
/// The build reads the version of the library from here.

/// Changes when programs must be recompiled or adapted; the soname contains it.
#define INSTALL_CPPUTIL_VERSION_MAJOR 2
/// Changes when something is added.
#define INSTALL_CPPUTIL_VERSION_MINOR 0
/// Incremented by any release that changes neither of the above.
#define INSTALL_CPPUTIL_VERSION_PATCH 0
