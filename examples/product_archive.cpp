#include "product_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <install_cpputil/platform/diagnostic_channel.h>
#include <install_cpputil/platform/text_conversion.h>
#include <install_cpputil/utilities/installer_exception.h>
#include <install_cpputil/utilities/interrupt.h>
#include <nettle/version.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <future>
#include <system_error>
#include <vector>

using namespace install::cpputil;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t read_size = 1 << 16;
constexpr std::uintmax_t entry_size = 4096;  // the usual block size of file systems

DiagnosticChannel diagnostics("product_archive");

/// Returns whether a character could forge lines or reorder text on a terminal.
bool is_hidden(char16_t c) {
    return c < u' ' || (c >= 0x7f && c < 0xa0) || c == 0x61c || c == 0x200e || c == 0x200f ||
           (c >= 0x2028 && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
}

bool is_inside(fs::path const& name) {
    return name.is_relative() && std::find(name.begin(), name.end(), "..") == name.end();
}

/// Returns whether the symbolic link \p name could lead out of the installation, directly or
/// through other links. It cannot if \p target is not empty, is relative, and contains ".." only at
/// its beginning, at most once for each directory above the link.
bool leads_out(fs::path const& name, fs::path const& target) {
    auto const ups = [](fs::path const& p) { return std::count(p.begin(), p.end(), ".."); };
    return target.empty() || target.is_absolute() ||
           ups(target) != ups(target.lexically_normal()) ||
           ups((name.parent_path() / target).lexically_normal()) != 0;
}

/// Returns the target of a hard link, or null if the entry is something else.
char const* hard_link_target(archive_entry* entry) {
    auto const* const utf8 = archive_entry_hardlink_utf8(entry);
    // `utf8` is also null if the target is not UTF-8.
    return utf8 != nullptr ? utf8 : archive_entry_hardlink(entry);
}

}  // namespace

int check_call(int result, std::string const& what) {
    if (auto const error = errno; result < 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
    return result;
}

Sha256& Sha256::update(std::string_view data) {
    sha256_update(&state_, data.size(), reinterpret_cast<std::uint8_t const*>(data.data()));
    return *this;
}

Sha256& Sha256::update(Descriptor const& file, std::string const& name,
                       std::function<void()> const& before_block) {
    std::vector<char> block(read_size);
    for (off_t offset = 0;;) {
        before_block();
        auto const size = ::pread(file.get(), block.data(), block.size(), offset);
        check_call(static_cast<int>(size), "cannot read " + name);
        if (size == 0) {
            return *this;
        }
        update({block.data(), static_cast<std::size_t>(size)});
        offset += size;
    }
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
            auto const byte = static_cast<unsigned char>(c);
            units += byte < 0x80 ? char16_t(byte) : replacement;
        }
    }
    std::replace_if(units.begin(), units.end(), is_hidden, replacement);
    return TextConversion::toUtf8(units);
}

ProductArchive::ProductArchive(fs::path path) : path_(std::move(path)) {
    file_ = Descriptor(check_call(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC),
                                  "cannot open " + path_.string()));
    verify();
    auto const reader = openReader();
    while (auto* const entry = nextEntry(reader)) {
        size_ += entry_size + static_cast<std::uintmax_t>(archive_entry_size(entry));
    }
    if (size_ == 0) {
        reject("the archive has no entries");
    }
}

void ProductArchive::verify() const {
    auto const list = path_.string() + ".sha256";
    std::string line;
    // Other kinds of files could block the process.
    if (!fs::is_regular_file(list) || !std::getline(std::ifstream(list), line)) {
        reject("the digest file cannot be read: " + list);
    }
    constexpr std::size_t digits = 64;
    auto const name = line.size() > digits + 2 ? fs::path(line.substr(digits + 2)) : fs::path();
    if (name.filename() != path_.filename()) {
        reject("the first line of " + list + " is not the output of sha256sum for the archive");
    }
    auto const stop = [this] { interrupt::throw_if_set("verifying " + path_.string()); };
    if (line.substr(0, digits) != Sha256().update(file_, path_.string(), stop).hex()) {
        reject("the archive is damaged: its SHA-256 differs");
    }
}

ProductArchive::Handle ProductArchive::openReader() {
    check_call(static_cast<int>(::lseek(file_.get(), 0, SEEK_SET)),
               "cannot read " + path_.string());
    Handle reader(archive_read_new(), archive_read_free);
    archive_read_support_format_tar(reader.get());
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_filter_zstd(reader.get());
    check(reader, archive_read_set_options(reader.get(), "read_concatenated_archives"));
    check(reader, archive_read_open_fd(reader.get(), file_.get(), read_size));
    return reader;
}

/// Reads and checks the header of the next entry. Returns null at the end of the archive.
archive_entry* ProductArchive::nextEntry(Handle const& reader) {
    interrupt::throw_if_set("reading " + path_.string());
    entry_ = "entry " + std::to_string(archive_file_count(reader.get()) + 1);
    archive_entry* entry = nullptr;
    auto const result = archive_read_next_header(reader.get(), &entry);
    if (result == ARCHIVE_EOF) {
        entry_.clear();
        return nullptr;
    }
    check(reader, result);
    auto const* const name = archive_entry_pathname_utf8(entry);
    if (name == nullptr || printable(name) != name) {
        reject("its name is not UTF-8 or has control characters");
    }
    entry_ = fs::path(name + std::string("/.")).lexically_normal().parent_path();
    checkEntry(entry);
    return entry;
}

/// Rejects, before anything is unpacked, names outside the installation, entries that are neither
/// files, directories nor links, and symbolic links that could lead out of the installation.
void ProductArchive::checkEntry(archive_entry* entry) const {
    auto const type = archive_entry_filetype(entry);
    auto const* const hard_link = hard_link_target(entry);
    auto const* const target = archive_entry_symlink_utf8(entry);
    if (!is_inside(entry_) || (hard_link != nullptr && !is_inside(hard_link))) {
        reject("a name outside the installation");
    }
    // A hard link with content would overwrite an earlier file.
    if (hard_link != nullptr ? archive_entry_size(entry) > 0
                             : type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK) {
        reject("not a file, a directory, a symbolic link or a hard link");
    }
    if (hard_link == nullptr && type == AE_IFLNK &&
        leads_out(entry_, target == nullptr ? "" : target)) {
        reject("a symbolic link that leads out of the installation");
    }
}

void ProductArchive::unpack(Unpacked const& unpacked, Progress const& progress) {
    auto const reader = openReader();
    Handle const disk(archive_write_disk_new(), archive_write_free);
    // The checks of libarchive apply to relative names, hence the current directory.
    archive_write_disk_set_options(
        disk.get(), ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                        ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS);
    while (auto* const entry = nextEntry(reader)) {
        unpackEntry(reader, disk, entry, unpacked, progress);
        progress(entry_size);
        diagnostics.write(Severity::changes, {"unpacked ", entry_});
        // Lets tests stop a run here; remove it from a copy.
        interrupt::test::pause_and_throw_if_set("EXAMPLE_INSTALLER_PAUSE");
    }
    check(disk, archive_write_close(disk.get()));
}

void ProductArchive::unpackEntry(Handle const& reader, Handle const& disk, archive_entry* entry,
                                 Unpacked const& unpacked, Progress const& progress) const {
    auto const is_directory = archive_entry_filetype(entry) == AE_IFDIR;
    std::error_code error;
    auto const existing = fs::symlink_status(entry_.empty() ? "." : entry_, error);
    if (existing.type() == fs::file_type::none) {
        reject(error.message());
    }
    if (fs::exists(existing) && !(is_directory && fs::is_directory(existing))) {
        reject("the installation already has an entry of this name");
    }
    if (is_directory) {
        // Without these permissions, its owner could not replace the installation later.
        archive_entry_set_perm(entry, archive_entry_perm(entry) | 0700);
    }
    // In another directory, a hard link to a symbolic link could lead to another target.
    auto const* const hard_link = hard_link_target(entry);
    if (hard_link != nullptr && !fs::is_regular_file(fs::symlink_status(hard_link, error))) {
        reject("a hard link to something other than an unpacked file");
    }
    check(disk, archive_write_header(disk.get(), entry));
    auto digest = unpackContent(reader, disk, entry, progress);
    check(disk, archive_write_finish_entry(disk.get()));
    auto const* const target = archive_entry_symlink_utf8(entry);
    if (target != nullptr) {
        digest.update(target);
    } else if (hard_link != nullptr) {
        Descriptor const file(::open(hard_link, O_RDONLY | O_CLOEXEC));
        if (file.get() < 0) {
            reject("a hard link to a file that cannot be read");
        }
        digest.update(file, entry_, [this] { interrupt::throw_if_set("reading " + entry_); });
    }
    if (!is_directory) {
        unpacked(target != nullptr ? "link" : "file", digest.hex(), entry_);
    }
}

/// Writes the content of an entry to the disk, and returns its digest. A second thread hashes full
/// blocks, because hashing takes about as long as decompressing.
Sha256 ProductArchive::unpackContent(Handle const& reader, Handle const& disk, archive_entry* entry,
                                     Progress const& progress) const {
    constexpr la_int64_t block_size = 1 << 18;
    Sha256 digest;
    std::array<std::vector<char>, 2> blocks;
    // Hashes one block while it is written and the next one is read.
    auto hashing = std::async(std::launch::deferred, [] {});
    auto left = archive_entry_size(entry);
    for (std::size_t i = 0; left > 0; ++i) {
        interrupt::throw_if_set("unpacking " + entry_);
        auto& block = blocks[i % blocks.size()];
        block.assign(static_cast<std::size_t>(std::min(left, block_size)), '\0');
        auto const size = archive_read_data(reader.get(), block.data(), block.size());
        check(reader, static_cast<int>(size));
        hashing.get();
        // A hole at the end of a sparse file has no data; it is written as zeros.
        block.resize(size == 0 ? block.size() : static_cast<std::size_t>(size));
        // For a small block, creating a thread takes longer than hashing. If no thread can be
        // created, the second flag applies.
        auto const policy = block.size() == block_size ? std::launch::async | std::launch::deferred
                                                       : std::launch::deferred;
        hashing = std::async(policy, [&digest, &block] {
            digest.update({block.data(), block.size()});
        });
        check(disk, static_cast<int>(archive_write_data(disk.get(), block.data(), block.size())));
        progress(block.size());
        left -= static_cast<la_int64_t>(block.size());
    }
    hashing.get();
    return digest;
}

void ProductArchive::check(Handle const& handle, int result, char const* function) const {
    if (result >= ARCHIVE_OK) {
        return;
    }
    auto const* const text = archive_error_string(handle.get());
    auto why = std::string(text == nullptr ? "unknown error" : text);
    auto const code = archive_errno(handle.get());
    if (code > 0 && code != EILSEQ) {  // libarchive reports a malformed archive as EILSEQ.
        why += ": " + std::generic_category().message(code);
    }
    reject(why, function);
}

void ProductArchive::reject(std::string const& why, char const* function) const {
    auto const place = path_.string() + ": " + (entry_.empty() ? "" : entry_ + ": ");
    throw InstallerException("E300", "Nothing was changed.", place + why,
                             createLocation("ProductArchive", function));
}
