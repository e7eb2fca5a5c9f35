#pragma once

/// \file
/// The validation of named arguments.

#include <map>
#include <string>

#include "../platform/export.h"

namespace install::cpputil {

/// Checks the values of named arguments against rules of the same names. All strings are UTF-8.
///
///     validate_args({{"mode", "full"}, {"port", "8080"}},
///                   {{"mode", "strval:full,minimal"}, {"port", "intval"}});
///
/// - "strval:a,b": the value equals one of the items between the commas, byte for byte. Items may
///   be empty.
/// - "boolval": the value is "true", "false", "yes" or "no", ignoring case as the global
///   `std::locale` defines it.
/// - "intval": the value begins with a 32-bit decimal integer, as `std::stoi` reads it.
/// - "rfile": the value is the name of a file that can be opened for reading and is not empty.
///   Pipes and files in /proc fail, because the system reports no size for them.
///
/// Any other rule accepts every value. A ":" and what follows it are ignored in rules other than
/// "strval"; "strval" without a ":" accepts only the value "strval". Arguments without a rule and
/// rules without an argument are ignored.
///
/// Arguments are checked in the order of their names; the first failure throws, and `what()` is
/// key='NAME' value='VALUE' rule='RULE'.
/// \throws std::invalid_argument for a failed "strval", "boolval" or "intval"
/// \throws std::runtime_error for a failed "rfile", after two messages to the installation log
/// \throws TextConversionError, std::invalid_argument if the value of an "rfile" argument is not
///     UTF-8 or contains a NUL
/// \throws std::filesystem::filesystem_error if the file's existence cannot be determined
/// \par Thread safety
///     May be called from any thread at any time, provided that no thread changes the environment.
INSTALL_CPPUTIL_EXPORT void validate_args(std::map<std::string, std::string> const& args,
                                          std::map<std::string, std::string> const& rules);

}  // namespace install::cpputil
