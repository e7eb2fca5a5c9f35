#pragma once

/// Marks what programs may name. The library is built with hidden visibility, and its linker
/// version script lets nothing out but the namespace install::cpputil.
#define INSTALL_CPPUTIL_EXPORT __attribute__((visibility("default")))
