// Parsing of input files, compared with other libraries that read key=value files.

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

/// An input file of assignments with distinct keys in random order. The benchmark's argument is
/// their number. A value is \p directory and a number. Some peers need a section.
class InputFile {
public:
    InputFile(benchmark::State const& state, std::string const& directory,
              char const* section = "") {
        std::vector<std::string> lines;
        for (std::int64_t number = 0; number != state.range(0); ++number) {
            auto const text = std::to_string(number);
            lines.push_back("key_" + text + " = " + directory + text + '\n');
        }
        std::shuffle(lines.begin(), lines.end(), std::mt19937(1));
        std::ofstream stream(path);
        stream << section;
        for (auto const& line : lines) {
            stream << line;
        }
    }

    Scratch const scratch;
    std::string const path = scratch / "inputs.txt";
};

/// Aborts if a reader lost a line.
void expect_lines(benchmark::State const& state, std::size_t count) {
    if (count != static_cast<std::size_t>(state.range(0))) {
        std::abort();
    }
}

void parse(benchmark::State& state, std::string const& directory) {
    InputFile const file(state, directory);
    auto const path = utf16(file.path);
    for (auto _ : state) {
        auto const map = InputFileParser().parse(path);
        expect_lines(state, map.size());
    }
}
void inih(benchmark::State& state, std::string const& directory) {
    InputFile const file(state, directory, "[inputs]\n");
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
void gkeyfile(benchmark::State& state, std::string const& directory) {
    InputFile const file(state, directory, "[inputs]\n");
    for (auto _ : state) {
        GKeyFile* const keys = g_key_file_new();
        g_key_file_load_from_file(keys, file.path.c_str(), G_KEY_FILE_NONE, nullptr);
        benchmark::DoNotOptimize(g_key_file_has_key(keys, "inputs", "key_0", nullptr));
        g_key_file_free(keys);
    }
}
void property_tree(benchmark::State& state, std::string const& directory) {
    InputFile const file(state, directory);
    for (auto _ : state) {
        boost::property_tree::ptree tree;
        boost::property_tree::read_ini(file.path, tree);
        expect_lines(state, tree.size());
    }
}
void poco(benchmark::State& state, std::string const& directory) {
    InputFile const file(state, directory);
    for (auto _ : state) {
        Poco::AutoPtr<Poco::Util::PropertyFileConfiguration> const configuration(
            new Poco::Util::PropertyFileConfiguration(file.path));
        benchmark::DoNotOptimize(configuration->hasProperty("key_0"));
    }
}
constexpr int iterations_of_large_files = 3;

bool add(std::string const& name, void (*reader)(benchmark::State&, std::string const&)) {
    char const* const ascii = "/opt/app/value/of/";
    char const* const chinese = "/opt/应用程序/基础工具/的值/";
    benchmark::RegisterBenchmark((name + "/ascii").c_str(), reader, ascii)->Arg(60);
    benchmark::RegisterBenchmark((name + "/chinese").c_str(), reader, chinese)->Arg(2'000);
    // A fixed number of iterations, because the first requests memory from the system: its weight
    // must not vary.
    benchmark::RegisterBenchmark((name + "/ascii").c_str(), reader, ascii)
        ->Arg(200'000)
        ->Iterations(iterations_of_large_files);
    return true;
}

[[maybe_unused]] bool const added =
    add("parse", parse) && add("parse_inih", inih) && add("parse_gkeyfile", gkeyfile) &&
    add("parse_property_tree", property_tree) && add("parse_poco", poco);

/// Fills only the map, in random order, with keys and values that are already converted.
void map_alone(benchmark::State& state) {
    std::vector<std::pair<std::u16string, std::u16string>> entries;
    for (auto& [key, value] :
         InputFileParser().parse(utf16(InputFile(state, "/opt/app/value/of/").path))) {
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
BENCHMARK(map_alone)->Arg(200'000)->Iterations(iterations_of_large_files);

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
