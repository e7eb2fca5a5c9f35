#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/path.h"

namespace install::cpputil {

/// Owns a file descriptor, or none.
class Descriptor final {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int value) noexcept : value_(value) {}
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, none)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() { close(); }

    void close() noexcept;
    bool isOpen() const noexcept { return value_ != none; }
    int get() const noexcept { return value_; }

private:
    static constexpr int none = -1;

    int value_ = none;
};

/// A file, pipe or device opened for reading raw bytes.
///
/// \par Thread safety
///     Only one thread at a time may use a stream.
/// \par Cancellation
///     A thread can be cancelled while it waits for a pipe or a terminal, and not otherwise.
class InputFileStream final {
public:
    /// Opens \p path. The stream is not open if the file is missing, is a directory or cannot be
    /// opened for reading. Does not wait for the writer of a pipe. If another process has a lease
    /// on the file, waits up to a minute for the system to break it.
    explicit InputFileStream(Path const& path);
    InputFileStream(InputFileStream const&) = delete;
    InputFileStream& operator=(InputFileStream const&) = delete;

    /// Returns whether the constructor could open the file.
    bool isOpen() const noexcept { return descriptor_.isOpen(); }

    /// Returns the next line without its line feed, or `std::nullopt` at end of file. The last line
    /// need not end with a line feed. A read error is treated as end of file; a line cut short
    /// is dropped. Waits for a pipe until a writer has opened it and the line is complete.
    ///
    /// The line refers to memory of this stream and is valid until the next call.
    /// \throws std::bad_alloc if a line does not fit into memory
    std::optional<std::string_view> readLine();

    /// Returns the file's size as reported by the system (0 in /proc), or -1 if the file is not
    /// seekable or the stream is not open.
    std::int64_t endPosition() noexcept;

private:
    bool fill();
    void makeRoom();
    bool awaitInput();

    Descriptor descriptor_;
    // True for a pipe until a writer has opened it; until then, a read would report its end.
    bool needsWriter_;
    // The first buffer: a small file needs no allocation.
    std::array<char, 4096> initial_;
    // The buffer that replaces initial_ when it is full; null until then.
    std::unique_ptr<char[]> larger_;
    char* buffer_ = initial_.data();
    std::size_t capacity_ = initial_.size();
    // The bytes of the buffer that were read and not yet returned: from begin_ up to end_.
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    // Set by the first read that reaches the end or fails; nothing is read after it.
    bool atEnd_ = false;
};

/// A file opened for appending.
///
/// \par Thread safety
///     Only one thread at a time may use a stream. Every write appends at the current end of the
///     file, even if other processes append to it.
/// \par Cancellation
///     A thread is not cancelled while it opens, writes or closes a stream.
class OutputFileStream final {
public:
    /// Opens \p path; creates a missing file with mode 0666, less the umask. The stream is not open
    /// if the file cannot be opened or created, or is a pipe without a reader. If another process
    /// has a lease on the file, waits up to a minute for the system to break it.
    explicit OutputFileStream(Path const& path);

    /// Opens a private file of the effective user in a directory where other users can create
    /// files. Creates a missing file with mode 0600. If \p path is not a regular file with one
    /// link that belongs to the user, in particular if it is a symbolic link, the stream is not
    /// open.
    static OutputFileStream openPrivate(Path const& path);

    /// Returns whether the constructor could open the file.
    bool isOpen() const noexcept { return descriptor_.isOpen(); }

    /// Appends \p text with one system call, or with more if the system accepts only part of it.
    /// Waits for the reader of a full pipe. When it returns, the system has accepted the text,
    /// so it is not lost if the process is killed. A failure, such as a full disk, is not reported.
    void write(std::string_view text) noexcept;

private:
    explicit OutputFileStream(Descriptor descriptor) noexcept;

    Descriptor descriptor_;
};

}  // namespace install::cpputil
