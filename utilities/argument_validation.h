#pragma once

#include <map>
#include <string>

#include "../platform/export.h"

namespace install::cpputil {

/// Checks the values of named arguments against rules of the same names. All texts are UTF-8.
///
///     validate_args({{"mode", "full"}, {"port", "8080"}},
///                   {{"mode", "strval:full,minimal"}, {"port", "intval"}});
///
/// - "strval:a,b": the value equals one of the items between the commas, to the byte; items may be
///   empty.
/// - "boolval": it is "true", "false", "yes" or "no", in capitals or small letters as the global
///   `std::locale` has them.
/// - "intval": it begins with a decimal integer that fits 32 bits, as `std::stoi` reads it.
/// - "rfile": it names a file that can be opened for reading and is not empty; a pipe
///   fails, because its size is not known.
///
/// Any other rule lets every value pass. A ":" and what follows it mean nothing in rules other than
/// "strval"; "strval" without a ":" allows the text of the rule itself. Arguments without a rule
/// and rules without an argument are passed over.
///
/// Arguments are checked in the order of their names; the first that fails ends the call. The text
/// of its exception is key='NAME' value='VALUE' rule='RULE'.
/// \throws std::invalid_argument for a failed "strval", "boolval" or "intval"
/// \throws std::runtime_error for a failed "rfile", after two messages in the installation log
/// \throws TextConversionError, std::invalid_argument, std::filesystem::filesystem_error if the
///     value of an "rfile" argument is no path, or the system will not tell whether the file
///     exists
/// \par Thread safety
///     May be called from any thread at any time, while no thread changes the environment.
INSTALL_CPPUTIL_EXPORT void validate_args(std::map<std::string, std::string> const& args,
                                          std::map<std::string, std::string> const& rules);

}  // namespace install::cpputil
