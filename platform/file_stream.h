#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "export.h"
#include "path.h"

namespace install::cpputil {

/// A file, pipe or device open for reading, byte by byte as it is. Owns one descriptor, which child
/// programs do not inherit, and closes it in its destructor.
///
/// \par Thread safety
///     One thread at a time may use a stream.
class INSTALL_CPPUTIL_EXPORT InputFileStream final {
public:
    /// Opens \p path. A directory, a missing file or one that the process may not read leaves the
    /// stream not open.
    explicit InputFileStream(Path const& path);
    InputFileStream(InputFileStream const&) = delete;
    InputFileStream& operator=(InputFileStream const&) = delete;
    ~InputFileStream();

    /// Returns whether the constructor could open the file.
    bool isOpen() const noexcept;

    /// Reads the next line, of any length, into \p line, without the line feed that ends it. A last
    /// line without a line feed counts; a failed read ends the file.
    ///
    /// Returns whether there was a line. \p line refers to memory of this stream and is valid until
    /// the next call.
    /// \throws std::bad_alloc if a line does not fit into memory
    bool readLine(std::string_view& line);

    /// Returns the position of the file's end, in bytes: its size, which may not be known before it
    /// is read (0 for entries of /proc). -1 for what has no positions, such as a pipe, and for a
    /// stream that is not open.
    std::int64_t endPosition() noexcept;

private:
    bool fill();

    int descriptor_;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_ = 0;
    // Bytes that were read and not yet handed out: from begin_ up to end_.
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    // Set by the first read that finds the end or fails; nothing is read after it.
    bool atEnd_ = false;
};

/// A file open for appending; made, with mode 0666 under the umask, where it is missing. Owns one
/// descriptor, which child programs do not inherit, and closes it in its destructor.
///
/// \par Thread safety
///     One thread at a time may use a stream. Every write lands at the end of the file as it is at
///     that moment, whoever else appends to it.
class INSTALL_CPPUTIL_EXPORT OutputFileStream final {
public:
    /// Opens \p path. What cannot be opened for writing or made leaves the stream not open.
    explicit OutputFileStream(Path const& path);
    OutputFileStream(OutputFileStream const&) = delete;
    OutputFileStream& operator=(OutputFileStream const&) = delete;
    ~OutputFileStream();

    /// Returns whether the constructor could open the file.
    bool isOpen() const noexcept;

    /// Appends \p text in one write of the system; in more where the system takes only part of it.
    /// When it returns, the system has the text, so that the end of the process does not lose it. A
    /// failure, such as a full disk, is not reported.
    void write(std::string_view text) noexcept;

private:
    int descriptor_;
};

}  // namespace install::cpputil
