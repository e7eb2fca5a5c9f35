// Operations that installers call often.

#include <benchmark/benchmark.h>

#include "benchmarks/allocations.h"
#include "benchmarks/atomic_load.h"
#include "utilities/argument_validation.h"
#include "utilities/interrupt.h"
#include "utilities/version_comparator.h"

namespace {

using namespace install::cpputil;

/// Measures \p operation and reports the number of its memory allocations.
template <typename Operation>
void measure(benchmark::State& state, Operation operation) {
    operation();
    auto const before = allocations();
    operation();
    state.counters["allocations"] = static_cast<double>(allocations() - before);
    for (auto _ : state) {
        operation();
    }
}

void floor_atomic_load(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(load_flag());
    }
}
BENCHMARK(floor_atomic_load);

void is_set(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(interrupt::is_set());
    }
}
BENCHMARK(is_set);

void throw_if_set(benchmark::State& state) {
    std::string const tag = "unpacking the base tools of the product";
    for (auto _ : state) {
        interrupt::throw_if_set(tag);
    }
}
BENCHMARK(throw_if_set);

void compare_versions(benchmark::State& state) {
    std::u16string const first = u"9.14.2";
    std::u16string const second = u"9.14.10";
    VersionComparator const comparator;
    measure(state,
            [&] { benchmark::DoNotOptimize(comparator.compareVersionNumbers(first, second)); });
}
BENCHMARK(compare_versions);

void validate_arguments(benchmark::State& state) {
    std::map<std::string, std::string> const args = {
        {"mode", "minimal"}, {"overwrite", "Yes"}, {"port", "8080"}, {"free", "x"}};
    std::map<std::string, std::string> const rules = {
        {"mode", "strval:full,custom,minimal"}, {"overwrite", "boolval"}, {"port", "intval"}};
    measure(state, [&] { validate_args(args, rules); });
}
BENCHMARK(validate_arguments);

}  // namespace
