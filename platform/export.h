#pragma once

/// \file
/// Visibility of symbols.

#if __cplusplus < 201703L
#error "install::cpputil needs C++17 or later"
#endif

/// Exports a class, function or variable. The library is built with hidden visibility, and its
/// version script exports nothing outside the namespace install::cpputil.
#define INSTALL_CPPUTIL_EXPORT __attribute__((visibility("default")))
