#include "utilities/installer_exception.h"

#include <utility>

namespace install::cpputil {

InstallerException::InstallerException(std::string errorCode, std::string primaryErrorMessage,
                                       std::string secondaryErrorMessage, std::string location)
    : std::runtime_error(secondaryErrorMessage),
      errorCode_(std::move(errorCode)),
      primaryErrorMessage_(std::move(primaryErrorMessage)),
      secondaryErrorMessage_(std::move(secondaryErrorMessage)),
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
