#include "platform/internal/file_stream.h"

#include <fcntl.h>

#include <future>

#include "tests/processes.h"

namespace install::cpputil::tests {
namespace {

class FileStream : public ::testing::Test {
protected:
    TemporaryDirectory directory_;
    fs::path const name_ = directory_ / "file";
    Path const path_{utf16(name_)};
};

// A program that opens the pipe later may be unrelated to the first writer.
TEST_F(FileStream, ReadsNothingAfterTheEndOfAPipe) {
    ASSERT_EQ(::mkfifo(name_.c_str(), 0600), 0);
    auto const write = [&](char const* text) { write_file(name_, text); };
    std::thread writer(write, "a=1\nb");
    InputFileStream stream(path_);
    writer.join();
    EXPECT_EQ(stream.readLine(), "a=1");
    EXPECT_EQ(stream.readLine(), "b");
    std::thread(write, "other").join();
    EXPECT_EQ(stream.readLine(), std::nullopt);
}

TEST_F(FileStream, WaitsForALeaseToBeReleased) {
    std::signal(SIGIO, SIG_IGN);  // The system's request to release the lease.
    int const holder = ::open(write_file(name_, "").c_str(), O_RDONLY);
    ASSERT_EQ(::fcntl(holder, F_SETLEASE, F_RDLCK), 0);
    auto opened = std::async(std::launch::async, [&] { return OutputFileStream(path_).isOpen(); });
    EXPECT_EQ(opened.wait_for(std::chrono::milliseconds(1'200)), std::future_status::timeout);
    ::close(holder);
    EXPECT_TRUE(opened.get());
}

// Other threads print to these descriptors.
TEST_F(FileStream, NeverUsesADescriptorOfAStandardStream) {
    write_file(name_, "a\n");
    for (int const closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        auto const child = [&] {
            ::close(closed);
            EXPECT_EQ(InputFileStream(path_).readLine(), "a");
            EXPECT_EQ(fs::read_symlink("/proc/self/fd/" + std::to_string(closed)), "/dev/null");
        };
        EXPECT_EQ(status_of(start_child(child)), 0) << closed;
    }
}

TEST_F(FileStream, SetsCloseOnExec) {
    OutputFileStream const output(path_);
    InputFileStream const input(path_);
    ASSERT_TRUE(input.isOpen());
    ASSERT_TRUE(output.isOpen());
    auto const listing = "ls -l /proc/self/fd | grep -q " + name_.native();
    EXPECT_EQ(WEXITSTATUS(std::system(listing.c_str())), 1);
}

TEST_F(FileStream, CreatesFilesUnderTheUmask) {
    auto const mask = ::umask(007);
    OutputFileStream const output(path_);
    ::umask(mask);
    EXPECT_EQ(fs::status(name_).permissions(), fs::perms(0660));
}

}  // namespace
}  // namespace install::cpputil::tests
