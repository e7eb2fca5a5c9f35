#include "utilities/installer_exception.h"

#include <utility>

namespace install::cpputil {

InstallerException::InstallerException(std::string error_code, std::string primary_error_message,
                                       std::string secondary_error_message, std::string location)
    : std::runtime_error(secondary_error_message),
      errorCode_(std::move(error_code)),
      primaryErrorMessage_(std::move(primary_error_message)),
      secondaryErrorMessage_(std::move(secondary_error_message)),
      location_(std::move(location)) {}

InstallerException::InstallerException(std::string message)
    : std::runtime_error(message), secondaryErrorMessage_(std::move(message)) {}

InstallerException::~InstallerException() = default;

std::string InstallerException::getErrorCode() const {
    return errorCode_;
}

std::string InstallerException::getPrimaryErrorMessage() const {
    return primaryErrorMessage_;
}

std::string InstallerException::getSecondaryErrorMessage() const {
    return secondaryErrorMessage_;
}

std::string InstallerException::getLocation() const {
    return location_;
}

std::string createLocation(std::string const& scope, std::string const& name) {
    if (name.empty() || name == scope) {
        return scope;
    }
    return scope + "::" + name;
}

}  // namespace install::cpputil
