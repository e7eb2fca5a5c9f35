// The library in a plugin that is loaded with dlopen. The test itself is not linked with the
// library.

#include <dlfcn.h>
#include <pthread.h>

#include <cstdlib>

#include "tests/processes.h"

namespace install::cpputil::tests {
namespace {

bool is_library_loaded() {
    void* const handle = ::dlopen(INSTALL_CPPUTIL_SONAME, RTLD_NOW | RTLD_NOLOAD);
    return handle != nullptr && ::dlclose(handle) == 0;
}

/// Loads the plugin, which loads the library.
std::shared_ptr<void> load_plugin() {
    void* const handle = ::dlopen(INSTALL_CPPUTIL_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        throw std::runtime_error(::dlerror());
    }
    return {handle, ::dlclose};
}

template <typename Result>
auto* find(std::shared_ptr<void> const& plugin, char const* name) {
    return reinterpret_cast<Result (*)(char const*)>(::dlsym(plugin.get(), name));
}

TEST(Library, CanBeUnloaded) {
    TemporaryDirectory const directory;
    auto const log = (directory / "log").native();
    auto const descriptors = open_descriptors();
    for (int round = 0; round != 1000; ++round) {
        auto plugin = load_plugin();
        ASSERT_TRUE(find<bool>(plugin, "use_library")(log.c_str())) << "not in its initial state";
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
    auto const plugin = load_plugin();
    find<bool>(plugin, "use_library")(log.c_str());
    auto const size = fs::file_size(log);
    use = find<void>(plugin, "log_and_disable");
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
        auto const plugin = load_plugin();  // Never unloaded.
        find<bool>(plugin, "use_library")(log.c_str());
        use = find<bool>(plugin, "use_library_after_exit");
        std::exit(0);
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
    EXPECT_THAT(read_file(log), ::testing::Not(HasSubstr("too late")));
    EXPECT_FALSE(fs::exists(log + ".new"));
}

}  // namespace
}  // namespace install::cpputil::tests
