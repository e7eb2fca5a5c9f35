#pragma once

/// \file
/// The exception type for installers, and a helper that formats its location.

#include <stdexcept>
#include <string>

#include "../platform/export.h"

namespace install::cpputil {

/// The exception that installers throw for their errors. The library itself neither throws nor
/// catches it.
///
///     throw InstallerException("E42", "The installation failed.", "no space left on /opt",
///                              createLocation("unpacker", "write_block"));
///
/// `what()` is the secondary message. The strings may be empty and are not checked.
///
/// \par Thread safety
///     Immutable; may be read from any thread.
class INSTALL_CPPUTIL_EXPORT InstallerException : public std::runtime_error {
public:
    /// Creates an exception with four strings. \p location usually comes from `createLocation`.
    InstallerException(std::string error_code, std::string primary_error_message,
                       std::string secondary_error_message, std::string location);

    /// Creates an exception that has only a secondary message.
    explicit InstallerException(std::string message);

    ~InstallerException() override;

    /// Returns the error code.
    std::string getErrorCode() const;
    /// Returns the primary message.
    std::string getPrimaryErrorMessage() const;
    /// Returns the secondary message, which is also `what()`.
    std::string getSecondaryErrorMessage() const;
    /// Returns the location where the error occurred.
    std::string getLocation() const;

private:
    std::string errorCode_;
    std::string primaryErrorMessage_;
    std::string secondaryErrorMessage_;
    std::string location_;
};

/// Returns \p scope and \p name joined by "::", or only \p scope if \p name is empty or equal to
/// it.
INSTALL_CPPUTIL_EXPORT std::string createLocation(std::string const& scope,
                                                  std::string const& name);

}  // namespace install::cpputil
