#pragma once

// Helpers of the tests: files, environment variables, users, signals, child processes and records.

#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/make_shared.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/diagnostic_channel.h"
#include "platform/path.h"
#include "platform/text_conversion.h"

namespace install::cpputil::testing {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::PrintToString;

using Strings = std::vector<std::string>;

/// Restores an earlier state, by its deleter, when it goes out of scope or is reset.
using Undo = std::shared_ptr<void>;

inline std::u16string utf16(fs::path const& path) {
    return TextConversion::fromUtf8(path.native());
}

/// A directory for one test, writable by every user. The destructor removes it and its content.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("cannot create the directory " + path_);
        }
        fs::permissions(path_, fs::perms::all);
    }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    ~TemporaryDirectory() {
        // Without the first command, only root could remove what a test has made inaccessible.
        EXPECT_EQ(std::system(("chmod -R u+rwX " + path_ + "; rm -r " + path_).c_str()), 0);
    }

    fs::path operator/(std::string const& name) const { return fs::path(path_) / name; }

private:
    std::string path_ = fs::temp_directory_path() / "install_cpputil_XXXXXX";
};

/// Writes \p content to the file \p path, gives every user access to it and returns its name.
inline std::string write_file(fs::path const& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
    fs::permissions(path, fs::perms::all);
    return path;
}

inline void deny_access(fs::path const& path) {
    fs::permissions(path, fs::perms::none);
}

inline std::string read_file(fs::path const& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Returns the messages of \p log, which must have one line each, without their time stamps.
inline Strings messages(fs::path const& log) {
    constexpr std::size_t stamp = std::string_view("(Nov 16, 2026 17:22:45) ").size();
    Strings result;
    std::ifstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        EXPECT_TRUE(line.size() > stamp && line[0] == '(' && line.substr(stamp - 2, 2) == ") ");
        result.push_back(line.substr(std::min(stamp, line.size())));
    }
    return result;
}

inline std::ptrdiff_t open_descriptors() {
    fs::directory_iterator const open("/proc/self/fd");
    return std::distance(begin(open), end(open));
}

/// Sets an environment variable, or unsets it if there is no \p value.
[[nodiscard]] inline Undo with_variable(char const* name, std::optional<std::string> const& value) {
    auto const set = [name](std::optional<std::string> const& text) {
        text ? ::setenv(name, text->c_str(), 1) : ::unsetenv(name);
    };
    char const* const present = ::getenv(name);
    auto const earlier = present ? std::optional<std::string>(present) : std::nullopt;
    set(value);
    return {nullptr, [=](void*) { set(earlier); }};
}

/// Changes the effective user from root to \p user, because root ignores permissions. Does nothing if
/// the tests do not run as root.
[[nodiscard]] inline Undo as_user(uid_t user = 65534) {
    auto const earlier = ::geteuid();
    if (earlier == 0 && ::seteuid(user) != 0) {
        throw std::runtime_error("cannot drop privileges");
    }
    return {nullptr, [=](void*) { EXPECT_EQ(::seteuid(earlier), 0); }};
}

/// The number of signals received since the last call of `with_signals`.
inline std::atomic<int> signal_count = 0;

inline void await_signals(int count) {
    while (signal_count < count) {
        std::this_thread::yield();
    }
}

/// Sends the process a signal every five milliseconds, which interrupts system calls.
[[nodiscard]] inline Undo with_signals() {
    signal_count = 0;
    struct sigaction action = {}, earlier = {};
    action.sa_handler = [](int) { ++signal_count; };
    ::sigaction(SIGALRM, &action, &earlier);
    ::ualarm(5'000, 5'000);
    return {nullptr, [=](void*) {
                ::ualarm(0, 0);
                ::sigaction(SIGALRM, &earlier, nullptr);
            }};
}

/// A sink of the logging core that collects the records of one channel. The channel is enabled as
/// long as the sink exists.
class RecordSink {
public:
    using Hook = std::function<void(std::string const& text)>;

    explicit RecordSink(std::string const& channel, unsigned mask = 4 | 8) {
        backend_->channel = channel;
        auto const sink = boost::make_shared<boost::log::sinks::unlocked_sink<Backend>>(backend_);
        boost::log::core::get()->add_sink(sink);
        DiagnosticChannel::setEnabledSeverities(channel, mask);
        removal_ = Undo(nullptr, [channel, sink](void*) {
            DiagnosticChannel::setEnabledSeverities(channel, 0);
            boost::log::core::get()->remove_sink(sink);
        });
    }

    /// Returns the records since the last call, each as its severity, a colon and its text.
    Strings take() {
        std::lock_guard const lock(backend_->mutex);
        return std::exchange(backend_->records, {});
    }

    /// Calls \p hook with the text of each later record before the record is collected. No other
    /// thread may be writing records.
    void callForEach(Hook hook) { backend_->hook = std::move(hook); }

private:
    struct Backend : boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
        void consume(boost::log::record_view const& record) {
            EXPECT_EQ(boost::log::extract_or_throw<std::string>("Channel", record), channel);
            auto const severity = boost::log::extract_or_throw<int>("Severity", record);
            auto const text = record[boost::log::expressions::smessage].get();
            if (hook) {
                hook(text);
            }
            std::lock_guard const lock(mutex);
            records.push_back(std::to_string(severity) + ":" + text);
        }

        std::string channel;
        Hook hook;
        std::mutex mutex;
        Strings records;
    };

    boost::shared_ptr<Backend> backend_ = boost::make_shared<Backend>();
    Undo removal_;
};

/// Starts a child process that runs \p work and then ends, with status 1 if an expectation failed. The
/// system kills a child that runs for twenty seconds.
inline pid_t start_child(std::function<void()> const& work) noexcept {
    std::fflush(stdout);  // Otherwise, std::exit in the child would write the buffered text again.
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(20);
        work();
        ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

/// Waits for the end of \p child and returns its wait status.
inline int status_of(pid_t child) {
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

/// Returns the text of the exception of type \p Error that \p call throws. The test fails if it throws
/// none, or one of a derived type.
template <typename Error, typename Call>
std::string error_text(Call call) {
    try {
        call();
    } catch (Error const& error) {
        EXPECT_EQ(typeid(error), typeid(Error)) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "no exception";
    return {};
}

}  // namespace install::cpputil::testing
