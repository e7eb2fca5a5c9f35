#include "platform/internal/file_stream.h"

#include <fcntl.h>

#include <future>

#include "tests/support.h"

namespace install::cpputil::testing {
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

TEST_F(FileStream, WaitsForTheEndOfALease) {
    std::signal(SIGIO, SIG_IGN);  // Asks the holder to end its lease.
    int const holder = ::open(write_file(name_, "").c_str(), O_RDONLY);
    ASSERT_EQ(::fcntl(holder, F_SETLEASE, F_RDLCK), 0);
    auto opened = std::async(std::launch::async, [&] { return OutputFileStream(path_).isOpen(); });
    EXPECT_EQ(opened.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    ::close(holder);
    EXPECT_TRUE(opened.get());
}

// Because of the signals and the size of a pipe, the system writes the text in parts.
TEST_F(FileStream, WritesTheWholeText) {
    ASSERT_EQ(::mkfifo(name_.c_str(), 0600), 0);
    std::string const text = std::string(3'000'000, 'x') + "\n";
    std::string read;
    // Without a reader, the stream would not open.
    int const early_reader = ::open(name_.c_str(), O_RDONLY | O_NONBLOCK);
    auto const signals = with_signals();
    std::thread reader([&] {
        std::ifstream stream(name_);
        await_signals(20);
        read.assign(std::istreambuf_iterator<char>(stream), {});
    });
    {
        OutputFileStream stream(path_);
        stream.write(text);
    }
    reader.join();
    EXPECT_TRUE(read == text) << read.size();
    ::close(early_reader);
}

TEST_F(FileStream, IsNotInheritedByPrograms) {
    OutputFileStream const output(path_);
    InputFileStream const input(path_);
    ASSERT_TRUE(input.isOpen() && output.isOpen());
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
}  // namespace install::cpputil::testing
