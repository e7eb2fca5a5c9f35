#include "platform/platform_info.h"

#include <locale.h>
#include <pwd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

namespace install::cpputil {
namespace {

struct LocaleDeleter {
    void operator()(locale_t locale) const noexcept { ::freelocale(locale); }
};
using Locale = std::unique_ptr<std::remove_pointer_t<locale_t>, LocaleDeleter>;

/// Returns the name of \p user, empty when there is none; nothing when the database does not
/// answer.
std::optional<std::string> look_up_name(uid_t user) {
    constexpr std::size_t usual_size = 1024;
    std::vector<char> buffer(usual_size);
    passwd entry = {};
    passwd* found = nullptr;
    int error = 0;
    while ((error = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found)) == ERANGE ||
           error == EINTR) {
        if (error == ERANGE) {
            buffer.resize(2 * buffer.size());
        }
    }
    if (found != nullptr) {
        return entry.pw_name;
    }
    return error == 0 ? std::optional(std::string()) : std::nullopt;
}

}  // namespace

std::string PlatformInfo::userName() const {
    std::lock_guard const lock(mutex_);
    auto const user = ::geteuid();
    if (user_ != user) {
        user_.reset();
        auto name = look_up_name(user);
        if (!name) {
            return {};
        }
        userName_ = std::move(*name);
        user_ = user;
    }
    return userName_;
}

std::string PlatformInfo::currentTime(std::string const& pattern) const {
    return formatTime(std::time(nullptr), pattern);
}

std::string PlatformInfo::formatTime(std::time_t time, std::string const& pattern) {
    if (pattern.find('\0') != std::string::npos) {
        throw std::invalid_argument("a time pattern must not hold a NUL");
    }
    std::tm local = {};
    if (::localtime_r(&time, &local) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "local time");
    }
    Locale const locale(::newlocale(LC_ALL_MASK, "C", nullptr));
    if (locale == nullptr) {
        throw std::system_error(errno, std::generic_category(), "locale C");
    }
    // strftime gives 0 both for an empty text and for a buffer that is too small; with one
    // character more, a text is never empty.
    auto const terminated = pattern + '.';
    std::string text(128, '\0');
    std::size_t length = 0;
    while ((length = ::strftime_l(text.data(), text.size(), terminated.c_str(), &local,
                                  locale.get())) == 0) {
        text.resize(2 * text.size());
    }
    text.resize(length - 1);
    return text;
}

}  // namespace install::cpputil
