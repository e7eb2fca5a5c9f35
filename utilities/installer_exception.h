#pragma once

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
/// `what()` is the secondary message. Texts may be empty; nothing looks into them.
///
/// \par Thread safety
///     The texts never change: several threads may read one exception.
class INSTALL_CPPUTIL_EXPORT InstallerException : public std::runtime_error {
public:
    /// Makes an exception that carries four texts. \p location is meant to come from
    /// `createLocation`.
    InstallerException(std::string errorCode, std::string primaryErrorMessage,
                       std::string secondaryErrorMessage, std::string location);

    /// Makes an exception that carries a secondary message alone.
    explicit InstallerException(std::string message);

    ~InstallerException() override;

    /// Returns the error code.
    std::string getErrorCode() const;
    /// Returns the primary message.
    std::string getPrimaryErrorMessage() const;
    /// Returns the secondary message, the text of `what()`.
    std::string getSecondaryErrorMessage() const;
    /// Returns where the error arose.
    std::string getLocation() const;

private:
    std::string errorCode_;
    std::string primaryErrorMessage_;
    std::string secondaryErrorMessage_;
    std::string location_;
};

/// Returns the text of a location, \p scope and \p name with "::" between them; \p scope alone
/// where \p name is empty or the same.
INSTALL_CPPUTIL_EXPORT std::string createLocation(std::string const& scope,
                                                  std::string const& name);

}  // namespace install::cpputil
