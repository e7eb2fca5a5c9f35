#include "product_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <install_cpputil/platform/text_conversion.h>
#include <install_cpputil/utilities/installer_exception.h>
#include <install_cpputil/utilities/interrupt.h>
#include <limits.h>
#include <nettle/version.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <future>
#include <optional>
#include <system_error>
#include <vector>

using namespace install::cpputil;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t block_size = 1 << 16;
constexpr la_int64_t large_file = 1 << 20;

/// Adds the content of \p file from \p offset on to \p digest. Returns the offset of the end. Calls
/// \p before_block, which may throw.
off_t add_content(
    Sha256& digest, int file, std::string const& name, off_t offset = 0,
    std::function<void()> const& before_block = [] {}) {
    std::vector<char> block(block_size);
    for (;;) {
        before_block();
        auto const size = ::pread(file, block.data(), block.size(), offset);
        check_call(static_cast<int>(size), "cannot read " + name);
        if (size == 0) {
            return offset;
        }
        digest.update(block.data(), static_cast<std::size_t>(size));
        offset += size;
    }
}

/// Returns whether a character could forge lines or reorder text on a terminal.
bool is_hidden(char16_t c) {
    return c < u' ' || (c >= 0x7f && c < 0xa0) || c == 0x61c || c == 0x200e || c == 0x200f ||
           (c >= 0x2028 && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
}

/// Returns \p name in normal form, without a separator at its end; empty for the directory itself.
std::string normal_name(std::string const& name) {
    return fs::path(name + "/.").lexically_normal().parent_path().string();
}

bool is_inside(fs::path const& name) {
    return name.is_relative() && std::find(name.begin(), name.end(), "..") == name.end();
}

/// Computes the digest of a large file while it is being unpacked. Another thread reads what has
/// been written and starts to write it to the disk, which shortens the final `syncfs`.
class LargeFileDigest {
public:
    explicit LargeFileDigest(std::string const& name)
        : name_(name),
          file_(check_call(::open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC),
                           "cannot read " + name)) {}

    /// \param written  the number of bytes that have been written
    void advance(off_t written) {
        auto const is_busy = pending_.valid() && pending_.wait_for(std::chrono::seconds(0)) !=
                                                     std::future_status::ready;
        if (!is_busy && written - started_ >= large_file) {
            started_ = written;
            pending_ = std::async(std::launch::async, [this] { follow(); });
        }
    }

    /// Call it after everything has been written.
    std::string finish() {
        if (pending_.valid()) {
            pending_.get();
        }
        follow();
        return digest_.hex();
    }

private:
    void follow() {
        ::sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
        offset_ = add_content(digest_, file_.get(), name_, offset_);
    }

    std::string const& name_;
    Descriptor file_;
    Sha256 digest_;
    off_t offset_ = 0;           ///< where the digest ends
    off_t started_ = 0;          ///< how much had been written when the thread was started
    std::future<void> pending_;  ///< Uses the other members, so it is destroyed first.
};

}  // namespace

Descriptor::~Descriptor() {
    if (value_ >= 0) {
        ::close(value_);
    }
}

int check_call(int result, std::string const& what) {
    if (auto const error = errno; result < 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
    return result;
}

void Sha256::update(void const* data, std::size_t size) {
    sha256_update(&state_, size, static_cast<std::uint8_t const*>(data));
}

std::string Sha256::hex() {
    std::array<std::uint8_t, SHA256_DIGEST_SIZE> bytes = {};
#if NETTLE_VERSION_MAJOR < 4
    sha256_digest(&state_, bytes.size(), bytes.data());
#else
    sha256_digest(&state_, bytes.data());
#endif
    std::string text;
    for (auto const byte : bytes) {
        constexpr auto const* digits = "0123456789abcdef";
        text += {digits[byte >> 4U], digits[byte & 15U]};
    }
    return text;
}

std::string printable(std::string const& text) {
    constexpr auto replacement = u'\uFFFD';
    std::u16string units;
    try {
        units = TextConversion::fromUtf8(text);
    } catch (TextConversionError const&) {  // Keeps what is legible.
        for (auto const c : text) {
            units += c >= 0 ? static_cast<char16_t>(c) : replacement;
        }
    }
    std::replace_if(units.begin(), units.end(), is_hidden, replacement);
    return TextConversion::toUtf8(units);
}

std::string describe_entry(int directory, std::string const& name) {
    auto const failed = "cannot read " + name;
    struct stat status = {};
    check_call(::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW), failed);
    Sha256 digest;
    if (S_ISLNK(status.st_mode)) {
        std::array<char, PATH_MAX> target = {};
        auto const size = ::readlinkat(directory, name.c_str(), target.data(), target.size());
        check_call(static_cast<int>(size), failed);
        digest.update(target.data(), static_cast<std::size_t>(size));
        return "link " + digest.hex();
    }
    if (!S_ISREG(status.st_mode)) {
        return {};
    }
    // If another process replaces the file, the call neither follows a link nor waits for a pipe.
    auto const flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor const file(check_call(::openat(directory, name.c_str(), flags), failed));
    add_content(digest, file.get(), name);
    return "file " + digest.hex();
}

ProductArchive::ProductArchive(fs::path path) : path_(std::move(path)) {
    file_ = Descriptor(check_call(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC),
                                  "cannot open " + path_.string()));
    // The digest is computed while the headers are read, which is only safe to rely on afterwards.
    auto verified = std::async(std::launch::async, [this] { verify(); });
    try {
        readHeaders();
    } catch (InstallerException const&) {
        verified.get();  // A damaged archive is reported as such.
        throw;
    }
    verified.get();
}

void ProductArchive::readHeaders() {
    auto const reader = openReader(__func__);
    archive_entry* entry = nullptr;
    while (next(reader, entry)) {
        checkEntry(entry);
        size_ += static_cast<std::uintmax_t>(archive_entry_size(entry));
        ++entries_;
    }
    if (entries_ == 0) {
        refuseArchive("the archive has no entries", __func__);
    }
}

void ProductArchive::verify() const {
    auto const list = path_.string() + ".sha256";
    std::string line;
    std::string more;
    // Other kinds of files could block the process.
    if (!fs::is_regular_file(list) || !std::getline(std::ifstream(list), line)) {
        refuseArchive("the digest file cannot be read: " + list, __func__);
    }
    constexpr std::size_t digits = 64;
    auto const name = line.size() > digits + 2 ? fs::path(line.substr(digits + 2)) : fs::path();
    if (name.filename() != path_.filename()) {
        refuseArchive("the first line of " + list + " is not the output of sha256sum for it",
                      __func__);
    }
    Sha256 digest;
    add_content(digest, file_.get(), path_.string(), 0,
                [&] { interrupt::throw_if_set("verifying " + path_.string()); });
    if (line.substr(0, digits) != digest.hex()) {
        refuseArchive("the archive is damaged: its SHA-256 differs", __func__);
    }
}

ProductArchive::Handle ProductArchive::openReader(char const* function) {
    entry_.clear();
    check_call(static_cast<int>(::lseek(file_.get(), 0, SEEK_SET)),
               "cannot read " + path_.string());
    Handle reader(archive_read_new(), archive_read_free);
    archive_read_support_format_tar(reader.get());
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_filter_zstd(reader.get());
    check(reader, archive_read_open_fd(reader.get(), file_.get(), block_size), function);
    return reader;
}

/// Reads the header of the next entry. Returns whether there is one.
bool ProductArchive::next(Handle const& reader, archive_entry*& entry) {
    interrupt::throw_if_set("reading " + path_.string());
    entry_ = "entry " + std::to_string(archive_file_count(reader.get()) + 1);
    auto const result = archive_read_next_header(reader.get(), &entry);
    if (result == ARCHIVE_EOF) {
        return false;
    }
    check(reader, result, __func__);
    auto const* const name = archive_entry_pathname_utf8(entry);
    if (name == nullptr || printable(name) != name) {
        refuse("its name is not UTF-8 or has control characters", __func__);
    }
    entry_ = normal_name(name);
    return true;
}

/// Refuses entries that libarchive would unpack: names outside of the installation, devices, and
/// symbolic links that could lead out of it.
void ProductArchive::checkEntry(archive_entry* entry) const {
    auto const type = archive_entry_filetype(entry);
    auto const* const hard_link = archive_entry_hardlink_utf8(entry);
    auto const* const target = archive_entry_symlink_utf8(entry);
    if (!is_inside(entry_) || (hard_link != nullptr && !is_inside(hard_link))) {
        refuse("a name outside of the installation", __func__);
    }
    // A hard link with content would overwrite an earlier file.
    if (hard_link != nullptr ? archive_entry_size(entry) > 0
                             : type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK) {
        refuse("not a file, a directory, a symbolic link or a hard link", __func__);
    }
    if (hard_link == nullptr && type == AE_IFLNK && leadsOut(target == nullptr ? "" : target)) {
        refuse("a symbolic link that leads out of the installation", __func__);
    }
}

/// Returns whether a symbolic link could lead out of the installation, directly or through other
/// links. It cannot if \p target is not empty, is relative, and contains ".." only at its
/// beginning, at most once for each directory above the link.
bool ProductArchive::leadsOut(fs::path const& target) const {
    auto const ups = [](fs::path const& p) { return std::count(p.begin(), p.end(), ".."); };
    auto const resolved = (fs::path(entry_).parent_path() / target).lexically_normal();
    return target.empty() || target.is_absolute() ||
           ups(target) != ups(target.lexically_normal()) || ups(resolved) != 0;
}

void ProductArchive::unpack(Progress const& progress, Record const& record) {
    auto const reader = openReader(__func__);
    Handle const disk(archive_write_disk_new(), archive_write_free);
    // The checks of libarchive apply to relative names, hence the current directory.
    archive_write_disk_set_options(
        disk.get(), ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                        ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS);
    archive_entry* entry = nullptr;
    while (next(reader, entry)) {
        checkEntry(entry);
        auto const description = unpackEntry(reader, disk, entry, progress);
        if (!description.empty()) {
            record(entry_, description);
        }
        // For tests of a run that is stopped here; to be removed in a copy.
        interrupt::test::pause_and_throw_if_set("EXAMPLE_INSTALLER_PAUSE");
    }
    check(disk, archive_write_close(disk.get()), __func__);
}

/// Returns the description of the entry; empty for a directory.
std::string ProductArchive::unpackEntry(Handle const& reader, Handle const& disk,
                                        archive_entry* entry, Progress const& progress) {
    auto const is_directory = archive_entry_filetype(entry) == AE_IFDIR;
    struct stat existing = {};
    auto const exists = ::lstat(entry_.empty() ? "." : entry_.c_str(), &existing) == 0;
    if (exists && !(is_directory && S_ISDIR(existing.st_mode))) {
        refuse("the installation already has an entry of this name", __func__);
    }
    if (is_directory) {
        // Without these permissions, its owner could not replace the installation later.
        archive_entry_set_perm(entry, archive_entry_perm(entry) | 0700);
    }
    auto const* const hard_link = archive_entry_hardlink(entry);
    // In another directory, a hard link to a symbolic link could lead to another target.
    if (hard_link != nullptr && !fs::is_regular_file(fs::symlink_status(hard_link))) {
        refuse("a hard link to something else than an unpacked file", __func__);
    }
    check(disk, archive_write_header(disk.get(), entry), __func__);
    auto const is_file = archive_entry_filetype(entry) == AE_IFREG && hard_link == nullptr;
    std::optional<LargeFileDigest> large;
    if (is_file && archive_entry_size(entry) >= large_file) {
        large.emplace(entry_);
    }
    Sha256 digest;
    void const* data = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    la_int64_t digested = 0;
    for (;;) {
        auto const result = archive_read_data_block(reader.get(), &data, &size, &offset);
        if (result == ARCHIVE_EOF) {
            break;
        }
        check(reader, result, __func__);
        check(disk, archive_write_data_block(disk.get(), data, size, offset), __func__);
        if (large) {
            large->advance(offset);
        } else if (offset == digested) {
            digest.update(data, size);
            digested += static_cast<la_int64_t>(size);
        }
        progress(size);
    }
    check(disk, archive_write_finish_entry(disk.get()), __func__);
    if (large) {
        return "file " + large->finish();
    }
    // Small files with holes, and links, are read again.
    auto const is_digested = is_file && digested == archive_entry_size(entry);
    return is_directory  ? ""
           : is_digested ? "file " + digest.hex()
                         : describe_entry(AT_FDCWD, entry_);
}

void ProductArchive::check(Handle const& handle, std::ptrdiff_t result,
                           char const* function) const {
    if (result >= ARCHIVE_OK) {
        return;
    }
    auto const* const text = archive_error_string(handle.get());
    auto why = std::string(text == nullptr ? "unknown error" : text);
    auto const code = archive_errno(handle.get());
    if (code > 0 && code != EILSEQ) {  // libarchive reports a malformed archive as EILSEQ.
        why += ": " + std::generic_category().message(code);
    }
    refuse(why, function);
}

void ProductArchive::refuse(std::string const& why, char const* function) const {
    auto const entry = entry_.empty() ? "" : entry_ + ": ";
    refuseArchive(entry + why, function);
}

void ProductArchive::refuseArchive(std::string const& why, char const* function) const {
    throw InstallerException("E300", "Nothing was changed.", path_.string() + ": " + why,
                             createLocation("ProductArchive", function));
}
