#include "platform/file_stream.h"

#include "tests/support.h"

namespace install::cpputil {
namespace {

using namespace testing;

// Whoever reads on behind the end of a pipe takes another writer's lines for the same file's.
TEST(InputFileStream, EndsForGood) {
    TemporaryDirectory const directory;
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    auto const write = [&](char const* text) { write_file(directory / "pipe", text); };
    std::thread writer(write, "a=1\nb");
    InputFileStream stream(Path(utf16(directory / "pipe")));
    writer.join();
    std::string_view line;
    EXPECT_TRUE(stream.readLine(line) && line == "a=1");
    EXPECT_TRUE(stream.readLine(line) && line == "b");
    std::thread(write, "other").join();
    EXPECT_FALSE(stream.readLine(line)) << line;
}

// Signals and the pipe's size make the system take the text in parts, and nothing at times.
TEST(OutputFileStream, WritesAllOfAText) {
    TemporaryDirectory const directory;
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    std::string const text = std::string(3'000'000, 'x') + "\n";
    auto const first_signal = signal_count.load();
    std::string read;
    std::thread reader([&] {
        std::ifstream stream(directory / "pipe");
        while (signal_count - first_signal < 20) {
            std::this_thread::yield();
        }
        read.assign(std::istreambuf_iterator<char>(stream), {});
    });
    {
        OutputFileStream stream(Path(utf16(directory / "pipe")));
        auto const signals = with_signals();
        stream.write(text);
    }
    reader.join();
    EXPECT_TRUE(read == text) << read.size();
}

TEST(FileStreams, AreNotInheritedByPrograms) {
    TemporaryDirectory const directory;
    Path const path(utf16(directory / "file"));
    auto const mask = ::umask(007);
    OutputFileStream const output(path);
    ::umask(mask);
    InputFileStream const input(path);
    ASSERT_TRUE(input.isOpen() && output.isOpen());
    EXPECT_EQ(fs::status(directory / "file").permissions(), fs::perms(0660));
    auto const listing = "ls -l /proc/self/fd | grep -q " + (directory / "file").native();
    EXPECT_EQ(WEXITSTATUS(std::system(listing.c_str())), 1);
}

}  // namespace
}  // namespace install::cpputil
