// The cost of diagnostic records: an operation with records enabled, the same operation with
// records disabled, and the latter followed by the same records written directly to Boost.Log.

#include <benchmark/benchmark.h>

#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/make_shared.hpp>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/scratch.h"
#include "platform/diagnostic_channel.h"
#include "utilities/input_file_parser.h"
#include "utilities/interrupt.h"
#include "utilities/logger.h"

namespace {

using namespace install::cpputil;
namespace log = boost::log;

/// Registers a sink that drops every record, and sets the mask of a channel.
class DroppingSink {
public:
    DroppingSink(std::string channel, unsigned mask) : channel_(std::move(channel)) {
        log::core::get()->add_sink(sink_);
        DiagnosticChannel::setEnabledSeverities(channel_, mask);
    }
    DroppingSink(DroppingSink const&) = delete;
    DroppingSink& operator=(DroppingSink const&) = delete;
    ~DroppingSink() {
        DiagnosticChannel::setEnabledSeverities(channel_, 0);
        log::core::get()->remove_sink(sink_);
    }

private:
    struct Backend : log::sinks::basic_sink_backend<log::sinks::synchronized_feeding> {
        void consume(log::record_view const&) {}
    };

    std::string const channel_;
    boost::shared_ptr<log::sinks::synchronous_sink<Backend>> const sink_ =
        boost::make_shared<log::sinks::synchronous_sink<Backend>>(boost::make_shared<Backend>());
};

/// Runs \p operation with the benchmark's argument as the mask of \p channel.
template <typename Operation>
void with_records(benchmark::State& state, char const* channel, Operation operation) {
    DroppingSink const sink(channel, static_cast<unsigned>(state.range(0)));
    for (auto _ : state) {
        operation();
    }
}

/// Runs \p operation with \p channel disabled, and writes one record for each of \p messages.
template <typename Operation>
void with_core_records(benchmark::State& state, char const* channel, Operation operation,
                       int severity, char const* prefix, std::vector<std::string> const& messages) {
    DroppingSink const sink(channel, 0);
    log::sources::severity_channel_logger_mt<int, std::string> logger(log::keywords::channel =
                                                                          channel);
    for (auto _ : state) {
        operation();
        for (auto const& text : messages) {
            if (auto record = logger.open_record(log::keywords::severity = severity)) {
                log::record_ostream stream(record);
                stream << prefix << text;
                stream.flush();
                logger.push_record(std::move(record));
            }
        }
    }
}

constexpr char const* log_channel = "install::cpputil::logger";
constexpr char const* parser_channel = "install::cpputil::InputFileParser";
constexpr char const* interrupt_channel = "install::cpputil::interrupt";

// An empty message writes a record and no entry, whose system calls would hide the record's cost.
void append_message_records(benchmark::State& state) {
    with_records(state, log_channel, [] { logger::append_message(std::string()); });
}
BENCHMARK(append_message_records)->Arg(0)->Arg(4 | 8);

void append_message_core_records(benchmark::State& state) {
    with_core_records(state, log_channel, [] { logger::append_message(std::string()); }, 4,
                      " msg=", {""});
}
BENCHMARK(append_message_core_records);

std::vector<std::string> input_lines() {
    std::vector<std::string> lines;
    for (int number = 0; number != 60; ++number) {
        auto const text = std::to_string(number);
        lines.push_back("key_" + text + " = /opt/app/value/of/" + text);
    }
    return lines;
}

std::string write_input_file(Scratch const& scratch) {
    auto path = scratch / "inputs.txt";
    std::ofstream stream(path);
    for (auto const& line : input_lines()) {
        stream << line << '\n';
    }
    return path;
}

void parse_records(benchmark::State& state) {
    Scratch const scratch;
    auto const path = utf16(write_input_file(scratch));
    with_records(state, parser_channel,
                 [&] { benchmark::DoNotOptimize(InputFileParser().parse(path)); });
}
BENCHMARK(parse_records)->Arg(0)->Arg(4 | 8);

void parse_core_records(benchmark::State& state) {
    Scratch const scratch;
    auto const path = utf16(write_input_file(scratch));
    with_core_records(
        state, parser_channel, [&] { benchmark::DoNotOptimize(InputFileParser().parse(path)); }, 4,
        " line=", input_lines());
}
BENCHMARK(parse_core_records);

void set_records(benchmark::State& state) {
    with_records(state, interrupt_channel, [] { interrupt::set(); });
    interrupt::detail::unset();
}
BENCHMARK(set_records)->Arg(0)->Arg(4 | 8);

void set_core_records(benchmark::State& state) {
    with_core_records(state, interrupt_channel, [] { interrupt::set(); }, 8, "",
                      {"Set INTERRUPT."});
    interrupt::detail::unset();
}
BENCHMARK(set_core_records);

}  // namespace
