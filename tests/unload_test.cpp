// Loads and unloads the library many times. Usage: unload_test PLUGIN LIBRARY SCRATCH_FILE

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
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

bool can_fork() {
    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
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
    auto const descriptors = open_descriptors();
    for (int round = 0; round != rounds; ++round) {
        void* const plugin = ::dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        expect(plugin != nullptr, "the library does not load", round);
        auto* const use_library =
            reinterpret_cast<bool (*)(char const*, char const*)>(::dlsym(plugin, "use_library"));
        expect(use_library(argv[3], "/dev/null"), "not in its initial state", round);
        auto const written = std::filesystem::file_size(argv[3]);
        expect(is_loaded(argv[2]), "the library is not loaded", round);
        ::dlclose(plugin);
        expect(!is_loaded(argv[2]), "the library is still loaded", round);
        expect(std::filesystem::file_size(argv[3]) == written, "unloading wrote to the log", round);
        expect(can_fork(), "cannot fork",
               round);  // e.g. because of a handler that is still registered
    }
    expect(open_descriptors() == descriptors, "descriptors left open", rounds);
    std::filesystem::remove(argv[3]);
}
