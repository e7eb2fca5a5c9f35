// Loads and unloads the library many times through a plugin. The test is not linked with the
// library.

#include <dlfcn.h>
#include <pthread.h>

#include <cstdlib>

#include "tests/files.h"
#include "tests/processes.h"

namespace install::cpputil::tests {
namespace {

bool is_library_loaded() {
    void* const handle = ::dlopen(INSTALL_CPPUTIL_SONAME, RTLD_NOW | RTLD_NOLOAD);
    return handle != nullptr && ::dlclose(handle) == 0;
}

/// The plugin, which loads the library.
class Plugin {
public:
    Plugin() : handle_(::dlopen(INSTALL_CPPUTIL_PLUGIN, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) {
            throw std::runtime_error(::dlerror());
        }
    }
    Plugin(Plugin const&) = delete;
    ~Plugin() { ::dlclose(handle_); }

    template <typename Function>
    auto find(char const* name) const {
        return reinterpret_cast<Function*>(::dlsym(handle_, name));
    }

private:
    void* const handle_;
};

TEST(Library, CanBeUnloaded) {
    TemporaryDirectory const directory;
    auto const log = (directory / "log").native();
    auto const descriptors = open_descriptors();
    for (int round = 0; round != 1000; ++round) {
        std::optional<Plugin> plugin(std::in_place);
        ASSERT_TRUE(
            plugin->find<bool(char const*, char const*)>("use_library")(log.c_str(), "/dev/null"))
            << "not in its initial state";
        auto const size = fs::file_size(log);
        ASSERT_TRUE(is_library_loaded());
        plugin.reset();
        ASSERT_FALSE(is_library_loaded());
        ASSERT_EQ(fs::file_size(log), size);
        // Crashes if a fork handler is still registered.
        ASSERT_EQ(status_of(start_child([] {})), 0);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

// The library's fork handlers, which were registered later, lock its mutexes first.
TEST(Library, CanBeUsedInForkHandlersRegisteredBeforeItIsLoaded) {
    static void (*use)(char const*) = nullptr;
    auto const handler = [] { use != nullptr ? use("fork") : void(); };
    ASSERT_EQ(::pthread_atfork(handler, handler, handler), 0);
    TemporaryDirectory const directory;
    auto const log = (directory / "log").native();
    Plugin const plugin;
    plugin.find<bool(char const*, char const*)>("use_library")(log.c_str(), "/dev/null");
    auto const size = fs::file_size(log);
    use = plugin.find<void(char const*)>("log_and_enable");
    EXPECT_EQ(status_of(start_child([] {})), 0);
    use = nullptr;
    auto const size_of_entry = std::string("(Nov 16, 2026 17:22:45) fork\n").size();
    EXPECT_EQ(fs::file_size(log), size + 3 * size_of_entry);
}

// Functions that were registered before the library was loaded run after its destructors.
TEST(Library, DoesNothingAfterExit) {
    TemporaryDirectory const directory;
    static std::string log;
    static bool (*use)(char const*) = nullptr;
    log = directory / "log";
    auto const child = [] {
        std::atexit([] { ::_exit(use(log.c_str()) ? 0 : 1); });
        static auto const& plugin = *new Plugin;
        plugin.find<bool(char const*, char const*)>("use_library")(log.c_str(), "/dev/null");
        use = plugin.find<bool(char const*)>("use_library_after_exit");
        std::exit(0);
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
    EXPECT_THAT(read_file(log), ::testing::Not(HasSubstr("too late")));
    EXPECT_FALSE(fs::exists(log + ".new"));
}

}  // namespace
}  // namespace install::cpputil::tests
