#include "platform/file_system_service.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

constexpr char16_t separator = u'/';

constinit std::mutex install_root_mutex;
/// What the installer named; empty while it named nothing. Guarded by install_root_mutex.
Path install_root;

std::u16string_view without_trailing_separators(std::u16string_view path) {
    return path.substr(0, path.find_last_not_of(separator) + 1);
}

}  // namespace

bool FileSystemService::exists(Path const& path) {
    struct stat status = {};
    if (::stat(path.narrowName().c_str(), &status) == 0) {
        return true;
    }
    std::error_code const error(errno, std::generic_category());
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
        return false;
    }
    throw std::filesystem::filesystem_error("cannot tell what exists", path.narrowName(), error);
}

bool FileSystemService::createDirectories(Path const& path) {
    return std::filesystem::create_directories(path.narrowName());
}

std::u16string FileSystemService::parentPath(std::u16string const& path) {
    auto const entry = without_trailing_separators(path);
    auto const last = entry.rfind(separator);
    if (last == std::u16string_view::npos) {
        return {};
    }
    auto const parent = without_trailing_separators(entry.substr(0, last));
    return std::u16string(parent.empty() ? entry.substr(0, 1) : parent);
}

std::u16string FileSystemService::nativeForm(std::u16string const& path) {
    auto native = path;
    auto const both_separators = [](char16_t left, char16_t right) {
        return left == separator && right == separator;
    };
    native.erase(std::unique(native.begin(), native.end(), both_separators), native.end());
    return native;
}

std::string FileSystemService::nativeForm(Path const& path) {
    return path.narrowName();
}

Path FileSystemService::concatenatePath(Path const& path, std::u16string const& component) {
    if (path.string().empty()) {
        return Path(component);
    }
    return Path(path.string() + separator + component);
}

std::u16string FileSystemService::installRoot() {
    {
        std::lock_guard const lock(install_root_mutex);
        if (!install_root.string().empty()) {
            return install_root.string();
        }
    }
    auto const executable = std::filesystem::read_symlink("/proc/self/exe");
    return TextConversion::fromUtf8(executable.parent_path().native());
}

void FileSystemService::setInstallRoot(std::u16string const& path) {
    Path named(path);
    std::lock_guard const lock(install_root_mutex);
    install_root = std::move(named);
}

std::u16string FileSystemService::tempDirectory() {
    char const* const named = std::getenv("TMPDIR");
    if (named == nullptr || *named == '\0') {
        return u"/tmp";
    }
    try {
        return std::u16string(without_trailing_separators(TextConversion::fromUtf8(named)));
    } catch (TextConversionError const&) {
        // A setting that cannot be used must never cost the caller an exception.
        return u"/tmp";
    }
}

}  // namespace install::cpputil
