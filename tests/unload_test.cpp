// Loads and unloads the library again and again. Usage: unload_test PLUGIN LIBRARY SCRATCH_FILE

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

namespace {

void expect(bool holds, char const* what, int round) {
    if (!holds) {
        std::cerr << "round " << round << ": " << what << '\n';
        std::_Exit(1);
    }
}

bool is_loaded(char const* library) {
    void* const handle = ::dlopen(library, RTLD_NOW | RTLD_NOLOAD);
    return handle != nullptr && ::dlclose(handle) == 0;
}

long resident_pages() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;  // the second number
    return pages;
}

std::ptrdiff_t open_descriptors() {
    std::filesystem::directory_iterator const open("/proc/self/fd");
    return std::distance(begin(open), end(open));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    constexpr int rounds = 1000;
    constexpr int settled = 100;  // by then, what is kept for the process is there
    [[maybe_unused]] long pages = 0;
    std::ptrdiff_t descriptors = 0;
    for (int round = 0; round != rounds; ++round) {
        void* const plugin = ::dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        expect(plugin != nullptr, "the library does not load", round);
        auto* const use_library =
            reinterpret_cast<bool (*)(char const*, char const*)>(::dlsym(plugin, "use_library"));
        expect(use_library(argv[3], "/dev/null"), "not as new", round);
        auto const written = std::filesystem::file_size(argv[3]);
        expect(is_loaded(argv[2]), "not in the process", round);
        ::dlclose(plugin);
        expect(!is_loaded(argv[2]), "still in the process", round);
        expect(std::filesystem::file_size(argv[3]) == written, "wrote while unloading", round);
        if (round == settled) {
            pages = resident_pages();
            descriptors = open_descriptors();
        }
    }
    expect(open_descriptors() == descriptors, "descriptors left open", rounds);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which keep memory themselves
    expect(resident_pages() < pages + pages / 10, "memory grew", rounds);
#endif
    std::filesystem::remove(argv[3]);
}
