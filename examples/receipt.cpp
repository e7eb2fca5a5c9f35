#include "receipt.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

constexpr auto const* first_line = "receipt 1\n";
constexpr auto const* last_line = "sha256 ";

std::vector<std::string> names_in(Descriptor const& directory) {
    std::vector<std::string> names;
    auto const own = ::openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::unique_ptr<DIR, int (*)(DIR*)> const stream(own < 0 ? nullptr : ::fdopendir(own),
                                                     ::closedir);
    check_call(stream == nullptr ? -1 : 0, "cannot read a directory");
    while (auto const* const entry = ::readdir(stream.get())) {
        if (std::string_view const name = entry->d_name; name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    return names;
}

/// Reads the lines between the first and the last one. Returns false if one of them is malformed.
bool parse_lines(std::string const& text, Receipt& receipt) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        auto const value = line.find(' ') + 1;
        auto const name = line.find(' ', value) + 1;
        if (value == 0 || name == 0 || name == line.size()) {
            return false;
        }
        auto const kind = line.substr(0, value - 1);
        if (kind == "product") {
            receipt.products[line.substr(name)] = line.substr(value, name - 1 - value);
        } else if (kind == "file" || kind == "link") {
            receipt.entries[line.substr(name)] = line.substr(0, name - 1);
        } else {
            return false;
        }
    }
    return !receipt.products.empty();
}

/// Removes entries recursively: the number of open directories limits the depth.
// NOLINTBEGIN(misc-no-recursion)
class Remover {
public:
    Remover(Receipt const* receipt, Kept const& kept) : receipt_(receipt), kept_(kept) {}

    /// \param prefix  the path of \p directory inside the installation, with a separator at its end
    void removeFrom(Descriptor const& directory, std::string const& prefix) const {
        for (auto const& name : names_in(directory)) {
            try {
                remove(directory, name, prefix + name);
            } catch (std::system_error const& error) {
                kept_(prefix + name, error.code().message());
            }
        }
    }

private:
    void remove(Descriptor const& directory, std::string const& name,
                std::string const& path) const {
        struct statx status = {};
        struct statx parent = {};
        auto const flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
        check_call(::statx(directory.get(), name.c_str(), flags, STATX_TYPE, &status), name);
        check_call(::statx(directory.get(), "", AT_EMPTY_PATH, STATX_TYPE, &parent), name);
        // The attribute also marks a directory of the same file system that is mounted here.
        if ((status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 ||
            status.stx_dev_major != parent.stx_dev_major ||
            status.stx_dev_minor != parent.stx_dev_minor) {
            kept_(path, "a mounted file system");
        } else if (S_ISDIR(status.stx_mode)) {
            auto const child = open_directory(directory.get(), name);
            removeFrom(child, path + '/');
            auto const result = ::unlinkat(directory.get(), name.c_str(), AT_REMOVEDIR);
            if (result != 0 && errno != ENOTEMPTY && errno != EEXIST) {
                check_call(result, name);
            }
        } else if (auto const why = reasonToKeep(directory, name, path); !why.empty()) {
            kept_(path, why);
        } else {
            check_call(::unlinkat(directory.get(), name.c_str(), 0), name);
        }
    }

    std::string reasonToKeep(Descriptor const& directory, std::string const& name,
                             std::string const& path) const {
        if (receipt_ == nullptr || path == receipt_name) {
            return {};
        }
        auto const entry = receipt_->entries.find(path);
        if (entry == receipt_->entries.end()) {
            return "added";
        }
        return describe_entry(directory.get(), name) == entry->second ? "" : "changed";
    }

    Receipt const* receipt_;
    Kept const& kept_;
};
// NOLINTEND(misc-no-recursion)

}  // namespace

ReceiptWriter::ReceiptWriter() : file_(receipt_name) {
    write(first_line);
}

void ReceiptWriter::write(std::string const& line) {
    digest_.update(line.data(), line.size());
    file_ << line;
}

void ReceiptWriter::add(std::string const& description, std::string const& name) {
    write(description + ' ' + name + '\n');
}

void ReceiptWriter::finish() {
    file_ << last_line << digest_.hex() << '\n';
    file_.close();
    if (!file_) {
        throw std::runtime_error("cannot write the receipt");
    }
}

std::optional<Receipt> read_receipt(int directory, std::string const& path) {
    auto const name = path + '/' + receipt_name;
    Descriptor const file(
        ::openat(directory, receipt_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0 && errno == ENOENT) {
        return std::nullopt;
    }
    check_call(file.get(), "cannot open " + name);
    std::string text;
    std::array<char, 1 << 16> block = {};
    while (auto const size =
               check_call(static_cast<int>(::read(file.get(), block.data(), block.size())),
                          "cannot read " + name)) {
        text.append(block.data(), static_cast<std::size_t>(size));
    }
    auto const begin = std::string_view(first_line).size();
    auto const end = text.rfind(last_line);
    Sha256 digest;
    digest.update(text.data(), std::min(end, text.size()));
    Receipt receipt;
    if (text.rfind(first_line, 0) != 0 || end == std::string::npos || end < begin ||
        text.substr(end) != last_line + digest.hex() + '\n' ||
        !parse_lines(text.substr(begin, end - begin), receipt)) {
        throw std::runtime_error("the receipt is damaged: " + name);
    }
    return receipt;
}

Descriptor open_directory(int parent, std::string const& name) {
    auto const flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    return Descriptor(check_call(::openat(parent, name.c_str(), flags), "cannot open " + name));
}

void remove_entries(Descriptor const& directory, Receipt const* receipt, Kept const& kept) {
    Remover(receipt, kept).removeFrom(directory, "");
}
