#include "utilities/sandbox_workflow_detector.h"

#include "platform/file_system_service.h"
#include "platform/internal/cancellation_guard.h"

namespace install::cpputil {

SandboxWorkflowDetector::~SandboxWorkflowDetector() = default;

bool SandboxWorkflowDetector::isSandboxWorkflow() const {
    // A cancellation is an exception, which the handler below must not swallow.
    CancellationGuard const uncancelled;
    try {
        return isSandboxPathExist();
    } catch (...) {
        // The ordinary workflow is the default, even if the check fails.
        return false;
    }
}

bool SandboxWorkflowDetector::isSandboxPathExist() const {
    Path const root(FileSystemService::installRoot());
    Path const parent(FileSystemService::parentPath(root.string()));
    return FileSystemService::exists(FileSystemService::concatenatePath(parent, u"qx_anchor"));
}

}  // namespace install::cpputil
