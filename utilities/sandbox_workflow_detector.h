#pragma once

/// \file
/// Detection of the sandbox workflow.

#include "../platform/export.h"

namespace install::cpputil {

/// Detects the sandbox workflow. The workflow is active if the parent directory of the installation
/// root (`FileSystemService::installRoot`) contains an entry named "qx_anchor".
///
///     if (SandboxWorkflowDetector().isSandboxWorkflow()) { ... }
///
/// Every call queries the file system.
///
/// \par Thread safety
///     Objects have no state: any number of threads may use one object or several at once.
class INSTALL_CPPUTIL_EXPORT SandboxWorkflowDetector {
public:
    virtual ~SandboxWorkflowDetector();

    /// Returns the result of `isSandboxPathExist`, which derived classes may override, or false if
    /// that throws. Never throws.
    virtual bool isSandboxWorkflow() const;

    /// Returns whether the entry exists; it may be a file or a directory.
    /// \throws TextConversionError, std::filesystem::filesystem_error if the installation root or
    ///     the entry's existence cannot be determined
    virtual bool isSandboxPathExist() const;
};

}  // namespace install::cpputil
