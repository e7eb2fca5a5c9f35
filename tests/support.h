#pragma once

// What the tests share: real files, the environment, other users, and the records of the library.

#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>
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

/// A table of cases.
template <typename... Columns>
using Rows = std::vector<std::tuple<Columns...>>;

/// Puts something back, by its deleter, when it goes out of scope or is reset.
using Undo = std::shared_ptr<void>;

inline std::u16string utf16(fs::path const& path) {
    return TextConversion::fromUtf8(path.native());
}

/// A directory of its own for one test, open to every user, removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no temporary directory " + path_);
        }
        fs::permissions(path_, fs::perms::all);
        removal_ = Undo(nullptr, [path = "'" + path_ + "'"](void*) {
            // Without its permissions, only root could remove what a test has locked.
            EXPECT_EQ(std::system(("chmod -R u+rwX " + path + "; rm -r " + path).c_str()), 0);
        });
    }

    fs::path operator/(std::string const& name) const { return fs::path(path_) / name; }

private:
    std::string path_ = fs::temp_directory_path() / "install_cpputil_XXXXXX";
    Undo removal_;
};

/// Makes the file \p path hold \p content, for everyone to use; returns its name.
inline std::string write_file(fs::path const& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
    fs::permissions(path, fs::perms::all);
    return path;
}

inline void lock(fs::path const& path) {
    fs::permissions(path, fs::perms::none);
}

inline std::string read_file(fs::path const& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The messages of a log whose messages have one line each, without their time stamps.
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

/// Gives an environment variable a value, or none.
[[nodiscard]] inline Undo with_variable(char const* name, std::optional<std::string> const& value) {
    auto const set = [name](std::optional<std::string> const& text) {
        text ? ::setenv(name, text->c_str(), 1) : ::unsetenv(name);
    };
    char const* const present = ::getenv(name);
    auto const earlier = present ? std::optional<std::string>(present) : std::nullopt;
    set(value);
    return {nullptr, [=](void*) { set(earlier); }};
}

/// Makes the process act as another user, since permissions mean nothing to root. Whoever else runs
/// the tests is bound by permissions as it is.
[[nodiscard]] inline Undo as_user(uid_t user = 65534) {
    auto const earlier = ::geteuid();
    if (earlier == 0 && ::seteuid(user) != 0) {
        throw std::runtime_error("cannot drop privileges");
    }
    return {nullptr, [=](void*) { EXPECT_EQ(::seteuid(earlier), 0); }};
}

/// How many signals of `with_signals` have come.
inline std::atomic<int> signal_count = 0;

/// Sends the process a signal every few milliseconds; its handler lets system calls be broken off.
[[nodiscard]] inline Undo with_signals() {
    auto const ring = [](suseconds_t interval) {
        itimerval const timer = {{0, interval}, {0, interval}};
        ::setitimer(ITIMER_REAL, &timer, nullptr);
    };
    struct sigaction action = {}, earlier = {};
    action.sa_handler = [](int) { ++signal_count; };
    ::sigaction(SIGALRM, &action, &earlier);
    ring(5'000);
    return {nullptr, [=](void*) {
                ring(0);
                ::sigaction(SIGALRM, &earlier, nullptr);
            }};
}

/// Switches a channel on and gathers its records from a sink that is registered with the logging
/// core; switches the channel off again.
class RecordSink {
public:
    explicit RecordSink(std::string const& channel, unsigned mask = 4 | 8) {
        sink_->locked_backend()->channel = channel;
        boost::log::core::get()->add_sink(sink_);
        DiagnosticChannel::setEnabledSeverities(channel, mask);
        removal_ = Undo(nullptr, [channel, sink = sink_](void*) {
            DiagnosticChannel::setEnabledSeverities(channel, 0);
            boost::log::core::get()->remove_sink(sink);
        });
    }

    /// Returns the records since the last call, each as its severity, a colon and its text.
    Strings take() { return std::exchange(sink_->locked_backend()->records, {}); }

    /// Lets the sink throw at every record from now on whose text holds \p text.
    void fail(std::string const& text = "") { sink_->locked_backend()->refused = text; }

private:
    struct Backend
        : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
        void consume(boost::log::record_view const& record) {
            EXPECT_EQ(boost::log::extract_or_throw<std::string>("Channel", record), channel);
            auto const severity = boost::log::extract_or_throw<int>("Severity", record);
            auto const& text = record[boost::log::expressions::smessage].get();
            if (refused && text.find(*refused) != std::string::npos) {
                throw std::logic_error("sink");
            }
            records.push_back(std::to_string(severity) + ":" + text);
        }

        std::string channel;
        Strings records;
        std::optional<std::string> refused;
    };
    using Sink = boost::log::sinks::synchronous_sink<Backend>;

    boost::shared_ptr<Sink> sink_ = boost::make_shared<Sink>(boost::make_shared<Backend>());
    Undo removal_;
};

/// Returns the text of the exception of type \p Error that \p call throws; a failure otherwise.
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
