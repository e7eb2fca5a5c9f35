// The cost of loading the library into a process, compared with loading Boost.Log alone.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace {

void run(benchmark::State& state, char const* program) {
    for (auto _ : state) {
        char* arguments[] = {const_cast<char*>(program), nullptr};
        pid_t child = -1;
        int status = -1;
        if (::posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0 ||
            ::waitpid(child, &status, 0) != child || status != 0) {
            std::abort();
        }
    }
}
BENCHMARK_CAPTURE(run, floor_load, LOAD_BOOST_LOG)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(run, load, LOAD_LIBRARY)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
