// The installation log, compared with the system calls that its contract requires, and with peers.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>

#include "benchmarks/scratch.h"
#include "utilities/logger.h"

namespace {

namespace logger = install::cpputil::logger;

std::string const message = "installing Base Tools to /opt/app/base_tools";  // 44 characters
std::string const line = "(Nov 16, 2026 17:22:45) " + message + "\n";

/// Appends \p text with the system calls of a log that is opened for each line.
void append(char const* file, std::string const& text) {
    int const descriptor = ::open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (::write(descriptor, text.data(), text.size()) < 0) {
        std::abort();
    }
    ::close(descriptor);
}

void floor_line(benchmark::State& state) {
    Scratch const scratch;
    auto const file = scratch / "log";
    for (auto _ : state) {
        append(file.c_str(), line);
    }
}
BENCHMARK(floor_line);

/// The system calls that the contract of the fallback file requires.
void floor_fallback(benchmark::State& state) {
    Scratch const scratch;
    auto const file = scratch / "log";
    for (auto _ : state) {
        benchmark::DoNotOptimize(::geteuid());
        int const descriptor =
            ::open(file.c_str(),
                   O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, 0600);
        struct stat status = {};
        benchmark::DoNotOptimize(::fstat(descriptor, &status));
        benchmark::DoNotOptimize(::write(descriptor, line.data(), line.size()));
        ::close(descriptor);
    }
}
BENCHMARK(floor_fallback);

std::unique_ptr<Scratch> shared_scratch;
std::unique_ptr<logger::Logger> shared_log;

void open_shared_log(benchmark::State const&) {
    shared_scratch = std::make_unique<Scratch>();
    shared_log = std::make_unique<logger::Logger>(*shared_scratch / "log");
}
void close_shared_log(benchmark::State const&) {
    shared_log.reset();
    shared_scratch.reset();
}

void append_message(benchmark::State& state) {
    for (auto _ : state) {
        logger::append_message(message);
    }
}
BENCHMARK(append_message)->Setup(open_shared_log)->Teardown(close_shared_log);
BENCHMARK(append_message)
    ->Name("append_message_threads")
    ->Setup(open_shared_log)
    ->Teardown(close_shared_log)
    ->ThreadRange(1, 16)
    ->UseRealTime();

void append_message_utf16(benchmark::State& state) {
    auto const text = utf16(message);
    for (auto _ : state) {
        logger::append_message(text);
    }
}
BENCHMARK(append_message_utf16)->Setup(open_shared_log)->Teardown(close_shared_log);

void append_message_fallback(benchmark::State& state) {
    Scratch const scratch;
    ::setenv("TMPDIR", (scratch / "").c_str(), 1);
    for (auto _ : state) {
        logger::append_message(message);
    }
    ::unsetenv("TMPDIR");
}
BENCHMARK(append_message_fallback);

void append_message_of_size(benchmark::State& state) {
    std::string const text(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        logger::append_message(text);
    }
}
BENCHMARK(append_message_of_size)
    ->Arg(1024)
    ->Arg(65536)
    ->Setup(open_shared_log)
    ->Teardown(close_shared_log);

void write_ofstream_line(std::string const& file) {
    std::time_t const now = std::time(nullptr);
    std::tm local = {};
    ::localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%b %d, %Y %H:%M:%S", &local);
    std::ofstream stream(file, std::ios::app);
    stream << '(' << stamp << ") " << message << '\n';
}

void ofstream_line(benchmark::State& state) {
    Scratch const scratch;
    auto const file = scratch / "log";
    for (auto _ : state) {
        write_ofstream_line(file);
    }
}
BENCHMARK(ofstream_line);

void write_spdlog_line(std::string const& file) {
    spdlog::logger log("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(file));
    log.set_pattern("(%b %d, %Y %H:%M:%S) %v");
    log.info(message);
}

void spdlog_line_opened(benchmark::State& state) {
    Scratch const scratch;
    auto const file = scratch / "log";
    for (auto _ : state) {
        write_spdlog_line(file);
    }
}
BENCHMARK(spdlog_line_opened);

void open_shared_scratch(benchmark::State const&) {
    shared_scratch = std::make_unique<Scratch>();
}
void close_shared_scratch(benchmark::State const&) {
    shared_scratch.reset();
}

void ofstream_threads(benchmark::State& state) {
    static std::mutex mutex;
    auto const file = *shared_scratch / "log";
    for (auto _ : state) {
        std::lock_guard const lock(mutex);
        write_ofstream_line(file);
    }
}
BENCHMARK(ofstream_threads)
    ->Setup(open_shared_scratch)
    ->Teardown(close_shared_scratch)
    ->ThreadRange(1, 16)
    ->UseRealTime();

void spdlog_threads(benchmark::State& state) {
    auto const file = *shared_scratch / "log";
    for (auto _ : state) {
        write_spdlog_line(file);
    }
}
BENCHMARK(spdlog_threads)
    ->Setup(open_shared_scratch)
    ->Teardown(close_shared_scratch)
    ->ThreadRange(1, 16)
    ->UseRealTime();

void spdlog_line_kept_open(benchmark::State& state) {
    Scratch const scratch;
    spdlog::logger log("bench",
                       std::make_shared<spdlog::sinks::basic_file_sink_mt>(scratch / "log"));
    log.set_pattern("(%b %d, %Y %H:%M:%S) %v");
    log.flush_on(spdlog::level::info);
    for (auto _ : state) {
        log.info(message);
    }
}
BENCHMARK(spdlog_line_kept_open);

constexpr std::size_t mebibyte = 1'048'576;

std::string file_text(std::size_t size) {
    std::string text;
    while (text.size() < size) {
        text += "unpacked /opt/app/share/doc/readme.txt, 1024 bytes, checksum verified\n";
        text +=
            "ausgepackt: /opt/app/share/doc/Gr\xC3\xBC\xC3\x9F"
            "e.txt, 1024 Bytes, gepr\xC3\xBC"
            "ft\n";
    }
    return text;
}

void floor_copy(benchmark::State& state) {
    Scratch const scratch;
    auto const source = scratch / "source";
    auto const log = scratch / "log";
    append(source.c_str(), file_text(static_cast<std::size_t>(state.range(0)) * mebibyte));
    for (auto _ : state) {
        std::string text(std::filesystem::file_size(source), '\0');
        int const descriptor = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
        if (::read(descriptor, text.data(), text.size()) < 0) {
            std::abort();
        }
        ::close(descriptor);
        append(log.c_str(), text);
        state.PauseTiming();
        std::filesystem::remove(log);
        state.ResumeTiming();
    }
}
// Few iterations, because each copies 32 MiB. All of them request their memory from the system.
BENCHMARK(floor_copy)->Arg(32)->Iterations(8)->Unit(benchmark::kMillisecond);

void append_file(benchmark::State& state) {
    Scratch const scratch;
    auto const source = scratch / "source";
    append(source.c_str(), file_text(static_cast<std::size_t>(state.range(0)) * mebibyte));
    logger::Logger const log(scratch / "log");
    for (auto _ : state) {
        logger::append_file(source);
        state.PauseTiming();
        std::filesystem::remove(scratch / "log");
        state.ResumeTiming();
    }
}
BENCHMARK(append_file)->Arg(4)->Arg(32)->Iterations(8)->Unit(benchmark::kMillisecond);

/// Returns the peak memory of a child process that runs \p work, in bytes.
template <typename Work>
double peak_memory(Work work) {
    pid_t const child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = 0;
    rusage usage = {};
    ::wait4(child, &status, 0, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024;
}

void append_file_memory(benchmark::State& state) {
    Scratch const scratch;
    auto const source = scratch / "source";
    append(source.c_str(), file_text(32 * mebibyte));
    for (auto _ : state) {
        auto const before = peak_memory([] {});
        auto const during = peak_memory([&] {
            logger::Logger const log(scratch / "log");
            logger::append_file(source);
        });
        state.counters["times_the_file"] =
            (during - before) / static_cast<double>(std::filesystem::file_size(source));
    }
}
BENCHMARK(append_file_memory)->Iterations(1);

}  // namespace
