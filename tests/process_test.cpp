// The library while its process exits, forks, cancels threads or is killed.

#include "tests/processes.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>

#include <chrono>
#include <cstdlib>

#include "platform/file_system_service.h"
#include "tests/log.h"
#include "utilities/input_file_parser.h"
#include "utilities/interrupt.h"

namespace {

/// Set in a child that exits while its threads run, or that was forked while its parent's threads
/// ran: the memory of these threads cannot be freed.
bool has_leaks = false;

}  // namespace

// Hooks of the sanitizers. AddressSanitizer does not notice that a cancellation unwinds the stack,
// and then reports its own call of sigaltstack as an error.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" char const* __asan_default_suppressions() {
    return "interceptor_name:sigaltstack";
}
extern "C" int __lsan_is_turned_off() {
    return has_leaks ? 1 : 0;
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace install::cpputil::tests {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// Repeats \p use until the thread is cancelled or the process exits.
std::thread repeat(std::function<void()> use) {
    return std::thread([use = std::move(use)] {
        for (;;) {
            ::pthread_testcancel();
            use();
        }
    });
}

class Process : public LogTest {
protected:
    /// Starts threads that use the services until they are cancelled or the process exits.
    std::vector<std::thread> startBusyThreads(std::u16string const& destination,
                                              unsigned mask = 0) {
        std::vector<std::thread> threads;
        threads.push_back(repeat([destination] {
            append_message(std::string("entry"));
            if (!destination.empty()) {
                Logger const log(destination);
            }
        }));
        threads.push_back(repeat([] { append_message(std::string("entry")); }));
        threads.push_back(repeat([] { static_cast<void>(get_destination()); }));
        threads.push_back(
            repeat([destination] { FileSystemService::setInstallRoot(destination); }));
        threads.push_back(
            repeat([mask] { DiagnosticChannel::setEnabledSeverities(channel_name, mask); }));
        threads.push_back(repeat([] { static_cast<void>(FileSystemService::installRoot()); }));
        threads.push_back(repeat([] { static_cast<void>(PlatformInfo().userName()); }));
        return threads;
    }

    /// Blocks three threads forever, in sinks of different channels, one under the log's lock.
    void blockSinks() {
        static auto& sinks = *new std::vector<std::unique_ptr<RecordSink>>;
        static std::atomic<unsigned> blocked = 0;
        for (std::string const service : {"logger", "interrupt", "InputFileParser"}) {
            sinks.push_back(std::make_unique<RecordSink>("install::cpputil::" + service));
            sinks.back()->callForEach([](std::string const& record) {
                while (record.find("4: msg=") != 0) {
                    ++blocked;
                    ::pause();
                }
            });
        }
        auto const inputs = utf16(write_file(path("inputs"), "a=1\n"));
        std::thread([] { append_message(u"without a destination"); }).detach();
        std::thread([] { interrupt::set(); }).detach();
        std::thread([inputs] { InputFileParser().parse(inputs); }).detach();
        while (blocked != sinks.size()) {
            std::this_thread::yield();
        }
    }

    /// Runs \p work in a child and returns how long that takes.
    steady_clock::duration durationOf(std::function<void()> const& work) {
        auto const start = steady_clock::now();
        EXPECT_EQ(status_of(start_child(work)), 0);
        return steady_clock::now() - start;
    }

    /// Expects only whole entries in \p file: messages "entry" and reports of a new destination.
    void expectEntries(std::string const& file) {
        for (auto const& message : messages(path(file))) {
            EXPECT_TRUE(message == "entry" || message.find("Reset destination file log ") == 0)
                << message;
        }
        auto const text = read_file(path(file));
        EXPECT_TRUE(text.empty() || text.back() == '\n') << file;
    }
};

TEST_F(Process, WritesWholeEntriesUntilItExits) {
    fs::create_directory(path("cwd"));
    for (unsigned round = 0; round != 60; ++round) {
        auto const child = [&] {
            has_leaks = true;
            fs::current_path(path("cwd"));
            auto const threads =
                startBusyThreads(round % 2 == 0 ? name("log") : u"", round % 3 * 4);
            for (unsigned count = 0; count != 4 * round; ++count) {
                append_message(std::string("entry"));
            }
            std::exit(0);
        };
        ASSERT_EQ(status_of(start_child(child)), 0);
        EXPECT_TRUE(fs::is_empty(path("cwd")));  // No file with a damaged name.
        for (auto const& file : {std::string("log"), fallback_}) {
            expectEntries(file);
            fs::remove(path(file));
        }
    }
}

// Three blocked sinks must delay the exit by one second, not three. The pending cancellation must
// not end the wait.
TEST_F(Process, WaitsASecondForAllSinksAtExit) {
    auto const exit = [this] {
        blockSinks();
        std::thread([] {
            ::pthread_cancel(::pthread_self());
            std::exit(0);
        }).join();
    };
    auto const duration = durationOf(exit);
    EXPECT_GE(duration, 1s);
    EXPECT_LT(duration, 2500ms);
}

TEST_F(Process, ForksAfterASecondWhileSinksAreBlocked) {
    auto const fork = [this] {
        blockSinks();
        auto const duration = durationOf([this] {
            enableRecords(0);
            Logger const log(name("log"));
            append_message(std::string("entry"));
            has_leaks = true;
            std::exit(0);
        });
        EXPECT_GE(duration, 1s);
        EXPECT_LT(duration, 2500ms);
    };
    EXPECT_EQ(status_of(start_child(fork)), 0);
    EXPECT_THAT(messages(path("log")), ElementsAre("entry"));
}

// Not run with AddressSanitizer or qemu: both lock mutexes of their own that they do not release in
// the child if another thread holds them during the fork.
TEST_F(Process, ForksBesideBusyThreads) {
    auto const child = [this] {
        // Never destroyed: the process exits while its threads run.
        [[maybe_unused]] auto const* const threads = new std::vector(startBusyThreads(name("log")));
        Logger const log(name("log"));
        for (int round = 0; round != 30; ++round) {
            auto const grandchild = [&] {
                Logger const own(name("child"));
                append_message(std::string("entry"));
                static_cast<void>(FileSystemService::installRoot());
                static_cast<void>(PlatformInfo().userName());
                enableRecords(0);
            };
            EXPECT_EQ(status_of(start_child(grandchild)), 0) << "round " << round;
            EXPECT_THAT(messages(path("child")), ::testing::Contains("entry"));
            fs::remove(path("child"));
        }
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
    expectEntries("log");
}

// The record of a lost entry is written under the log's lock.
TEST_F(Process, ForksInASink) {
    Logger const log(name("dir/log"));
    fs::remove_all(path("dir"));
    auto const fork = [this] {
        pid_t grandchild = -1;
        callAtRecord(1, [&] {
            grandchild = ::fork();
            append_message(u"ignored");
            EXPECT_EQ(get_destination().string(), name("dir/log"));
        });
        append_message(u"lost");
        append_message(u"lost");
        EXPECT_TRUE(grandchild == 0 || status_of(grandchild) == 0);
    };
    EXPECT_EQ(status_of(start_child(fork)), 0);
}

TEST_F(Process, ExitsInASink) {
    Logger const log(name("dir/log"));
    fs::remove_all(path("dir"));
    auto const exit = [this] {
        callAtRecord(1, [] { std::exit(0); });
        append_message(u"lost");
        ADD_FAILURE() << "still running";
    };
    EXPECT_LT(durationOf(exit), 900ms);
}

TEST_F(Process, CancelsBusyThreads) {
    auto const child = [this] {
        for (int round = 0; round != 100; ++round) {
            ::close(STDIN_FILENO);  // The log must not use its number.
            auto threads = startBusyThreads(name("log"));
            threads.push_back(repeat([] { DiagnosticChannel const channel("test"); }));
            for (auto& thread : threads) {
                ::pthread_cancel(thread.native_handle());
            }
            for (auto& thread : threads) {
                thread.join();
            }
        }
        Logger const log(name("log"));
        append_message(std::string("entry"));
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
    EXPECT_EQ(messages(path("log")).back(), "entry");
    expectEntries("log");
}

TEST_F(Process, CancelsThreadsThatWaitForAPipe) {
    auto const pipe = path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    Logger const log(name("log"));
    std::function<void()> const waits[] = {[&] { InputFileParser().parse(utf16(pipe)); },
                                           [&] { append_file(pipe); }};
    for (auto const& wait : waits) {
        std::thread waiting(wait);
        ::pthread_cancel(waiting.native_handle());
        waiting.join();
    }
    append_message(std::string("entry"));
    EXPECT_THAT(messages(path("log")), ElementsAre("entry"));
}

TEST_F(Process, CompletesAnEntryInProgressAtExit) {
    ASSERT_EQ(::mkfifo(path("log").c_str(), 0600), 0);
    int const reader = ::open(path("log").c_str(), O_RDONLY | O_NONBLOCK);
    static int exiting[2];
    ASSERT_EQ(::pipe(exiting), 0);
    // Larger than the capacity of a pipe, but soon read.
    std::string const message(100'000, 'x');
    auto const child = start_child([&] {
        Logger const log(name("log"));
        std::thread([&] { append_message(message); }).detach();
        for (pollfd entry = {reader, POLLIN, 0}; (entry.revents & POLLIN) == 0;) {
            ::poll(&entry, 1, -1);
        }
        std::atexit([] { ::close(exiting[1]); });
        std::exit(0);
    });
    ::close(exiting[1]);
    char byte = 0;
    EXPECT_EQ(::read(exiting[0], &byte, 1), 0);  // Returns when the child has begun to exit.
    ::fcntl(reader, F_SETFL, 0);
    std::string written, block(65536, '\0');
    ssize_t size = 0;
    while ((size = ::read(reader, block.data(), block.size())) > 0) {
        written.append(block, 0, static_cast<std::size_t>(size));
    }
    EXPECT_TRUE(unstamped(written) == "T " + message + "\n");
    EXPECT_EQ(status_of(child), 0);
    ::close(exiting[0]);
    ::close(reader);
}

TEST_F(Process, DoesNotAcquireAControllingTerminal) {
    int const terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(::grantpt(terminal) + ::unlockpt(terminal), 0);
    std::string const name = ::ptsname(terminal);
    auto const child = [&] {
        ::setsid();
        Logger const log(name);
        append_message(u"x");
        EXPECT_EQ(::open("/dev/tty", O_RDWR), -1);
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
    ::close(terminal);
}

// Each process is killed while it writes. Only its last entry may be incomplete.
TEST_F(Process, KeepsItsEntriesWhenItIsKilled) {
    auto const message = [](std::size_t process, std::size_t number) {
        return std::string(1 + number * 7919 % 65536, "abcdefgh"[process]) + std::to_string(number);
    };
    // The number of calls that have returned in each process.
    auto* const counts = static_cast<std::atomic<std::size_t>*>(
        ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::vector<pid_t> writers;
    while (writers.size() != 8) {
        writers.push_back(start_child([&] {
            Logger const log(name("log"));
            for (auto& count = counts[writers.size()];; ++count) {
                append_message(message(writers.size(), count));
            }
        }));
    }
    for (std::size_t writer = 0; writer != writers.size(); ++writer) {
        // Ends if a writer dies early; its status is then missing below.
        while (counts[writer] < 50 && ::waitpid(writers[writer], nullptr, WNOHANG) == 0) {
            std::this_thread::yield();
        }
        ::kill(writers[writer], SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(status_of(writers[writer])));
    }
    auto const log = read_file(path("log"));
    for (std::size_t writer = 0; writer != writers.size(); ++writer) {
        std::size_t position = 0;
        for (std::size_t number = 0; number != counts[writer]; ++number) {
            position = log.find(") " + message(writer, number) + "\n", position);
            ASSERT_NE(position, std::string::npos) << writer << ": entry " << number;
        }
    }
}

}  // namespace
}  // namespace install::cpputil::tests
