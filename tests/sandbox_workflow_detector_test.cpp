#include "utilities/sandbox_workflow_detector.h"

#include "platform/file_system_service.h"
#include "tests/files.h"

namespace install::cpputil::tests {
namespace {

class SandboxWorkflow : public ::testing::Test {
protected:
    SandboxWorkflow() {
        fs::create_directories(directory_ / "parent/root");
        FileSystemService::setInstallRoot(utf16(directory_ / "parent//root/"));
    }
    ~SandboxWorkflow() override { FileSystemService::setInstallRoot(u""); }

    TemporaryDirectory directory_;
    SandboxWorkflowDetector const detector_;
};

TEST_F(SandboxWorkflow, IsDetectedByAnEntryNextToTheInstallationRoot) {
    write_file(directory_ / "parent/root/qx_anchor", "");
    write_file(directory_ / "qx_anchor", "");
    EXPECT_FALSE(detector_.isSandboxWorkflow());
    write_file(directory_ / "parent/qx_anchor", "");
    EXPECT_TRUE(detector_.isSandboxWorkflow());
}

TEST_F(SandboxWorkflow, IsNotDetectedIfTheSystemReportsAnError) {
    deny_access(directory_ / "");
    auto const user = as_user();
    EXPECT_FALSE(detector_.isSandboxWorkflow());
    EXPECT_THROW(detector_.isSandboxPathExist(), fs::filesystem_error);
}

TEST_F(SandboxWorkflow, CallsTheVirtualQuery) {
    struct Decided : SandboxWorkflowDetector {
        explicit Decided(bool exists) : exists_(exists) {}
        bool isSandboxPathExist() const override { return exists_ ? true : throw 42; }
        bool exists_;
    };
    EXPECT_TRUE(Decided(true).isSandboxWorkflow());
    EXPECT_FALSE(Decided(false).isSandboxWorkflow());
}

}  // namespace
}  // namespace install::cpputil::tests
