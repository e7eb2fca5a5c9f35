#include "platform/file_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace install::cpputil {
namespace {

constexpr int no_descriptor = -1;
constexpr std::size_t initial_capacity = 32768;

/// Repeats a system call for as long as signals break it off.
template <typename Call>
auto retry(Call call) noexcept {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

int open_file(Path const& path, int flags) noexcept {
    constexpr mode_t mode = 0666;
    if (path.string().empty()) {
        return no_descriptor;
    }
    return retry(
        [&] { return ::open(path.narrowName().c_str(), flags | O_CLOEXEC | O_NOCTTY, mode); });
}

void close_file(int descriptor) noexcept {
    // Not repeated after EINTR: the descriptor is gone by then and may be another thread's.
    if (descriptor != no_descriptor) {
        ::close(descriptor);
    }
}

bool is_directory(int descriptor) noexcept {
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

InputFileStream::InputFileStream(Path const& path) : descriptor_(open_file(path, O_RDONLY)) {
    if (isOpen() && is_directory(descriptor_)) {
        close_file(descriptor_);
        descriptor_ = no_descriptor;
    }
}

InputFileStream::~InputFileStream() {
    close_file(descriptor_);
}

bool InputFileStream::isOpen() const noexcept {
    return descriptor_ != no_descriptor;
}

bool InputFileStream::readLine(std::string_view& line) {
    std::size_t searched = 0;
    do {
        auto const unread = std::string_view(buffer_.get() + begin_, end_ - begin_);
        if (auto const length = unread.find('\n', searched); length != std::string_view::npos) {
            line = unread.substr(0, length);
            begin_ += length + 1;
            return true;
        }
        searched = unread.size();
    } while (fill());
    line = std::string_view(buffer_.get() + begin_, end_ - begin_);
    begin_ = end_;
    return !line.empty();
}

/// Reads what the system has next behind the unread bytes, which move to the buffer's start. A line
/// that fills the buffer doubles it. Returns false when nothing came, for good.
bool InputFileStream::fill() {
    if (atEnd_) {
        return false;
    }
    auto const unread = end_ - begin_;
    if (unread == capacity_) {
        auto const capacity = std::max(initial_capacity, 2 * capacity_);
        auto larger = std::unique_ptr<char[]>(new char[capacity]);
        std::copy_n(buffer_.get() + begin_, unread, larger.get());
        buffer_ = std::move(larger);
        capacity_ = capacity;
    } else {
        std::memmove(buffer_.get(), buffer_.get() + begin_, unread);
    }
    auto const count =
        retry([&] { return ::read(descriptor_, buffer_.get() + unread, capacity_ - unread); });
    atEnd_ = count <= 0;
    begin_ = 0;
    end_ = unread + (atEnd_ ? 0 : static_cast<std::size_t>(count));
    return !atEnd_;
}

std::int64_t InputFileStream::endPosition() noexcept {
    auto const position = ::lseek(descriptor_, 0, SEEK_CUR);
    auto const end = ::lseek(descriptor_, 0, SEEK_END);
    ::lseek(descriptor_, position, SEEK_SET);
    return end;
}

OutputFileStream::OutputFileStream(Path const& path)
    : descriptor_(open_file(path, O_WRONLY | O_APPEND | O_CREAT)) {}

OutputFileStream::~OutputFileStream() {
    close_file(descriptor_);
}

bool OutputFileStream::isOpen() const noexcept {
    return descriptor_ != no_descriptor;
}

void OutputFileStream::write(std::string_view text) noexcept {
    while (!text.empty()) {
        auto const count = retry([&] { return ::write(descriptor_, text.data(), text.size()); });
        if (count <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

}  // namespace install::cpputil
