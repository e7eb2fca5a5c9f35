#include "utilities/logger.h"

#include <pwd.h>
#include <sys/wait.h>

#include <atomic>
#include <random>
#include <regex>

#include "platform/platform_info.h"
#include "tests/support.h"

namespace install::cpputil::logger {
namespace {

using namespace testing;

constexpr char const* channel_name = "install::cpputil::logger";

/// Shows each time stamp of \p text as T, so that what is left is known beforehand.
std::string unstamped(std::string const& text) {
    static std::regex const stamp(R"(\([A-Z][a-z]{2} \d\d, \d{4} \d\d:\d\d:\d\d\) )");
    return std::regex_replace(text, stamp, "T ");
}

std::string user_name() {
    passwd const* const entry = ::getpwuid(::geteuid());
    return entry == nullptr ? "" : entry->pw_name;
}

class Log : public ::testing::Test {
protected:
    Log() { detail::forget_last_destination(); }

    std::u16string name(std::string const& file) const { return utf16(directory_ / file); }
    std::string content(std::string const& file) const {
        return unstamped(read_file(directory_ / file));
    }

    void record(unsigned mask = 4 | 8) {
        DiagnosticChannel::setEnabledSeverities(channel_name, mask);
    }
    /// The records of the log's channel, with the test's directory shown as D and time stamps as T.
    Strings records() {
        Strings result;
        auto const path = (directory_ / "").parent_path().native();
        for (auto const& record : sink_.take()) {
            auto& shown = result.emplace_back(unstamped(record));
            while (shown.find(path) != std::string::npos) {
                shown.replace(shown.find(path), path.size(), "D");
            }
        }
        return result;
    }

    TemporaryDirectory directory_;
    std::string const fallback_ = "velmora_" + user_name() + ".log";
    Undo temp_ = with_variable("TMPDIR", directory_ / "");
    RecordSink sink_{channel_name, 0};
};

TEST_F(Log, StampsEntriesWithLocalTime) {
    // A zone in which it is the afternoon, so that hours past noon show how they are written.
    auto const hour = std::time(nullptr) / 3600 % 24;
    auto const zone = with_variable("TZ", "XYZ" + std::to_string((hour + 24 - 15) % 24));
    ::tzset();
    auto const stamp = [] {
        return PlatformInfo::formatTime(std::time(nullptr), "(%b %d, %Y %H:%M:%S) x\n");
    };
    auto const before = stamp();
    append_message(u"x");
    auto const written = read_file(directory_ / fallback_);
    EXPECT_TRUE(written == before || written == stamp()) << written;
    EXPECT_EQ(written.substr(13, 4), " 15:") << written;
}

TEST_F(Log, FollowsItsDestination) {
    auto const places = [] {
        return TextConversion::toUtf8(get_destination().string() + u"|" +
                                      detail::get_last_destination().string());
    };
    auto const a = (directory_ / "new/dir/a").native(), b = write_file(directory_ / "b", "kept\n");
    EXPECT_EQ(places(), "|");
    record();
    auto outer = std::make_unique<Logger>(name("new/dir//a"));
    EXPECT_EQ(places(), a + "|");
    EXPECT_EQ(content("new/dir/a"), "");
    append_message(u" \u00e9 two\nlines\n");
    EXPECT_THAT(records(), ElementsAre("4:set destinationD/new/dir/a",
                                       "4: destination_file.string()=D/new/dir/a",
                                       "4: msg= \xC3\xA9 two\nlines\n"));
    auto inner = std::make_unique<Logger>(Path(name("b")));
    append_message(std::string("in b"));
    EXPECT_THAT(
        records(),
        ElementsAre("4:set destinationD/b",
                    "4: destination_file.string()=D/new/dir/a ofile.string()=D/b",
                    "4: msg=Reset destination file log D/new/dir/a to D/b", "8:flush destination",
                    "4: last_destination_file.string()=D/new/dir/a", "8:unset destination",
                    "4: destination_file.string()=D/b", "4: msg=in b"));
    EXPECT_EQ(places(), b + "|" + a);
    inner.reset();
    EXPECT_EQ(places(), "|" + b);
    EXPECT_THAT(records(),
                ElementsAre("8:flush destination", "4: last_destination_file.string()=D/b",
                            "8:unset destination"));
    outer.reset();
    EXPECT_EQ(places(), "|" + b);
    EXPECT_THAT(records(), ElementsAre("4:no destination, keep last \"D/b\""));
    outer = std::make_unique<Logger>(b);
    detail::forget_last_destination();
    EXPECT_EQ(places(), b + "|");
    inner = std::make_unique<Logger>(name("b"));
    inner.reset();
    detail::forget_last_destination();
    outer.reset();
    EXPECT_EQ(records().back(), "4:no destination, keep last \"\"");
    EXPECT_EQ(content("new/dir/a"),
              "T  \xC3\xA9 two\nlines\n\nT Reset destination file log " + a + " to " + b + "\n");
    EXPECT_EQ(content("b"), "kept\nT in b\nT Reset destination file log " + b + " to " + b + "\n");
    EXPECT_FALSE(fs::exists(directory_ / fallback_));
}

TEST_F(Log, FallsBackToTheFileOfTheUser) {
    record();
    append_message(u"one");
    append_message(std::string());
    append_message(std::u16string());
    EXPECT_THAT(records(),
                ElementsAre("4: msg=one", "4:failed to open destination_file for u8msg T one",
                            "4: msg=", "4: msg="));
    if (::geteuid() == 0) {
        for (auto const& [user, file] :
             {std::pair(65534U, "velmora_nobody.log"), {60123U, "velmora_.log"}}) {
            auto const other = as_user(user);
            append_message(u"two");
            EXPECT_EQ(content(file), "T two\n");
        }
    }
    append_message(u"three");
    EXPECT_EQ(content(fallback_), "T one\nT three\n");
    records();
    auto const unusable = with_variable("TMPDIR", "/dev/null/none");
    append_message(u"lost");
    EXPECT_THAT(records(),
                ElementsAre("4: msg=lost", "4:failed to open destination_file for u8msg T lost",
                            "4:failed to open destination_file for u8msg T lost"));
}

TEST_F(Log, RefusesDestinationsThatCannotBeMade) {
    auto const file = write_file(directory_ / "file", ""), d = (directory_ / "").native();
    write_file(directory_ / "log", "");
    fs::create_directory(directory_ / "closed");
    deny_access(directory_ / "closed");
    auto const user = as_user();
    auto const locked = d + "closed/x", none = std::string("/proc/none");
    std::string entries;
    Rows<std::string, bool, std::string> const rows = {{"", true, ""},
                                                       {d, true, d},
                                                       {locked, true, locked},
                                                       {none, true, none},
                                                       {file + "/x/y", false, file + "/x"},
                                                       {locked + "/y", false, locked}};
    for (auto const& [destination, is_file, named] : rows) {
        auto const make = [&destination] { Logger const refused(destination); };
        auto const error = std::string("Install Logger: Cannot ") +
                           (is_file ? "open file \"" : "create directory \"") + named + "\"";
        auto const entry = std::string("Unable to create specified ") +
                           (is_file ? "file" : "folder") + " for installation log " + named;
        EXPECT_EQ(error_text<std::runtime_error>(make), error);
        EXPECT_EQ(get_destination().string(), u"");

        Logger const log(name("log"));
        record();
        EXPECT_EQ(error_text<std::runtime_error>(make), error);
        EXPECT_EQ(get_destination().string(), name("log"));
        EXPECT_THAT(sink_.take(), ElementsAre("4:set destination" + destination, "4: msg=" + entry,
                                              "4:set destination:" + error));
        record(0);
        EXPECT_EQ(content("log"), entries += "T " + entry + "\n");
    }
    EXPECT_FALSE(fs::exists(directory_ / fallback_) ||
                 fs::exists(directory_ / "velmora_nobody.log"));
    EXPECT_THROW(Logger(std::u16string(u"a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(Logger(std::string("\xFF")), TextConversionError);
}

TEST_F(Log, IsLeftWithoutADestinationThatNoLoggerUnsets) {
    record();
    sink_.fail(" destination_file.string()=");
    EXPECT_THROW(Logger(name("log")), std::logic_error);
    EXPECT_EQ(get_destination().string(), u"");
}

TEST_F(Log, CopiesFiles) {
    auto const path = (directory_ / "file").native();
    std::string const lines = "\n\r\n \xE2\x82\xAC\r\n\n\nx";
    Rows<std::string, std::string> const rows = {
        {"", ""}, {"a", "a\n"}, {"a\n", "a\n"}, {"\n", "\n"}, {lines, lines + "\n"}};
    for (auto const& [text, copied] : rows) {
        Logger const log(name("log"));
        write_file(path, text);
        append_file(name("file"));
        append_file(path);
        append_file(Path(name("file")));
        auto const entry =
            "T Content of the file " + path + "\n" + copied + "End of the file " + path + "\n";
        EXPECT_EQ(content("log"), entry + entry + entry);
        fs::remove(directory_ / "log");
    }
    // A name in its own form, not the system's, and the records.
    Logger const log(name("log"));
    write_file(directory_ / "file", "a\n\nb");
    record();
    append_file(name("") + u"/file");
    EXPECT_THAT(records(),
                ElementsAre("4: line=a", "4: line=", "4: line=b",
                            "4: msg=Content of the file D//file\na\n\nb\nEnd of the file D//file"));
}

TEST_F(Log, RefusesFilesThatItCannotCopy) {
    deny_access(write_file(directory_ / "file", "a\n"));
    auto const refusal = [&](std::string const& file) {
        return error_text<std::runtime_error>([&] { append_file(name(file)); });
    };
    record();
    EXPECT_EQ(refusal("none"), "Logger destination was not initialized.");
    EXPECT_THAT(records(), ElementsAre("8:append_file: The output file destination is not set."));
    Logger const log(name("log"));
    records();
    EXPECT_EQ(refusal("none"), "The file does not exist.");
    EXPECT_THAT(records(), ElementsAre("8:append_file: The file does not exist."));
    auto const user = as_user();
    EXPECT_EQ(refusal("file"), "append_file: Cannot open file.");
    EXPECT_EQ(refusal(""), "append_file: Cannot open file.");
    EXPECT_THAT(records(), IsEmpty());
    EXPECT_EQ(content("log") + content(fallback_), "");
}

TEST_F(Log, TakesNothingButText) {
    write_file(directory_ / "file", "good\n\xC3(\n");
    Logger const log(name("log"));
    for (bool const recorded : {false, true}) {
        record(recorded ? 4 | 8 : 0);
        EXPECT_THROW(append_message(u"half a pair \xD800"), TextConversionError);
        EXPECT_THROW(append_message(std::string("\xED\xA0\x80")), TextConversionError);
        EXPECT_THROW(append_file(name("file")), TextConversionError);
        EXPECT_EQ(content("log"), recorded ? "T next\n" : "");
        append_message(u"next");
    }
    EXPECT_THAT(records(), ElementsAre("4: line=good", "4: line=\xC3(", "4: msg=next"));
}

TEST_F(Log, SurvivesWhatHappensToItsFile) {
    Logger const log(name("dir/log"));
    append_message(u"one");
    fs::rename(directory_ / "dir/log", directory_ / "rotated");
    append_message(u"two");
    fs::remove(directory_ / "dir/log");
    append_message(u"three");
    EXPECT_EQ(content("rotated") + content("dir/log"), "T one\nT three\n");
    fs::remove_all(directory_ / "dir");
    record();
    append_message(u"lost");
    EXPECT_THAT(records(),
                ElementsAre("4: msg=lost", "4:failed to open destination_file for u8msg T lost"));
    EXPECT_FALSE(fs::exists(directory_ / fallback_));
    fs::create_directory(directory_ / "dir");
    append_message(u"four");
    EXPECT_EQ(content("dir/log"), "T four\n");
    // A full disk, whose cause goes away.
    fs::remove(directory_ / "dir/log");
    fs::create_symlink("/dev/full", directory_ / "dir/log");
    append_message(u"lost");
    fs::remove(directory_ / "dir/log");
    append_message(u"five");
    EXPECT_EQ(content("dir/log"), "T five\n");
}

TEST_F(Log, TakesEveryMessageOfEveryThreadOnce) {
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
    // Meanwhile two threads change the destination and ask for it, and records come and go.
    record(8);
    auto const change = [&](std::string const& file, unsigned mask) {
        for (int changes = 0; running != 0 || changes < 100; ++changes) {
            Logger const log(name(file));
            EXPECT_THROW(Logger const refused{Path()}, std::runtime_error);
            static_cast<void>(get_destination());
            static_cast<void>(detail::get_last_destination());
            detail::forget_last_destination();
            record(changes % 2 == 0 ? mask : 8);
        }
    };
    writers.emplace_back(change, "a", 8);
    writers.emplace_back(change, "b", 4 | 8);
    for (auto& writer : writers) {
        writer.join();
    }
    std::map<std::string, int> seen;
    for (std::string const file : {"a", "b", fallback_.c_str()}) {
        for (auto const& message : messages(directory_ / file)) {
            if (message.find("Reset") != 0 && message.find("Unable") != 0) {
                ++seen[message];
            }
        }
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(threads) * count);
    EXPECT_TRUE(
        std::all_of(seen.begin(), seen.end(), [](auto const& each) { return each.second == 1; }));
}

/// Runs \p work in a child process, which ends without running anything else.
pid_t in_child(std::function<void()> const& work) noexcept {
    pid_t const child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    return child;
}

int wait_for(pid_t child) {
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

TEST_F(Log, KeepsEntriesOfProcessesApart) {
    constexpr int processes = 8, count = 200;
    std::vector<pid_t> children;
    for (int process = 0; process != processes; ++process) {
        children.push_back(in_child([this, process] {
            Logger const log(name("log"));
            std::mt19937 random(static_cast<unsigned>(process));
            for (int number = 0; number != count; ++number) {
                append_message(std::string(1 + random() % 65536, static_cast<char>('a' + process)));
            }
        }));
    }
    for (auto const child : children) {
        EXPECT_EQ(wait_for(child), 0);
    }
    auto const entries = messages(directory_ / "log");
    EXPECT_EQ(entries.size(), static_cast<std::size_t>(processes) * count);
    for (auto const& entry : entries) {
        ASSERT_EQ(entry.find_first_not_of(entry.front()), std::string::npos);
    }
}

TEST_F(Log, LosesNoReturnedEntryToACrash) {
    std::mt19937 random(1);
    for (int round = 0; round != 50; ++round) {
        int returned[2];
        ASSERT_EQ(::pipe(returned), 0);
        pid_t const child = in_child([&] {
            Logger const log(name("log"));
            for (int number = 0;; ++number) {
                append_message(std::to_string(number));
                if (::write(returned[1], &number, sizeof number) < 0) {
                    return;
                }
            }
        });
        ::close(returned[1]);
        int last = -1;
        auto const enough = static_cast<int>(random() % 500);
        while ((last < enough) && ::read(returned[0], &last, sizeof last) > 0) {}
        ::kill(child, SIGKILL);
        while (::read(returned[0], &last, sizeof last) > 0) {}
        ::close(returned[0]);
        EXPECT_TRUE(WIFSIGNALED(wait_for(child)));
        // What comes behind was being written: it may be there, in part or not at all.
        std::string expected;
        for (int number = 0; number <= last; ++number) {
            expected += "T " + std::to_string(number) + '\n';
        }
        ASSERT_EQ(content("log").substr(0, expected.size()), expected);
        fs::remove(directory_ / "log");
    }
}

TEST_F(Log, LeavesNoDescriptorOpen) {
    auto const descriptors = [] {
        fs::directory_iterator const open("/proc/self/fd");
        return std::distance(begin(open), end(open));
    };
    write_file(directory_ / "malformed", "\xFF");
    auto const before = descriptors();
    for (int round = 0; round != 10'000; ++round) {
        append_message(u"to the fallback");
        EXPECT_THROW(Logger(Path(u"/proc/none")), std::runtime_error);
        EXPECT_THROW(Logger const log{Path()}, std::runtime_error);
        Logger const log(name("log"));
        append_message(u"to the log");
        EXPECT_THROW(append_file(name("none")), std::runtime_error);
        EXPECT_THROW(append_file(u"/"), std::runtime_error);
        EXPECT_THROW(append_file(name("malformed")), TextConversionError);
        EXPECT_THROW(append_message(u"\xD800"), TextConversionError);
        append_file(u"/dev/null");
    }
    EXPECT_EQ(descriptors(), before);
}

}  // namespace
}  // namespace install::cpputil::logger
