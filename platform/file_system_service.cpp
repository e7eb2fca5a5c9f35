#include "platform/file_system_service.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/internal/guarded.h"
#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

constexpr char16_t separator = u'/';

constinit LibraryMutex install_root_mutex(LibraryMutex::Rank::install_root);
/// The directory that the installer set; empty while it has set none.
constinit Guarded<Path> install_root(install_root_mutex);
Guarded<Path>::Lifetime const install_root_lifetime(install_root);

std::u16string_view without_trailing_separators(std::u16string_view path) {
    return path.substr(0, path.find_last_not_of(separator) + 1);
}

}  // namespace

bool FileSystemService::exists(Path const& path) {
    struct stat status = {};
    if (::stat(path.narrowName().c_str(), &status) == 0) {
        return true;
    }
    switch (int const error = errno) {
        case ELOOP:
        case ENAMETOOLONG:
        case ENOENT:
        case ENOTDIR:
            return false;
        default:
            throw std::filesystem::filesystem_error("cannot determine whether a file exists",
                                                    path.narrowName(),
                                                    {error, std::generic_category()});
    }
}

bool FileSystemService::createDirectories(Path const& path) {
    // Not std::filesystem::create_directories, which libstdc++ limits to 1,000 missing directories.
    std::filesystem::path const whole = path.narrowName();
    if (whole.empty()) {
        return std::filesystem::create_directory(whole);  // Throws.
    }
    std::filesystem::path directory;
    bool created = false;
    for (auto const& component : whole) {
        directory /= component;
        created |= std::filesystem::create_directory(directory);
    }
    return created;
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
    return Path(path).string();
}

Path FileSystemService::concatenatePath(Path const& path, std::u16string const& component) {
    if (path.string().empty()) {
        return Path(component);
    }
    return Path(path.string() + separator + component);
}

std::u16string FileSystemService::installRoot() {
    if (Guarded<Path>::Access const root(install_root); root && !root->string().empty()) {
        return root->string();
    }
    auto const executable = std::filesystem::read_symlink("/proc/self/exe");
    return TextConversion::fromUtf8(executable.parent_path().native());
}

void FileSystemService::setInstallRoot(std::u16string const& path) {
    Path new_root(path);
    if (Guarded<Path>::Access const root(install_root); root) {
        *root = std::move(new_root);
    }
}

std::u16string FileSystemService::tempDirectory() {
    char const* const named = std::getenv("TMPDIR");
    if (named == nullptr || *named == '\0') {
        return u"/tmp";
    }
    try {
        return std::u16string(without_trailing_separators(TextConversion::fromUtf8(named)));
    } catch (TextConversionError const&) {
        // The environment is not under the caller's control: an unusable setting is ignored.
        return u"/tmp";
    }
}

}  // namespace install::cpputil
