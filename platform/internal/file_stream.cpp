#include "platform/internal/file_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "platform/internal/cancellation_guard.h"

namespace install::cpputil {
namespace {

/// The initial capacity of the heap buffer.
constexpr std::size_t usual_capacity = 65536;

/// Returns the result of the system call \p call, which is repeated while signals interrupt it.
template <typename Call>
auto retry(Call call) noexcept {
    CancellationGuard const uncancelled;
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Occupies the numbers of closed standard streams with /dev/null.
void occupy_standard_streams() noexcept {
    CancellationGuard const uncancelled;
    int number = STDIN_FILENO;
    while (number >= 0 && number <= STDERR_FILENO) {
        number = ::open("/dev/null", O_RDONLY);
    }
    ::close(number);
}

/// Moves \p file to another number: it has that of a closed standard stream, to which other threads
/// may print.
Descriptor above_standard_streams(Descriptor file) noexcept {
    Descriptor moved(
        retry([&] { return ::fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }));
    file.close();
    occupy_standard_streams();
    return moved;
}

Descriptor open_file(Path const& path, int flags, mode_t mode = 0) noexcept {
    if (path.string().empty()) {
        errno = ENOENT;
        return {};
    }
    Descriptor file(retry(
        [&] { return ::open(path.narrowName().c_str(), flags | O_CLOEXEC | O_NOCTTY, mode); }));
    return file.isOpen() && file.get() <= STDERR_FILENO ? above_standard_streams(std::move(file))
                                                        : std::move(file);
}

/// Opens \p path without waiting for the other end of a pipe: if nothing reads a pipe, it cannot be
/// opened for writing.
Descriptor open_without_waiting(Path const& path, int flags, mode_t mode = 0) noexcept {
    constexpr int attempts_in_a_minute = 6'000;
    for (int attempt = 1;; ++attempt) {
        auto file = open_file(path, flags | O_NONBLOCK, mode);
        if (file.isOpen() || errno != EWOULDBLOCK || attempt == attempts_in_a_minute) {
            return file;
        }
        // Another process, e.g. a file server, has a lease on the file. The attempt to open the
        // file makes the system break the lease, by default within 45 seconds.
        CancellationGuard const uncancelled;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

mode_t type_of(Descriptor const& file) noexcept {
    struct stat status = {};
    return file.isOpen() && ::fstat(file.get(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

constexpr int append_flags = O_WRONLY | O_APPEND | O_CREAT;

Descriptor open_private_file(Path const& path) noexcept {
    auto file = open_file(path, append_flags | O_NONBLOCK | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    struct stat status = {};
    if (file.isOpen() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
        status.st_uid == ::geteuid() && status.st_nlink == 1) {
        return file;
    }
    return {};
}

}  // namespace

void Descriptor::close() noexcept {
    CancellationGuard const uncancelled;
    // Not repeated after EINTR: the descriptor is closed by then and may already belong to another
    // thread.
    if (isOpen()) {
        ::close(std::exchange(value_, none));
    }
}

InputFileStream::InputFileStream(Path const& path)
    : descriptor_(open_without_waiting(path, O_RDONLY)) {
    auto const type = type_of(descriptor_);
    needsWriter_ = type == S_IFIFO;
    if (type == S_IFDIR) {
        descriptor_.close();
    }
}

std::optional<std::string_view> InputFileStream::readLine() {
    std::size_t searched = 0;
    do {
        auto const unread = std::string_view(buffer_ + begin_, end_ - begin_);
        if (auto const length = unread.find('\n', searched); length != std::string_view::npos) {
            begin_ += length + 1;
            return unread.substr(0, length);
        }
        searched = unread.size();
    } while (fill());
    if (begin_ == end_) {
        return std::nullopt;
    }
    return std::string_view(buffer_ + std::exchange(begin_, end_), searched);
}

/// Appends the next bytes of the file to the unread ones. Returns false at the end of the file or
/// if the read fails.
bool InputFileStream::fill() {
    if (atEnd_) {
        return false;
    }
    if (end_ == capacity_) {
        makeRoom();
    }
    if (std::exchange(needsWriter_, false) && !awaitInput()) {
        atEnd_ = true;
        return false;
    }
    auto const read = [&] { return ::read(descriptor_.get(), buffer_ + end_, capacity_ - end_); };
    auto count = retry(read);
    while (count == -1 && errno == EAGAIN && awaitInput()) {
        count = retry(read);
    }
    if (count < 0) {
        begin_ = end_;
    }
    if (count <= 0) {
        atEnd_ = true;
        return false;
    }
    end_ += static_cast<std::size_t>(count);
    return true;
}

/// Waits until a read would not block. Returns false if the system cannot wait. The calling thread
/// can be cancelled meanwhile: unlike `open` and `read`, a cancelled `poll` leaks no
/// descriptor and loses no data.
bool InputFileStream::awaitInput() {
    pollfd input = {descriptor_.get(), POLLIN, 0};
    int result = -1;
    do {
        result = ::poll(&input, 1, -1);
    } while (result == -1 && errno == EINTR);
    return result > 0;
}

/// Moves the unread bytes to the start of the buffer. Replaces the initial buffer, and a buffer
/// that a single line fills, with a larger one.
void InputFileStream::makeRoom() {
    auto const unread = end_ - begin_;
    if (larger_ == nullptr || unread == capacity_) {
        auto const capacity = std::max(usual_capacity, 2 * capacity_);
        auto larger = std::unique_ptr<char[]>(new char[capacity]);
        std::copy_n(buffer_ + begin_, unread, larger.get());
        larger_ = std::move(larger);
        buffer_ = larger_.get();
        capacity_ = capacity;
    } else {
        std::memmove(buffer_, buffer_ + begin_, unread);
    }
    begin_ = 0;
    end_ = unread;
}

std::int64_t InputFileStream::endPosition() noexcept {
    auto const position = ::lseek(descriptor_.get(), 0, SEEK_CUR);
    auto const end = ::lseek(descriptor_.get(), 0, SEEK_END);
    ::lseek(descriptor_.get(), position, SEEK_SET);
    return end;
}

OutputFileStream::OutputFileStream(Path const& path)
    : descriptor_(open_without_waiting(path, append_flags, 0666)) {}

OutputFileStream::OutputFileStream(Descriptor descriptor) noexcept
    : descriptor_(std::move(descriptor)) {}

OutputFileStream OutputFileStream::openPrivate(Path const& path) {
    return OutputFileStream(open_private_file(path));
}

void OutputFileStream::write(std::string_view text) noexcept {
    while (!text.empty()) {
        auto const count =
            retry([&] { return ::write(descriptor_.get(), text.data(), text.size()); });
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EAGAIN) {
            return;
        } else {
            pollfd space = {descriptor_.get(), POLLOUT, 0};
            retry([&] { return ::poll(&space, 1, -1); });
        }
    }
}

}  // namespace install::cpputil
