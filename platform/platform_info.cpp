#include "platform/platform_info.h"

#include <locale.h>
#include <pwd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/internal/cancellation_guard.h"
#include "platform/internal/process_mutex.h"

namespace install::cpputil {
namespace {

/// Guards `current_` and `names_` of every object.
constinit ProcessMutex names_mutex(ProcessMutex::Rank::user_names);
ProcessMutex::ForkRegistration const names_mutex_registration(names_mutex);

struct LocaleDeleter {
    void operator()(locale_t locale) const noexcept { ::freelocale(locale); }
};
using Locale = std::unique_ptr<std::remove_pointer_t<locale_t>, LocaleDeleter>;

/// Returns the name of \p user, or an empty text if the database has none or cannot be queried. The two
/// cannot be distinguished, because some databases report a failure as a missing user.
std::string look_up_name(uid_t user) {
    CancellationGuard const uncancelled;
    constexpr std::size_t usual_size = 32;
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
    return found == nullptr ? std::string() : entry.pw_name;
}

}  // namespace

PlatformInfo::User PlatformInfo::effectiveUser() const {
    auto const user = ::geteuid();
    {
        std::lock_guard const lock(names_mutex);
        if (current_ == user) {
            return {user, names_.at(user)};
        }
    }
    // Without the lock, because a directory server may respond slowly.
    auto const name = look_up_name(user);
    std::lock_guard const lock(names_mutex);
    current_.reset();
    if (!name.empty()) {
        names_[user] = name;
        current_ = user;
    }
    return {user, names_[user]};
}

std::string PlatformInfo::userName() const {
    return effectiveUser().name;
}

std::string PlatformInfo::currentTime(std::string const& pattern) {
    return formatTime(std::time(nullptr), pattern);
}

std::string PlatformInfo::formatTime(std::time_t time, std::string const& pattern) {
    if (pattern.find('\0') != std::string::npos) {
        throw std::invalid_argument("a time pattern must not contain a NUL");
    }
    std::tm local = {};
    if (::localtime_r(&time, &local) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot determine the local time");
    }
    Locale const locale(::newlocale(LC_ALL_MASK, "C", nullptr));
    if (locale == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot create the locale \"C\"");
    }
    // strftime returns 0 both for an empty text and if the buffer is too small. With one more
    // character, the text is never empty.
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
