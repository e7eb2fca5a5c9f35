#pragma once

/// \file
/// Verified and safe unpacking of a product's archive. Can be copied without the other files of the
/// example; it needs libarchive, nettle, install::cpputil and threads. LC_CTYPE must be a UTF-8
/// locale.

#include <nettle/sha2.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

struct archive;
struct archive_entry;

/// Owns a file descriptor, or none.
class Descriptor {
public:
    explicit Descriptor(int value = -1) : value_(value) {}
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    ~Descriptor() {
        if (value_ >= 0) {
            ::close(value_);
        }
    }
    int get() const { return value_; }

private:
    int value_;
};

/// Returns \p result, the result of a system call.
/// \throws std::system_error with the text \p what if the call failed
int check_call(int result, std::string const& what);

/// A SHA-256 digest.
class Sha256 {
public:
    Sha256() { sha256_init(&state_); }
    Sha256& update(std::string_view data);
    /// Adds the content of \p file. Calls \p before_block before each read. Messages contain
    /// \p name.
    /// \throws std::system_error if the file cannot be read
    /// \throws any exception of \p before_block
    Sha256& update(Descriptor const& file, std::string const& name,
                   std::function<void()> const& before_block);
    /// Returns the digest of all data in lowercase hexadecimal digits, and starts again.
    std::string hex();

private:
    sha256_ctx state_ = {};
};

/// Returns \p text as UTF-8 that is safe to print and log: U+FFFD replaces control characters, line
/// and paragraph separators, characters that change the direction of text and, if \p text is not
/// UTF-8, every byte that is not ASCII.
std::string printable(std::string const& text);

/// The archive NAME.tar.zst or NAME.tar.gz of a product. Warnings of libarchive are errors, because
/// an installation must be complete.
///
/// Functions throw InstallerException if the archive is rejected or libarchive fails (e.g. on a
/// full disk), std::system_error if another system call fails, and interrupt::Exception if the flag
/// is raised. They write a record for each unpacked entry to the diagnostic channel
/// "product_archive".
class ProductArchive {
public:
    /// Called with the number of bytes of `size()` that were unpacked since the previous call.
    using Progress = std::function<void(std::uintmax_t)>;
    /// Called for each file and symbolic link, with "file" or "link", the digest of the content or
    /// of the path that the link contains, and the path of the entry.
    using Unpacked = std::function<void(std::string const& kind, std::string const& digest,
                                        std::string const& path)>;

    /// Opens \p path, compares its digest with the file PATH.sha256, which `sha256sum` writes, and
    /// then checks all names and links in it. Renaming or replacing \p path later has no effect.
    explicit ProductArchive(std::filesystem::path path);

    /// Returns the disk space that the entries may need, in bytes.
    std::uintmax_t size() const { return size_; }

    /// Unpacks all entries into the current directory, which must be private to the process. Their
    /// permissions are those in the archive, less the umask and without set-user-ID and similar
    /// bits; directories also get 0700. Holes of sparse files are filled with zeros.
    void unpack(Unpacked const& unpacked, Progress const& progress);

private:
    using Handle = std::unique_ptr<archive, int (*)(archive*)>;

    void verify() const;
    Handle openReader();
    archive_entry* nextEntry(Handle const& reader);
    void checkEntry(archive_entry* entry) const;
    void unpackEntry(Handle const& reader, Handle const& disk, archive_entry* entry,
                     Unpacked const& unpacked, Progress const& progress) const;
    Sha256 unpackContent(Handle const& reader, Handle const& disk, archive_entry* entry,
                         Progress const& progress) const;
    void check(Handle const& handle, int result, char const* function = __builtin_FUNCTION()) const;
    [[noreturn]] void reject(std::string const& why,
                             char const* function = __builtin_FUNCTION()) const;

    std::filesystem::path path_;
    Descriptor file_;
    std::uintmax_t size_ = 0;
    std::string entry_;  ///< the current entry's normalised path, or "entry N" before it is known
};
