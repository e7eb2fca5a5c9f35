#pragma once

// Files, environment variables and users for tests.

#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/path.h"
#include "platform/text_conversion.h"

namespace install::cpputil::tests {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::PrintToString;

using Strings = std::vector<std::string>;

/// A scope guard: undoes a change when destroyed or reset.
using Undo = std::shared_ptr<void>;

inline std::u16string utf16(fs::path const& path) {
    return TextConversion::fromUtf8(path.native());
}

/// A directory for one test, writable by every user. The destructor removes it and its content.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("cannot create the directory " + path_);
        }
        fs::permissions(path_, fs::perms::all);
    }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    ~TemporaryDirectory() {
        // chmod first: only root could remove what a test made inaccessible.
        EXPECT_EQ(std::system(("chmod -R u+rwX " + path_ + "; rm -r " + path_).c_str()), 0);
    }

    fs::path operator/(std::string const& name) const { return fs::path(path_) / name; }

private:
    std::string path_ = fs::temp_directory_path() / "install_cpputil_XXXXXX";
};

/// Writes \p content to the file \p path, gives every user access to it and returns its name.
inline std::string write_file(fs::path const& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
    fs::permissions(path, fs::perms::all);
    return path;
}

inline void deny_access(fs::path const& path) {
    fs::permissions(path, fs::perms::none);
}

inline std::string read_file(fs::path const& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline std::ptrdiff_t open_descriptors() {
    fs::directory_iterator const open("/proc/self/fd");
    return std::distance(begin(open), end(open));
}

/// Sets an environment variable, or unsets it if there is no \p value.
[[nodiscard]] inline Undo with_variable(char const* name, std::optional<std::string> const& value) {
    auto const set = [name](std::optional<std::string> const& text) {
        text ? ::setenv(name, text->c_str(), 1) : ::unsetenv(name);
    };
    char const* const present = ::getenv(name);
    auto const earlier = present ? std::optional<std::string>(present) : std::nullopt;
    set(value);
    return {nullptr, [=](void*) { set(earlier); }};
}

/// Changes the effective user from root to \p user, because root ignores permissions. Does nothing
/// if the tests do not run as root.
[[nodiscard]] inline Undo as_user(uid_t user = 65534) {
    auto const earlier = ::geteuid();
    if (earlier == 0 && ::seteuid(user) != 0) {
        throw std::runtime_error("cannot drop privileges");
    }
    return {nullptr, [=](void*) { EXPECT_EQ(::seteuid(earlier), 0); }};
}

/// Returns `what()` of the exception of type \p Error that \p call throws. The test fails if it
/// throws none, or one of a derived type.
template <typename Error, typename Call>
std::string error_text(Call call) {
    try {
        call();
    } catch (Error const& error) {
        EXPECT_EQ(typeid(error), typeid(Error)) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "no exception";
    return {};
}

}  // namespace install::cpputil::tests
