#include "receipt.h"

#include <fcntl.h>
#include <fts.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ext/stdio_filebuf.h>
#include <filesystem>
#include <istream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr auto const* last_line = "sha256 ";

/// Opens a file, neither following a link nor waiting for a pipe, which may have replaced it.
int open_file(std::string const& name) {
    return ::open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

/// Returns the entry of a receipt for a file or link.
std::string describe(std::string const& name, bool is_link) {
    if (is_link) {
        std::array<char, PATH_MAX> target = {};
        auto const size = check_call(
            static_cast<int>(::readlink(name.c_str(), target.data(), target.size())), name);
        return "link " + Sha256().update({target.data(), static_cast<std::size_t>(size)}).hex();
    }
    Descriptor const file(check_call(open_file(name), "cannot open " + name));
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

void ReceiptWriter::add(std::string const& kind, std::string const& value,
                        std::string const& name) {
    auto const line = kind + ' ' + value + ' ' + name + '\n';
    file_ << line;
    digest_.update(line);
}

void ReceiptWriter::finish() {
    file_ << last_line << digest_.hex() << '\n';
    file_.close();
    if (!file_) {
        throw std::runtime_error("cannot write " + (fs::current_path() / receipt_name).string());
    }
}

Receipt read_receipt(std::string const& directory) {
    Receipt receipt;
    auto const name = directory + '/' + receipt_name;
    auto const descriptor = open_file(name);
    if (descriptor < 0 && errno == ENOENT) {
        return receipt;
    }
    check_call(descriptor, "cannot open " + name);
    __gnu_cxx::stdio_filebuf<char> buffer(descriptor, std::ios::in);  // Closes the descriptor.
    std::istream file(&buffer);
    Sha256 digest;
    auto is_intact = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(last_line, 0) == 0) {
            is_intact = line == last_line + digest.hex();
            continue;
        }
        is_intact = false;
        digest.update(line + '\n');
        std::istringstream fields(line);
        std::string kind, value, path;
        fields >> kind >> value;
        std::getline(fields.ignore(), path);
        if (kind == "product") {
            receipt.products[path] = value;
        } else {
            receipt.entries[path] = kind + ' ' + value;
        }
    }
    if (!is_intact || receipt.products.empty()) {
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
            ::fts_set(tree.get(), entry, FTS_SKIP);  // It may be a mount point.
        }
        if (!why.empty()) {
            kept[path] = why;
        }
    }
    if (errno != 0) {
        kept[""] = std::generic_category().message(errno);
    }
    return kept;
}
