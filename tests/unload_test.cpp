// Loads and unloads the library many times through a plugin. The test is not linked with the library.

#include <dlfcn.h>

#include "tests/support.h"

namespace install::cpputil::testing {
namespace {

bool is_library_loaded() {
    void* const handle = ::dlopen(INSTALL_CPPUTIL_SONAME, RTLD_NOW | RTLD_NOLOAD);
    return handle != nullptr && ::dlclose(handle) == 0;
}

TEST(Library, CanBeUnloaded) {
    TemporaryDirectory const directory;
    auto const log = (directory / "log").native();
    auto const descriptors = open_descriptors();
    for (int round = 0; round != 1000; ++round) {
        void* const plugin = ::dlopen(INSTALL_CPPUTIL_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(plugin, nullptr) << ::dlerror();
        auto* const use_library =
            reinterpret_cast<bool (*)(char const*, char const*)>(::dlsym(plugin, "use_library"));
        ASSERT_TRUE(use_library(log.c_str(), "/dev/null")) << "not in its initial state";
        auto const size = fs::file_size(log);
        ASSERT_TRUE(is_library_loaded());
        ::dlclose(plugin);
        ASSERT_FALSE(is_library_loaded());
        ASSERT_EQ(fs::file_size(log), size);
        // Fails if e.g. a handler for fork is still registered.
        ASSERT_EQ(status_of(start_child([] {})), 0);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

}  // namespace
}  // namespace install::cpputil::testing
