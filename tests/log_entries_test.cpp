// Entries of the log, copied files and the fallback file.

#include <fcntl.h>

#include <cerrno>
#include <ctime>
#include <set>

#include "tests/log.h"
#include "tests/processes.h"

namespace install::cpputil::tests {
namespace {

class LogEntries : public LogTest {};
class CopiedFiles : public LogTest {};
class FallbackFile : public LogTest {};

TEST_F(LogEntries, HaveALocalTimeStamp) {
    // A zone in which it is now 15:xx, so that %I and %H differ.
    auto const hour = std::time(nullptr) / 3600 % 24;
    auto const zone = with_variable("TZ", "XYZ" + std::to_string((hour + 24 - 15) % 24));
    ::tzset();
    auto const* const pattern = "(%b %d, %Y %H:%M:%S) x\n";
    auto const before = PlatformInfo::currentTime(pattern);
    append_message(u"x");
    EXPECT_THAT(read_file(path(fallback_)),
                ::testing::AnyOf(before, PlatformInfo::currentTime(pattern)));
}

TEST_F(LogEntries, AreAppendedToTheDestination) {
    Logger const log(write_file(path("log"), "kept\n"));
    enableRecords();
    append_message(u" \u00e9 two\nlines\n");
    append_message(std::string("x"));
    append_message(std::string());
    append_message(std::u16string());
    EXPECT_EQ(content("log"), "kept\nT  \xC3\xA9 two\nlines\n\nT x\n");
    EXPECT_THAT(records(),
                ElementsAre("4: msg= \xC3\xA9 two\nlines\n", "4: msg=x", "4: msg=", "4: msg="));
    EXPECT_FALSE(exists(fallback_));
}

TEST_F(LogEntries, AreLostWhileTheFileCannotBeWritten) {
    Logger const log(name("dir/log"));
    append_message(u"one");
    fs::rename(path("dir"), path("rotated"));
    enableRecords();
    append_message(u"lost");
    EXPECT_THAT(records(), ElementsAre("4: msg=lost", notOpened("lost")));
    fs::create_directory(path("dir"));
    fs::create_symlink("/dev/full", path("dir/log"));
    append_message(u"lost");
    fs::remove(path("dir/log"));
    append_message(u"two");
    EXPECT_EQ(content("rotated/log"), "T one\n");
    EXPECT_EQ(content("dir/log"), "T two\n");
    EXPECT_FALSE(exists(fallback_));
}

TEST_F(LogEntries, RejectMalformedText) {
    write_file(path("file"), "good\n\xC3(\n");
    Logger const log(name("log"));
    for (unsigned const mask : {0U, 4U}) {
        enableRecords(mask);
        EXPECT_THROW(append_message(u"unpaired \xD800"), TextConversionError);
        EXPECT_THROW(append_message(std::string("\xED\xA0\x80")), TextConversionError);
        EXPECT_THROW(append_file(name("file")), TextConversionError);
    }
    EXPECT_EQ(content("log"), "");
    EXPECT_THAT(records(), ElementsAre("4: line=good", "4: line=\xC3("));
}

TEST_F(LogEntries, AreWrittenOnceWhileTheDestinationChanges) {
    constexpr int threads = 8, count = 10'000;
    std::atomic<int> running = threads;
    std::vector<std::thread> writers;
    for (int writer = 0; writer != threads; ++writer) {
        writers.emplace_back([&running, writer] {
            for (int number = 0; number != count; ++number) {
                append_message(std::to_string(writer) + " " + std::to_string(number));
            }
            --running;
        });
    }
    // Meanwhile, two threads change and read the destination and the mask.
    enableRecords(8);
    auto const change = [&](std::string const& file, unsigned mask) {
        for (int changes = 0; running != 0 || changes < 100; ++changes) {
            Logger const log(name(file));
            EXPECT_THROW(Logger const rejected{Path()}, std::runtime_error);
            EXPECT_THROW(append_file(name("none")), std::runtime_error);
            static_cast<void>(get_destination());
            static_cast<void>(get_last_destination());
            logger::detail::forget_last_destination();
            enableRecords(changes % 2 == 0 ? mask : 8);
        }
    };
    writers.emplace_back(change, "a", 8);
    writers.emplace_back(change, "b", 4 | 8);
    for (auto& writer : writers) {
        writer.join();
    }
    Strings written;
    for (std::string const file : {"a", "b", fallback_.c_str()}) {
        for (auto const& message : messages(path(file))) {
            if (message.find("Reset") != 0 && message.find("Unable") != 0) {
                written.push_back(message);
            }
        }
    }
    EXPECT_EQ(written.size(), static_cast<std::size_t>(threads) * count);
    EXPECT_EQ(std::set(written.begin(), written.end()).size(), written.size());
}

TEST_F(CopiedFiles, AreOneEntryEach) {
    auto const file = path("file"),
               given = path("") + "/file";  // Its native form has one separator.
    std::string const lines = "\n\r\n \xE2\x82\xAC\r\n\n\nx", large(200'000, 'x');
    struct Row {
        std::string content, copy;
    };
    Row const rows[] = {
        {"", ""},     {"a", "a\n"},          {"a\n", "a\n"},
        {"\n", "\n"}, {lines, lines + "\n"}, {large + "\n" + large, large + "\n" + large + "\n"}};
    for (auto const& row : rows) {
        Logger const log(name("log"));
        write_file(file, row.content);
        append_file(TextConversion::fromUtf8(given));
        append_file(file);
        append_file(Path(name("file")));
        auto const entry = [&](std::string const& shown) {
            return "T Content of the file " + shown + "\n" + row.copy + "End of the file " + shown +
                   "\n";
        };
        EXPECT_TRUE(content("log") == entry(given) + entry(file) + entry(file))
            << row.content.substr(0, 20);
        fs::remove(path("log"));
    }
}

TEST_F(CopiedFiles, AreRejectedIfTheyCannotBeCopied) {
    deny_access(write_file(path("file"), "a\n"));
    auto const error = [&](std::string const& file) {
        return error_text<std::runtime_error>([&] { append_file(name(file)); });
    };
    enableRecords();
    EXPECT_EQ(error("none"), "Logger destination was not initialized.");
    EXPECT_THAT(records(), ElementsAre("8:append_file: The output file destination is not set."));
    Logger const log(name("log"));
    records();
    EXPECT_EQ(error("none"), "The file does not exist.");
    EXPECT_THAT(records(), ElementsAre("8:append_file: The file does not exist."));
    auto const user = as_user();
    EXPECT_EQ(error("file"), "append_file: Cannot open file.");
    EXPECT_EQ(error(""), "append_file: Cannot open file.");
    EXPECT_THAT(records(), IsEmpty());
    EXPECT_EQ(content("log"), "");
    EXPECT_FALSE(exists(fallback_));
}

TEST_F(FallbackFile, ReceivesEntriesWhileNoDestinationIsSet) {
    enableRecords();
    append_message(u"one");
    EXPECT_THAT(records(), ElementsAre("4: msg=one", notOpened("one")));
    errno = EAGAIN;  // An earlier error, which has no effect.
    append_message(u"two");
    EXPECT_EQ(content(fallback_), "T one\nT two\n");
    EXPECT_EQ(fs::status(path(fallback_)).permissions(), fs::perms(0600));
    records();
    auto const unusable = with_variable("TMPDIR", "/dev/null/none");
    append_message(u"lost");
    EXPECT_THAT(records(), ElementsAre("4: msg=lost", notOpened("lost"), notOpened("lost")));
}

// Only root can become another user and change the root directory, which contains the user
// database.
TEST_F(FallbackFile, IsNamedForTheEffectiveUser) {
    fs::create_directory(path("etc"));
    write_file(path("etc/passwd"),
               "good:x:60001:60001::/:/bin/sh\nno/file:x:60002:60002::/:/bin/sh\n"
               "no\xFFutf8:x:60003:60003::/:/bin/sh\n");
    struct Row {
        uid_t user;
        std::string file;
    };
    Row const rows[] = {{60001, "velmora_good.log"},
                        {60002, "velmora_.log"},
                        {60003, "velmora_.log"},
                        {60004, "velmora_.log"}};
    for (auto const& row : rows) {
        auto const child = [&] {
            ASSERT_EQ(::chroot(path("").c_str()), 0);
            auto const temp = with_variable("TMPDIR", "/");
            auto const user = as_user(row.user);
            append_message(u"x");
        };
        if (::geteuid() == 0) {
            EXPECT_EQ(status_of(start_child(child)), 0);
            EXPECT_EQ(content(row.file), "T x\n") << row.user;
            fs::remove(path(row.file));
        }
    }
}

// Links, pipes and files that an attacker could plant to read, redirect or block the log.
TEST_F(FallbackFile, IsRejectedIfItIsUnsafe) {
    auto const file = path(fallback_), target = path("target");
    write_file(target, "");
    int reader = -1;
    std::vector<std::function<void()>> plants = {
        [&] { fs::create_symlink(target, file); }, [&] { fs::create_symlink("missing", file); },
        [&] { fs::create_hard_link(target, file); }, [&] { ::mkfifo(file.c_str(), 0666); },
        [&] {
            ::mkfifo(file.c_str(), 0666);
            reader = ::open(file.c_str(), O_RDONLY | O_NONBLOCK);
        }};
    if (::geteuid() == 0) {  // Only root can give a file to another user.
        plants.emplace_back([&] { EXPECT_EQ(::chown(write_file(file, "").c_str(), 2, 2), 0); });
    }
    for (auto const& plant : plants) {
        plant();
        enableRecords();
        append_message(u"x");
        EXPECT_THAT(records(), ElementsAre("4: msg=x", notOpened("x"), notOpened("x")));
        fs::remove(file);
    }
    ::close(reader);
    EXPECT_EQ(content("target"), "");
    EXPECT_FALSE(exists("missing"));
}

}  // namespace
}  // namespace install::cpputil::tests
