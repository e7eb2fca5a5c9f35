// Input files beside other readers of key=value files, each from the file to its own map.

#include <benchmark/benchmark.h>
#include <glib.h>
#include <ini.h>

#include <Poco/Util/PropertyFileConfiguration.h>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>
#include <vector>

#include "benchmarks/scratch.h"
#include "utilities/input_file_parser.h"

namespace {

using namespace install::cpputil;

/// An input file of as many assignments as the benchmark's argument says, with distinct keys in random
/// order. The peers get the section that some of them need.
class InputFile {
public:
    InputFile(benchmark::State const& state, char const* first_line = "") {
        std::vector<std::string> lines;
        for (std::int64_t number = 0; number != state.range(0); ++number) {
            lines.push_back("key_" + std::to_string(number) + " = /opt/app/value/of/" +
                            std::to_string(number) + "\n");
        }
        std::shuffle(lines.begin(), lines.end(), std::mt19937(1));
        std::ofstream stream(path);
        stream << first_line;
        for (auto const& line : lines) {
            stream << line;
        }
    }

    Scratch const scratch;
    std::string const path = scratch / "inputs.txt";
};

void sizes(benchmark::internal::Benchmark* each) {
    each->Arg(60)->Arg(200'000);
}

/// Aborts if a reader lost a line: it would be no peer.
void expect_lines(benchmark::State const& state, std::size_t count) {
    if (count != static_cast<std::size_t>(state.range(0))) {
        std::abort();
    }
}

void parse(benchmark::State& state) {
    InputFile const file(state);
    auto const path = utf16(file.path);
    for (auto _ : state) {
        auto const map = InputFileParser().parse(path);
        expect_lines(state, map.size());
    }
}
BENCHMARK(parse)->Apply(sizes);

void inih(benchmark::State& state) {
    InputFile const file(state, "[inputs]\n");
    for (auto _ : state) {
        std::map<std::string, std::string> map;
        auto const store = [](void* target, char const*, char const* key, char const* value) {
            static_cast<std::map<std::string, std::string>*>(target)->insert_or_assign(key, value);
            return 1;
        };
        ini_parse(file.path.c_str(), store, &map);
        expect_lines(state, map.size());
    }
}
BENCHMARK(inih)->Apply(sizes);

void gkeyfile(benchmark::State& state) {
    InputFile const file(state, "[inputs]\n");
    for (auto _ : state) {
        GKeyFile* const keys = g_key_file_new();
        g_key_file_load_from_file(keys, file.path.c_str(), G_KEY_FILE_NONE, nullptr);
        benchmark::DoNotOptimize(g_key_file_has_key(keys, "inputs", "key_0", nullptr));
        g_key_file_free(keys);
    }
}
BENCHMARK(gkeyfile)->Apply(sizes);

void property_tree(benchmark::State& state) {
    InputFile const file(state);
    for (auto _ : state) {
        boost::property_tree::ptree tree;
        boost::property_tree::read_ini(file.path, tree);
        expect_lines(state, tree.size());
    }
}
BENCHMARK(property_tree)->Apply(sizes);

void poco(benchmark::State& state) {
    InputFile const file(state);
    for (auto _ : state) {
        Poco::AutoPtr<Poco::Util::PropertyFileConfiguration> const configuration(
            new Poco::Util::PropertyFileConfiguration(file.path));
        benchmark::DoNotOptimize(configuration->hasProperty("key_0"));
    }
}
BENCHMARK(poco)->Apply(sizes);

/// What filling the map alone takes, with keys and values ready, in the order of the file.
void map_alone(benchmark::State& state) {
    std::vector<std::pair<std::u16string, std::u16string>> entries;
    for (auto& [key, value] : InputFileParser().parse(utf16(InputFile(state).path))) {
        entries.emplace_back(key, std::get<std::u16string>(value));
    }
    std::shuffle(entries.begin(), entries.end(), std::mt19937(1));
    for (auto _ : state) {
        PropertyMap map;
        for (auto const& [key, value] : entries) {
            map.insert_or_assign(key, value);
        }
        expect_lines(state, map.size());
    }
}
BENCHMARK(map_alone)->Apply(sizes);

void product_lines(benchmark::State& state) {
    std::string text;
    for (std::int64_t number = 0; number != state.range(0); ++number) {
        text += "product.Base_Tools_of_Number_" + std::to_string(number) + '\n';
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(InputFileParser().convertInputsToPropertyMap(text));
    }
}
BENCHMARK(product_lines)->Arg(4'000)->Arg(32'000);

}  // namespace
