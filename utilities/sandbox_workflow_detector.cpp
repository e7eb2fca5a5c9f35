#include "utilities/sandbox_workflow_detector.h"

#include "platform/file_system_service.h"

namespace install::cpputil {

SandboxWorkflowDetector::~SandboxWorkflowDetector() = default;

bool SandboxWorkflowDetector::isSandboxWorkflow() const {
    try {
        return isSandboxPathExist();
    } catch (...) {
        // Where nobody can tell, the ordinary workflow is the safe answer.
        return false;
    }
}

bool SandboxWorkflowDetector::isSandboxPathExist() const {
    Path const root(FileSystemService::installRoot());
    Path const parent(FileSystemService::parentPath(root.string()));
    return FileSystemService::exists(FileSystemService::concatenatePath(parent, u"qx_anchor"));
}

}  // namespace install::cpputil
