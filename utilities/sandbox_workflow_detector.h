#pragma once

#include "../platform/export.h"

namespace install::cpputil {

/// Tells the sandbox workflow from the ordinary one: it is in force when there is an entry named
/// "qx_anchor" in the directory directly above the installation root
/// (`FileSystemService::installRoot`).
///
///     if (SandboxWorkflowDetector().isSandboxWorkflow()) { ... }
///
/// Every call looks at the file system afresh.
///
/// \par Thread safety
///     Objects hold nothing: any number of threads may use one object or several at once.
class INSTALL_CPPUTIL_EXPORT SandboxWorkflowDetector {
public:
    virtual ~SandboxWorkflowDetector();

    /// Returns what `isSandboxPathExist` of the object's class does; false where that throws. Never
    /// throws.
    virtual bool isSandboxWorkflow() const;

    /// Returns whether the entry is there, be it a file or a directory.
    /// \throws TextConversionError, std::invalid_argument, std::filesystem::filesystem_error if the
    ///     installation root cannot be told or is no path, or the system will not tell
    virtual bool isSandboxPathExist() const;
};

}  // namespace install::cpputil
