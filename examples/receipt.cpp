#include "receipt.h"

#include <fcntl.h>
#include <fts.h>
#include <install_cpputil/utilities/interrupt.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "product_archive.h"

using namespace install::cpputil;
namespace fs = std::filesystem;

namespace {

constexpr std::string_view last_line = "sha256 ";

/// Opens a file, neither following a link nor waiting for a pipe, which may have replaced it.
Descriptor open_file(std::string const& name) {
    return Descriptor(::open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

/// Returns the kind and digest of a file or link. Calls \p before_block, which may throw.
std::string describe(
    std::string const& name, bool is_link, std::function<void()> const& before_block = [] {}) {
    Sha256 digest;
    if (is_link) {
        std::array<char, PATH_MAX> target = {};
        auto const size = check_call(
            static_cast<int>(::readlink(name.c_str(), target.data(), target.size())), name);
        digest.update({target.data(), static_cast<std::size_t>(size)});
        return "link " + digest.hex();
    }
    auto const file = open_file(name);
    check_call(file.get(), "cannot open " + name);
    read_blocks(file, name, [&](std::string_view block) {
        before_block();
        digest.update(block);
    });
    return "file " + digest.hex();
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

void write_receipt(std::map<std::string, std::string> const& products) {
    Sha256 digest;
    std::ofstream file(receipt_name);
    auto const write = [&](std::string const& line) {
        digest.update(line);
        file << line;
    };
    for (auto const& [name, version] : products) {
        write("product " + version + ' ' + name + '\n');
    }
    for (auto const& entry : fs::recursive_directory_iterator(".")) {
        auto const path = entry.path().string().substr(2);  // without "./"
        if (path != receipt_name && (entry.is_symlink() || !entry.is_directory())) {
            auto const stop = [&] { interrupt::throw_if_set("reading " + path); };
            write(describe(path, entry.is_symlink(), stop) + ' ' + path + '\n');
        }
    }
    file << last_line << digest.hex() << '\n';
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write the receipt");
    }
}

std::optional<Receipt> read_receipt(std::string const& directory) {
    auto const name = directory + '/' + receipt_name;
    auto const file = open_file(name);
    if (file.get() < 0 && errno == ENOENT) {
        return std::nullopt;
    }
    check_call(file.get(), "cannot open " + name);
    std::string text;
    read_blocks(file, name, [&](std::string_view block) { text += block; });
    auto const end = std::min(text.rfind(last_line), text.size());
    Sha256 digest;
    digest.update(text.substr(0, end));
    Receipt receipt;
    std::istringstream lines(text.substr(0, end));
    for (std::string kind, value, path;
         lines >> kind >> value && std::getline(lines.ignore(), path);) {
        if (kind == "product") {
            receipt.products[path] = value;
        } else {
            receipt.entries[path] = kind + ' ' + value;
        }
    }
    if (text.substr(end) != std::string(last_line) + digest.hex() + '\n' ||
        receipt.products.empty()) {
        throw std::runtime_error("the receipt is damaged: " + name);
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
