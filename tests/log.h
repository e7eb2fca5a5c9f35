#pragma once

// Helpers for tests that read the installation log.

#include <algorithm>
#include <cstddef>
#include <regex>
#include <string_view>
#include <thread>

#include "platform/platform_info.h"
#include "tests/record_sink.h"
#include "utilities/logger.h"

namespace install::cpputil::tests {

using logger::append_file;
using logger::append_message;
using logger::get_destination;
using logger::Logger;
using logger::detail::get_last_destination;

/// Returns \p text with "T " instead of each time stamp.
inline std::string unstamped(std::string const& text) {
    static std::regex const stamp(R"(\([A-Z][a-z]{2} \d\d, \d{4} \d\d:\d\d:\d\d\) )");
    return std::regex_replace(text, stamp, "T ");
}

/// Returns the messages of \p log, which must have one line each, without their time stamps.
inline Strings messages(fs::path const& log) {
    constexpr std::size_t stamp = std::string_view("(Nov 16, 2026 17:22:45) ").size();
    Strings result;
    std::ifstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        EXPECT_THAT(line.substr(0, stamp), ::testing::MatchesRegex("\\(.{21}\\) ")) << line;
        result.push_back(line.substr(std::min(stamp, line.size())));
    }
    return result;
}

/// Provides a directory for log files, to which TMPDIR is set, and a sink for the log's records,
/// which are initially disabled.
class LogTest : public ::testing::Test {
protected:
    static constexpr char const* channel_name = "install::cpputil::logger";

    LogTest() { logger::detail::forget_last_destination(); }
    ~LogTest() override { EXPECT_EQ(open_descriptors(), descriptors_); }

    std::string path(std::string const& file) const { return directory_ / file; }
    std::u16string name(std::string const& file) const { return utf16(directory_ / file); }
    std::string content(std::string const& file) const { return unstamped(read_file(path(file))); }
    bool exists(std::string const& file) const { return fs::exists(path(file)); }

    void enableRecords(unsigned mask = 4 | 8) {
        DiagnosticChannel::setEnabledSeverities(channel_name, mask);
    }
    void disableRecords() {
        sink_.callForEach(nullptr);
        enableRecords(0);
    }
    /// The records since the last call, with D instead of the test's directory.
    Strings records() {
        auto result = sink_.take();
        for (auto& record : result) {
            record = shown(record);
        }
        return result;
    }
    std::string shown(std::string const& record) const {
        return std::regex_replace(unstamped(record), std::regex(path("")), "D/");
    }
    /// Enables records, and calls \p action at record \p number of this thread, counted from 0.
    void callAtRecord(int number, std::function<void()> const& action) {
        enableRecords();
        sink_.callForEach([=, thread = std::this_thread::get_id(), count = 0](auto&) mutable {
            if (std::this_thread::get_id() == thread && count++ == number) {
                action();
            }
        });
    }

    /// The destination and the last destination, relative to the test's directory.
    std::string destinations() const {
        auto const relative = [this](Path const& file) {
            return file.string().empty() ? "" : fs::relative(file.narrowName(), path("")).native();
        };
        return relative(get_destination()) + "|" + relative(get_last_destination());
    }

    /// The record of an entry whose file cannot be opened.
    static std::string notOpened(std::string const& message) {
        return "4:failed to open destination_file for u8msg T " + message;
    }

    std::ptrdiff_t const descriptors_ = open_descriptors();
    TemporaryDirectory directory_;
    std::string const fallback_ = "velmora_" + PlatformInfo().userName() + ".log";
    Undo temp_ = with_variable("TMPDIR", path(""));
    RecordSink sink_{channel_name, 0};
};

}  // namespace install::cpputil::tests
