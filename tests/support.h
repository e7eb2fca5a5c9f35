#pragma once

// What the tests share: real files, the environment, other users, and the records of the library.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "platform/diagnostic_channel.h"
#include "platform/path.h"
#include "platform/text_conversion.h"

namespace install::cpputil::testing {

inline std::u16string utf16(std::filesystem::path const& path) {
    return TextConversion::fromUtf8(path.native());
}

/// A directory of its own for one test, open to every user, removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = std::filesystem::temp_directory_path() / "install_cpputil_XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary directory " + name);
        }
        path_ = name;
        std::filesystem::permissions(path_, std::filesystem::perms::all);
    }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
    ~TemporaryDirectory() {
        // Without its permissions, only root could remove what a test has locked.
        std::filesystem::permissions(path_, std::filesystem::perms::all);
        for (auto const& entry : std::filesystem::recursive_directory_iterator(path_)) {
            if (entry.symlink_status().type() == std::filesystem::file_type::directory) {
                std::filesystem::permissions(entry, std::filesystem::perms::all);
            }
        }
        std::filesystem::remove_all(path_);
    }

    std::filesystem::path operator/(std::string const& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline void write_file(std::filesystem::path const& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string read_file(std::filesystem::path const& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The messages of a log whose messages have one line each, without their time stamps.
inline std::vector<std::string> messages(std::filesystem::path const& log) {
    constexpr std::size_t stamp = std::string_view("(Nov 16, 2026 17:22:45) ").size();
    std::vector<std::string> result;
    std::ifstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        EXPECT_TRUE(line.size() > stamp && line[0] == '(' && line.substr(stamp - 2, 2) == ") ")
            << line;
        result.push_back(line.substr(std::min(stamp, line.size())));
    }
    return result;
}

/// Gives an environment variable a value, or none, and puts the earlier one back.
class ScopedVariable {
public:
    ScopedVariable(char const* name, std::optional<std::string> const& value) : name_(name) {
        if (char const* const earlier = ::getenv(name)) {
            earlier_ = earlier;
        }
        set(value);
    }
    ScopedVariable(ScopedVariable const&) = delete;
    ScopedVariable& operator=(ScopedVariable const&) = delete;
    ~ScopedVariable() { set(earlier_); }

private:
    void set(std::optional<std::string> const& value) {
        value ? ::setenv(name_, value->c_str(), 1) : ::unsetenv(name_);
    }

    char const* name_;
    std::optional<std::string> earlier_;
};

/// Makes the process act as another user, since permissions mean nothing to root. Whoever else runs
/// the tests is bound by permissions as it is.
class ScopedUser {
public:
    static constexpr uid_t nobody = 65534;
    static constexpr uid_t nameless = 60123;

    explicit ScopedUser(uid_t user = nobody) : earlier_(::geteuid()) {
        if (earlier_ == 0 && ::seteuid(user) != 0) {
            throw std::runtime_error("cannot drop privileges");
        }
    }
    ScopedUser(ScopedUser const&) = delete;
    ScopedUser& operator=(ScopedUser const&) = delete;
    ~ScopedUser() {
        if (::seteuid(earlier_) != 0) {
            std::abort();
        }
    }

private:
    uid_t earlier_;
};

/// Sends the process a signal every few milliseconds; its handler lets system calls be broken off.
class FrequentSignals {
public:
    FrequentSignals() {
        struct sigaction action = {};
        action.sa_handler = [](int) { count = count + 1; };
        ::sigaction(SIGALRM, &action, &earlier_);
        itimerval const often = {{0, 5'000}, {0, 5'000}};
        ::setitimer(ITIMER_REAL, &often, nullptr);
    }
    FrequentSignals(FrequentSignals const&) = delete;
    FrequentSignals& operator=(FrequentSignals const&) = delete;
    ~FrequentSignals() {
        itimerval const never = {};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &earlier_, nullptr);
    }

    /// How many have come.
    static inline volatile std::sig_atomic_t count = 0;

private:
    struct sigaction earlier_ = {};
};

/// Severities and texts of diagnostic records.
using Records = std::vector<std::pair<int, std::string>>;

/// Switches a channel on and gathers its records from a sink that is registered with the logging
/// core; switches the channel off again.
class RecordSink {
public:
    explicit RecordSink(std::string channel, unsigned mask = 4 | 8) : channel_(std::move(channel)) {
        boost::log::core::get()->add_sink(sink_);
        DiagnosticChannel::setEnabledSeverities(channel_, mask);
    }
    RecordSink(RecordSink const&) = delete;
    RecordSink& operator=(RecordSink const&) = delete;
    ~RecordSink() {
        DiagnosticChannel::setEnabledSeverities(channel_, 0);
        boost::log::core::get()->remove_sink(sink_);
    }

    /// Returns the records since the last call.
    Records take() { return std::exchange(sink_->locked_backend()->records, {}); }

private:
    struct Backend
        : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
        explicit Backend(std::string name) : channel(std::move(name)) {}

        void consume(boost::log::record_view const& record) {
            EXPECT_EQ(boost::log::extract_or_throw<std::string>("Channel", record), channel);
            records.emplace_back(boost::log::extract_or_throw<int>("Severity", record),
                                 record[boost::log::expressions::smessage].get());
        }

        std::string channel;
        Records records;
    };
    using Sink = boost::log::sinks::synchronous_sink<Backend>;

    std::string channel_;
    boost::shared_ptr<Sink> sink_ = boost::make_shared<Sink>(boost::make_shared<Backend>(channel_));
};

/// Returns the text of the exception of type \p Error that \p call throws; a failure otherwise.
template <typename Error, typename Call>
std::string error_text(Call call) {
    try {
        call();
    } catch (Error const& error) {
        EXPECT_EQ(typeid(error), typeid(Error)) << error.what();
        return error.what();
    } catch (std::exception const& error) {
        ADD_FAILURE() << "another exception: " << error.what();
        return {};
    }
    ADD_FAILURE() << "no exception";
    return {};
}

}  // namespace install::cpputil::testing
