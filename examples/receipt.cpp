#include "receipt.h"

#include <fcntl.h>
#include <fts.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr auto const* last_line = "sha256 ";

/// Returns the entry of a receipt for a file or link.
std::string describe(std::string const& name, bool is_link) {
    if (is_link) {
        std::array<char, PATH_MAX> target = {};
        auto const size = check_call(
            static_cast<int>(::readlink(name.c_str(), target.data(), target.size())), name);
        return "link " + Sha256().update({target.data(), static_cast<std::size_t>(size)}).hex();
    }
    // A link or a pipe may have replaced the file.
    auto const flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor const file(check_call(::open(name.c_str(), flags), "cannot open " + name));
    return "file " + Sha256().update(file, name, [] {}).hex();
}

bool is_mount_point(char const* directory) {
    struct statx status = {};
    auto const flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    check_call(::statx(AT_FDCWD, directory, flags, STATX_TYPE, &status), directory);
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// Removes one entry that `fts_read` returned. Returns why it is kept, or an empty string.
std::string remove_entry(FTS* tree, FTSENT* entry, std::string const& path,
                         Receipt const& receipt) {
    // Relative to the current directory, which `fts_read` changes: no link can be followed.
    auto const* const name = entry->fts_accpath;
    auto const type = entry->fts_info;
    if (type == FTS_D) {
        // FTS_XDEV alone would enter a directory of the same file system that is mounted here.
        if (entry->fts_dev == tree->fts_dev && !is_mount_point(name)) {
            return "";
        }
        ::fts_set(tree, entry, FTS_SKIP);
        return "a mounted file system";
    }
    if (type == FTS_DP) {
        auto const failed = ::rmdir(name) != 0;
        auto const is_kept = errno == ENOTEMPTY || errno == EEXIST || errno == EBUSY;
        return !failed || is_kept ? "" : std::generic_category().message(errno);
    }
    if (entry->fts_errno != 0) {
        return std::generic_category().message(entry->fts_errno);
    }
    if (path != receipt_name) {
        auto const listed = receipt.entries.find(path);
        if (listed == receipt.entries.end()) {
            return "added";
        }
        auto const is_link = type == FTS_SL;
        if ((!is_link && type != FTS_F) || describe(name, is_link) != listed->second) {
            return "changed";
        }
    }
    check_call(::unlink(name), path);
    return "";
}

}  // namespace

void write_receipt(Receipt const& receipt) {
    std::string text;
    for (auto const& [name, version] : receipt.products) {
        text += "product " + version + ' ' + name + '\n';
    }
    for (auto const& [path, kind_and_digest] : receipt.entries) {
        text += kind_and_digest + ' ' + path + '\n';
    }
    std::ofstream file(receipt_name);
    file << text << last_line << Sha256().update(text).hex() << '\n';
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write the receipt");
    }
}

Receipt read_receipt(std::string const& directory) {
    Receipt receipt;
    auto const name = directory + '/' + receipt_name;
    auto const type = fs::symlink_status(name).type();
    if (type == fs::file_type::not_found) {
        return receipt;
    }
    std::string text;
    if (type == fs::file_type::regular) {  // A pipe could block the process.
        std::ifstream file(name);
        text.assign(std::istreambuf_iterator<char>(file), {});
    }
    auto const end = std::min(text.rfind(last_line), text.size());
    std::istringstream lines(text.substr(0, end));
    for (std::string kind, value, path;
         lines >> kind >> value && std::getline(lines.ignore(), path);) {
        if (kind == "product") {
            receipt.products[path] = value;
        } else {
            receipt.entries[path] = kind + ' ' + value;
        }
    }
    if (receipt.products.empty() ||
        text.substr(end) != last_line + Sha256().update(text.substr(0, end)).hex() + '\n') {
        throw std::runtime_error("the receipt is damaged or cannot be read: " + name);
    }
    return receipt;
}

std::map<std::string, std::string> remove_listed(std::string const& directory,
                                                 Receipt const& receipt) {
    std::map<std::string, std::string> kept;
    std::string root = directory;
    std::array<char*, 2> const roots = {root.data(), nullptr};
    std::unique_ptr<FTS, int (*)(FTS*)> const tree(
        ::fts_open(roots.data(), FTS_PHYSICAL | FTS_XDEV, nullptr), ::fts_close);
    check_call(tree == nullptr ? -1 : 0, "cannot read " + directory);
    while (auto* const entry = ::fts_read(tree.get())) {
        auto const path =
            std::string(entry->fts_path)
                .substr(std::min<std::size_t>(directory.size() + 1, entry->fts_pathlen));
        std::string why;
        try {
            why = remove_entry(tree.get(), entry, path, receipt);
        } catch (std::system_error const& error) {
            why = error.code().message();
        }
        if (!why.empty()) {
            kept[path] = why;
        }
    }
    return kept;
}
