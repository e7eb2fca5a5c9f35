#include "utilities/logger.h"

#include <fcntl.h>
#include <poll.h>

#include <future>
#include <regex>
#include <set>

#include "platform/file_system_service.h"
#include "platform/platform_info.h"
#include "tests/support.h"

namespace install::cpputil::logger {
namespace {

using namespace testing;

constexpr char const* channel_name = "install::cpputil::logger";

/// Returns \p text with "T " instead of each time stamp.
std::string unstamped(std::string const& text) {
    static std::regex const stamp(R"(\([A-Z][a-z]{2} \d\d, \d{4} \d\d:\d\d:\d\d\) )");
    return std::regex_replace(text, stamp, "T ");
}

class Log : public ::testing::Test {
protected:
    Log() { detail::forget_last_destination(); }
    ~Log() override { EXPECT_EQ(open_descriptors(), descriptors_); }

    std::u16string name(std::string const& file) const { return utf16(directory_ / file); }
    std::string content(std::string const& file) const {
        return unstamped(read_file(directory_ / file));
    }
    bool hasFallback() const { return fs::exists(directory_ / fallback_); }

    void record(unsigned mask = 4 | 8) {
        DiagnosticChannel::setEnabledSeverities(channel_name, mask);
    }
    /// The records since the last call, with D instead of the test's directory.
    Strings records() {
        auto result = sink_.take();
        for (auto& record : result) {
            record =
                std::regex_replace(unstamped(record), std::regex((directory_ / "").native()), "D/");
        }
        return result;
    }
    /// Calls \p action at one record that this thread writes from now on; \p number 0 is the first.
    void callAtRecord(int number, std::function<void()> const& action) {
        record();
        sink_.callForEach([=, thread = std::this_thread::get_id(), count = 0](auto&) mutable {
            if (std::this_thread::get_id() == thread && count++ == number) {
                action();
            }
        });
    }
    void endRecords() {
        sink_.callForEach(nullptr);
        record(0);
    }

    /// The destination and the last destination, relative to the test's directory.
    std::string destinations() const {
        auto const shown = [this](Path const& path) {
            auto const& file = path.narrowName();
            return file.empty() ? "" : fs::relative(file, directory_ / "").native();
        };
        return shown(get_destination()) + "|" + shown(detail::get_last_destination());
    }

    /// The record of an entry that could not be written.
    static std::string notOpened(std::string const& message) {
        return "4:failed to open destination_file for u8msg T " + message;
    }

    std::ptrdiff_t const descriptors_ = open_descriptors();
    TemporaryDirectory directory_;
    std::string const fallback_ = "velmora_" + PlatformInfo().userName() + ".log";
    Undo temp_ = with_variable("TMPDIR", directory_ / "");
    RecordSink sink_{channel_name, 0};
};

TEST_F(Log, StampsEntriesWithLocalTime) {
    // In this zone, it is afternoon, when a 12-hour clock would differ from a 24-hour clock.
    auto const hour = std::time(nullptr) / 3600 % 24;
    auto const zone = with_variable("TZ", "XYZ" + std::to_string((hour + 24 - 15) % 24));
    ::tzset();
    auto const* const pattern = "(%b %d, %Y %H:%M:%S) x\n";
    auto const before = PlatformInfo::currentTime(pattern);
    append_message(u"x");
    auto const written = read_file(directory_ / fallback_);
    EXPECT_TRUE(written == before || written == PlatformInfo::currentTime(pattern)) << written;
}

TEST_F(Log, CreatesItsDestination) {
    record();
    Logger const log(name("new/dir//a"));
    EXPECT_EQ(destinations(), "new/dir/a|");
    EXPECT_THAT(records(), ElementsAre("4:set destinationD/new/dir/a",
                                       "4: destination_file.string()=D/new/dir/a"));
    EXPECT_EQ(content("new/dir/a"), "");
}

TEST_F(Log, AppendsEntriesToItsDestination) {
    Logger const log(write_file(directory_ / "log", "kept\n"));
    record();
    append_message(u" \u00e9 two\nlines\n");
    append_message(std::string("x"));
    append_message(std::string());
    append_message(std::u16string());
    EXPECT_EQ(content("log"), "kept\nT  \xC3\xA9 two\nlines\n\nT x\n");
    EXPECT_THAT(records(),
                ElementsAre("4: msg= \xC3\xA9 two\nlines\n", "4: msg=x", "4: msg=", "4: msg="));
    EXPECT_FALSE(hasFallback());
}

TEST_F(Log, ReportsAChangeOfItsDestination) {
    auto const a = (directory_ / "a").native(), b = (directory_ / "b").native();
    std::optional<Logger> outer(a), inner;
    record();
    inner.emplace(Path(name("b")));
    EXPECT_THAT(
        records(),
        ElementsAre("4:set destinationD/b", "4: destination_file.string()=D/a ofile.string()=D/b",
                    "4: msg=Reset destination file log D/a to D/b", "8:flush destination",
                    "4: last_destination_file.string()=D/a", "8:unset destination",
                    "4: destination_file.string()=D/b"));
    EXPECT_EQ(destinations(), "b|a");
    Logger const back(detail::get_last_destination());
    EXPECT_EQ(destinations(), "a|b");
    Logger const again(get_destination());
    EXPECT_EQ(destinations(), "a|a");
    std::string const change = "T Reset destination file log ";
    EXPECT_EQ(content("a"), change + a + " to " + b + "\n" + change + a + " to " + a + "\n");
    EXPECT_EQ(content("b"), change + b + " to " + a + "\n");
}

TEST_F(Log, KeepsTheLastDestinationUntilItIsForgotten) {
    std::optional<Logger> outer(name("a")), inner(name("b"));
    record();
    inner.reset();
    EXPECT_EQ(destinations(), "|b");
    EXPECT_THAT(records(),
                ElementsAre("8:flush destination", "4: last_destination_file.string()=D/b",
                            "8:unset destination"));
    outer.reset();
    EXPECT_EQ(destinations(), "|b");
    EXPECT_THAT(records(), ElementsAre("4:no destination, keep last \"D/b\""));
    outer.emplace(name("a"));
    EXPECT_EQ(destinations(), "a|b");
    detail::forget_last_destination();
    EXPECT_EQ(destinations(), "a|");
}

TEST_F(Log, FallsBackToAFileOfTheUser) {
    record();
    append_message(u"one");
    EXPECT_THAT(records(), ElementsAre("4: msg=one", notOpened("one")));
    for (auto const& [user, file] :
         {std::pair(65534U, "velmora_nobody.log"), {60123U, "velmora_.log"}}) {
        auto const child = [&, &id = user] {
            auto const other = as_user(id);
            append_message(u"two");
        };
        if (::geteuid() == 0) {
            EXPECT_EQ(status_of(start_child(child)), 0);
            EXPECT_EQ(content(file), "T two\n");
        }
    }
    errno = EAGAIN;  // An earlier error, which has no effect.
    append_message(u"three");
    EXPECT_EQ(content(fallback_), "T one\nT three\n");
    EXPECT_EQ(fs::status(directory_ / fallback_).permissions(), fs::perms(0600));
    records();
    auto const unusable = with_variable("TMPDIR", "/dev/null/none");
    append_message(u"lost");
    EXPECT_THAT(records(), ElementsAre("4: msg=lost", notOpened("lost"), notOpened("lost")));
}

// Another user may create these entries in order to read, redirect or block what is written.
TEST_F(Log, RejectsAnUnsafeFallbackFile) {
    auto const path = directory_ / fallback_, target = directory_ / "target";
    write_file(target, "");
    int reader = -1;
    std::vector<std::function<void()>> plants = {
        [&] { fs::create_symlink(target, path); }, [&] { fs::create_symlink("missing", path); },
        [&] { fs::create_hard_link(target, path); }, [&] { ::mkfifo(path.c_str(), 0666); },
        [&] {
            ::mkfifo(path.c_str(), 0666);
            reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
        }};
    if (::geteuid() == 0) {  // Only root can give a file to another user.
        plants.emplace_back(
            [&] { EXPECT_EQ(::chown(write_file(path, "").c_str(), 65534, 65534), 0); });
    }
    for (auto const& plant : plants) {
        plant();
        record();
        append_message(u"x");
        EXPECT_THAT(records(), ElementsAre("4: msg=x", notOpened("x"), notOpened("x")));
        fs::remove(path);
    }
    ::close(reader);
    EXPECT_EQ(content("target"), "");
    EXPECT_FALSE(fs::exists(directory_ / "missing"));
}

TEST_F(Log, RejectsDestinationsThatCannotBeOpened) {
    auto const file = write_file(directory_ / "file", ""), d = (directory_ / "").native();
    write_file(directory_ / "log", "");
    ASSERT_EQ(::mkfifo((d + "pipe").c_str(), 0666), 0);
    fs::permissions(d + "pipe", fs::perms::all);
    fs::create_directory(directory_ / "closed");
    deny_access(directory_ / "closed");
    auto const user = as_user();
    // Each destination, and what the error names: the destination itself or its parent directory.
    auto const locked = d + "closed/x";
    std::map<std::string, std::string> const rows = {{"", ""},
                                                     {d, d},
                                                     {locked, locked},
                                                     {d + "pipe", d + "pipe"},
                                                     {file + "/x/y", file + "/x"},
                                                     {locked + "/y", locked}};
    for (auto const& [destination, reported] : rows) {
        bool const parent = destination != reported;
        auto const error = "Install Logger: Cannot " +
                           std::string(parent ? "create directory" : "open file") + " \"" +
                           reported + "\"";
        auto const entry = "Unable to create specified " + std::string(parent ? "folder" : "file") +
                           " for installation log " + reported;
        auto const set = [&text = destination] { Logger const rejected(text); };
        record();
        EXPECT_EQ(error_text<std::runtime_error>(set), error);
        EXPECT_THAT(sink_.take(),
                    ElementsAre("4:set destination" + destination, "4:set destination:" + error));

        Logger const log(name("log"));
        sink_.take();
        EXPECT_EQ(error_text<std::runtime_error>(set), error);
        EXPECT_THAT(sink_.take(), ElementsAre("4:set destination" + destination, "4: msg=" + entry,
                                              "4:set destination:" + error));
        record(0);
        EXPECT_EQ(get_destination().string(), name("log"));
        EXPECT_THAT(content("log"), ::testing::EndsWith("T " + entry + "\n"));
    }
    EXPECT_FALSE(hasFallback() || fs::exists(directory_ / "velmora_nobody.log"));
    EXPECT_THROW(Logger const log(std::u16string(u"a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(Logger const log(std::string("\xFF")), TextConversionError);
}

TEST_F(Log, KeepsItsDestinationIfASinkThrows) {
    std::optional<Logger> old;
    for (int const records : {3, 8}) {
        auto const before = destinations();
        int number = 0;
        for (bool thrown = true; thrown; ++number) {
            thrown = false;
            callAtRecord(number, [&] {
                thrown = true;
                throw std::logic_error("sink");
            });
            try {
                Logger const log(name("log"));
                endRecords();  // The destructor writes records, too.
            } catch (std::logic_error const&) {
                EXPECT_EQ(destinations(), before) << "record " << number;
            }
        }
        EXPECT_EQ(number, records);
        old.emplace(name("old"));
    }
}

// At each record of one change in turn, another thread starts a second change. The result must be the
// same as if one change had followed the other.
TEST_F(Log, ChangesItsDestinationAtomically) {
    std::map<std::string, std::optional<Logger>> loggers;
    auto const set = [&](std::string const& file) {
        return [&, file] { loggers[file].emplace(name(file)); };
    };
    auto const unset_a = [&] { loggers["a"].reset(); };
    struct Row {
        bool starts_with_a;
        std::function<void()> first, second;
    };
    Row const rows[] = {{false, set("b"), set("c")},
                        {true, set("b"), set("c")},
                        {true, unset_a, set("b")},
                        {true, set("b"), unset_a}};
    for (auto const& row : rows) {
        auto const result_of = [&](std::function<void()> const& changes) {
            for (std::string const file : {"a", "b", "c"}) {
                loggers[file].reset();
                fs::remove(directory_ / file);
            }
            if (row.starts_with_a) {
                set("a")();
            }
            detail::forget_last_destination();
            changes();
            endRecords();
            return destinations() + "|" + content("a") + content("b") + content("c");
        };
        auto const serial = result_of([&] { row.first(), row.second(); });
        auto const reversed = result_of([&] { row.second(), row.first(); });
        int number = 0;
        for (bool interrupted = true; interrupted; ++number) {
            std::future<void> second;
            auto const result = result_of([&] {
                callAtRecord(number, [&] {
                    second = std::async(std::launch::async, row.second);
                    // If the log is locked, the second change waits for the first one.
                    second.wait_for(std::chrono::milliseconds(20));
                });
                row.first();
                interrupted = second.valid();
                if (interrupted) {
                    second.get();
                }
            });
            EXPECT_TRUE(!interrupted || result == serial || result == reversed)
                << result << " instead of " << serial << " or " << reversed << ", record "
                << number;
        }
        EXPECT_GT(number, 2);
    }
}

TEST_F(Log, CopiesFiles) {
    auto const path = (directory_ / "file").native();
    std::string const lines = "\n\r\n \xE2\x82\xAC\r\n\n\nx", large(200'000, 'x');
    std::map<std::string, std::string> const copies = {
        {"", ""},     {"a", "a\n"},          {"a\n", "a\n"},
        {"\n", "\n"}, {lines, lines + "\n"}, {large + "\n" + large, large + "\n" + large + "\n"}};
    for (auto const& [text, copy] : copies) {
        Logger const log(name("log"));
        write_file(path, text);
        append_file(name("") + u"/file");  // Reported as given, not in its native form.
        append_file(path);
        append_file(Path(name("file")));
        std::string entries;
        for (auto const& file : {(directory_ / "").native() + "/file", path, path}) {
            entries +=
                "T Content of the file " + file + "\n" + copy + "End of the file " + file + "\n";
        }
        EXPECT_TRUE(content("log") == entries) << text.substr(0, 20);
        fs::remove(directory_ / "log");
    }
}

TEST_F(Log, RejectsFilesThatItCannotCopy) {
    deny_access(write_file(directory_ / "file", "a\n"));
    auto const error = [&](std::string const& file) {
        return error_text<std::runtime_error>([&] { append_file(name(file)); });
    };
    record();
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
    EXPECT_EQ(content("log") + content(fallback_), "");
}

TEST_F(Log, RejectsMalformedText) {
    write_file(directory_ / "file", "good\n\xC3(\n");
    Logger const log(name("log"));
    for (unsigned const mask : {0U, 4U}) {
        record(mask);
        EXPECT_THROW(append_message(u"half a pair \xD800"), TextConversionError);
        EXPECT_THROW(append_message(std::string("\xED\xA0\x80")), TextConversionError);
        EXPECT_THROW(append_file(name("file")), TextConversionError);
    }
    EXPECT_EQ(content("log"), "");
    EXPECT_THAT(records(), ElementsAre("4: line=good", "4: line=\xC3("));
}

TEST_F(Log, CreatesItsFileAgain) {
    Logger const log(name("dir/log"));
    append_message(u"one");
    fs::rename(directory_ / "dir/log", directory_ / "rotated");
    append_message(u"two");
    fs::remove(directory_ / "dir/log");
    append_message(u"three");
    EXPECT_EQ(content("rotated") + content("dir/log"), "T one\nT three\n");
}

TEST_F(Log, LosesEntriesWhileItsFileCannotBeWritten) {
    Logger const log(name("dir/log"));
    fs::remove_all(directory_ / "dir");
    record();
    append_message(u"lost");
    EXPECT_THAT(records(), ElementsAre("4: msg=lost", notOpened("lost")));
    fs::create_directory(directory_ / "dir");
    fs::create_symlink("/dev/full", directory_ / "dir/log");
    append_message(u"lost");
    EXPECT_FALSE(hasFallback());
}

TEST_F(Log, ReturnsItsDestinationAfterAnEntryInProgress) {
    Logger const log(name("dir/log"));
    fs::remove_all(directory_ / "dir");
    for (auto* const query : {get_destination, detail::get_last_destination}) {
        std::future<void> answer;
        callAtRecord(1, [&] {  // The record of a lost entry, which is written under the lock.
            answer = std::async(std::launch::async, [query] { static_cast<void>(query()); });
            EXPECT_EQ(answer.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        });
        append_message(u"lost");
        answer.get();
    }
}

TEST_F(Log, WritesEveryMessageOfEveryThreadOnce) {
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
    record(8);
    auto const change = [&](std::string const& file, unsigned mask) {
        for (int changes = 0; running != 0 || changes < 100; ++changes) {
            Logger const log(name(file));
            EXPECT_THROW(Logger const rejected{Path()}, std::runtime_error);
            EXPECT_THROW(append_file(name("none")), std::runtime_error);
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
    Strings written;
    for (std::string const file : {"a", "b", fallback_.c_str()}) {
        for (auto const& message : messages(directory_ / file)) {
            if (message.find("Reset") != 0 && message.find("Unable") != 0) {
                written.push_back(message);
            }
        }
    }
    EXPECT_EQ(written.size(), static_cast<std::size_t>(threads) * count);
    EXPECT_EQ(std::set(written.begin(), written.end()).size(), written.size());
}

/// Starts threads that use the services until they are cancelled or the process ends.
std::vector<std::thread> busy_threads(std::u16string const& destination, unsigned mask = 0) {
    static auto const& info = *new PlatformInfo;  // Threads may use it at exit.
    std::function<void()> const uses[] = {
        [destination] {
            append_message(std::string("entry"));
            if (!destination.empty()) {
                Logger const log(destination);
            }
        },
        [] { append_message(std::string("entry")), static_cast<void>(get_destination()); },
        [destination] { FileSystemService::setInstallRoot(destination); },
        [mask] { DiagnosticChannel::setEnabledSeverities(channel_name, mask); },
        [] { static_cast<void>(info.userName()); }};
    std::vector<std::thread> threads;
    for (auto const& use : uses) {
        threads.emplace_back([use] {
            for (;;) {
                ::pthread_testcancel();
                use();
            }
        });
    }
    return threads;
}

TEST_F(Log, WritesWholeEntriesUntilTheProcessExits) {
    fs::create_directory(directory_ / "cwd");
    for (unsigned round = 0; round != 60; ++round) {
        auto const child = [&] {
            fs::current_path(directory_ / "cwd");
            auto const threads = busy_threads(round % 2 == 0 ? name("log") : u"", round % 3 * 4);
            for (unsigned count = 0; count != 4 * round; ++count) {
                append_message(std::string("entry"));
            }
            std::exit(0);
        };
        ASSERT_EQ(status_of(start_child(child)), 0);
        EXPECT_TRUE(fs::is_empty(directory_ / "cwd"));  // No file with a damaged name.
        for (auto const& file : {std::string("log"), fallback_}) {
            auto const text = content(file);
            EXPECT_TRUE(text.empty() || text.back() == '\n');
            fs::remove(directory_ / file);
        }
    }
}

class LogInAPipe : public Log {
protected:
    ~LogInAPipe() override { ::close(reader_); }

    /// Starts an entry, which is not complete before the pipe is read.
    void startEntry() {
        std::thread([this] { append_message(message_); }).detach();
        for (pollfd entry = {reader_, POLLIN, 0}; (entry.revents & POLLIN) == 0;) {
            ::poll(&entry, 1, -1);
        }
    }

    int const made_ = ::mkfifo((directory_ / "log").c_str(), 0600);
    int const reader_ = ::open((directory_ / "log").c_str(), O_RDONLY | O_NONBLOCK);
    std::string const message_ = std::string(1'000'000, 'x');
};

TEST_F(LogInAPipe, CompletesAnEntryInProgressAtExit) {
    static int exiting[2];
    ASSERT_EQ(::pipe(exiting), 0);
    auto const child = start_child([this] {
        Logger const log(name("log"));
        startEntry();
        std::atexit([] { ::close(exiting[1]); });
        std::exit(0);
    });
    ::close(exiting[1]);
    char byte = 0;
    EXPECT_EQ(::read(exiting[0], &byte, 1), 0);  // Returns when the child has begun to exit.
    EXPECT_TRUE(content("log") == "T " + message_ + "\n");
    EXPECT_EQ(status_of(child), 0);
    ::close(exiting[0]);
}

TEST_F(LogInAPipe, DoesNotDelayForkOrExitForLong) {
    auto const child = [this] {
        Logger const log(name("log"));
        startEntry();
        EXPECT_EQ(status_of(start_child([] { static_cast<void>(get_destination()); })), 0);
        std::exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
}

TEST_F(Log, WorksInAForkedChild) {
    auto const child = [this] {
        // Never destroyed: the process ends while its threads run.
        [[maybe_unused]] auto const* const threads = new std::vector(busy_threads(name("log")));
        Logger const log(name("log"));
        for (int round = 0; round != 60; ++round) {
            auto const grandchild = [this] {
                append_message(std::string("entry"));
                Logger const again(name("log"));
                static_cast<void>(FileSystemService::installRoot());
                static_cast<void>(PlatformInfo().userName());
                record(0);
            };
            EXPECT_EQ(status_of(start_child(grandchild)), 0) << "round " << round;
        }
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
}

// The records of lost entries are written while the log is locked.
TEST_F(Log, AllowsASinkToForkOrExit) {
    Logger const log(name("dir/log"));
    fs::remove_all(directory_ / "dir");
    auto const forks = [this] {
        pid_t grandchild = -1;
        callAtRecord(1, [&] {
            grandchild = ::fork();
            ::alarm(20);
            append_message(u"ignored");
            EXPECT_EQ(get_destination().string(), name("dir/log"));
        });
        append_message(u"lost");
        append_message(u"lost");
        EXPECT_TRUE(grandchild == 0 || status_of(grandchild) == 0);
    };
    auto const exits = [this] {
        callAtRecord(1, [] { std::exit(0); });
        append_message(u"lost");
        ADD_FAILURE() << "still running";
    };
    EXPECT_EQ(status_of(start_child(forks)), 0);
    EXPECT_EQ(status_of(start_child(exits)), 0);
}

TEST_F(Log, WorksAfterThreadsAreCancelled) {
    auto const child = [this] {
        for (int round = 0; round != 100; ++round) {
            auto threads = busy_threads(name("log"));
            for (auto& thread : threads) {
                ::pthread_cancel(thread.native_handle());
            }
            for (auto& thread : threads) {
                thread.join();
            }
        }
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
}

// Each process is killed while it writes. Only its last entry may be incomplete.
TEST_F(Log, KeepsTheEntriesOfKilledProcesses) {
    auto const message = [](std::size_t process, std::size_t number) {
        return std::string(1 + number * 7919 % 65536, "abcdefgh"[process]) + std::to_string(number);
    };
    struct Process {
        pid_t id;
        int calls;  // A pipe that receives a byte after each call.
        std::size_t count;
    };
    std::vector<Process> processes;
    while (processes.size() != 8) {
        int calls[2] = {};
        ASSERT_EQ(::pipe(calls), 0);
        auto const child = start_child([&] {
            Logger const log(name("log"));
            for (std::size_t number = 0;; ++number) {
                append_message(message(processes.size(), number));
                EXPECT_EQ(::write(calls[1], "", 1), 1);
            }
        });
        ::close(calls[1]);
        processes.push_back({child, calls[0], 0});
    }
    for (auto& [id, calls, count] : processes) {
        for (char byte = 0; ::read(calls, &byte, 1) == 1;) {
            if (++count == 50) {
                ::kill(id, SIGKILL);
            }
        }
        ::close(calls);
        EXPECT_TRUE(WIFSIGNALED(status_of(id)));
    }
    auto const log = read_file(directory_ / "log");
    for (std::size_t process = 0; process != processes.size(); ++process) {
        std::size_t position = 0;
        for (std::size_t number = 0; number != processes[process].count; ++number) {
            position = log.find(") " + message(process, number) + "\n", position);
            ASSERT_NE(position, std::string::npos) << process << ": entry " << number;
        }
    }
}

}  // namespace
}  // namespace install::cpputil::logger
