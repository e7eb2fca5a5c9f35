#include "platform/platform_info.h"

#include <locale.h>
#include <pwd.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/internal/cancellation_guard.h"
#include "platform/internal/guarded.h"
#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

struct UserNames {
    /// The user whose name was looked up last, if it is known.
    std::optional<uid_t> current;
    std::map<uid_t, std::string> known;
};
constinit LibraryMutex user_names_mutex(LibraryMutex::Rank::user_names);
constinit Guarded<UserNames> user_names(user_names_mutex);
Guarded<UserNames>::Lifetime const user_names_lifetime(user_names);

struct LocaleDeleter {
    void operator()(locale_t locale) const noexcept { ::freelocale(locale); }
};
using Locale = std::unique_ptr<std::remove_pointer_t<locale_t>, LocaleDeleter>;

/// Returns whether \p name is UTF-8 and can be part of a file's name.
bool is_usable(std::string const& name) {
    try {
        TextConversion::checkUtf8(name);
        return name.find('/') == std::string::npos;
    } catch (TextConversionError const&) {
        return false;
    }
}

/// Returns the name of \p user, or an empty string if the database has none that is usable or
/// cannot be queried. The two cannot be distinguished, because some databases report a failure as a
/// missing user.
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
    std::string name = found == nullptr ? "" : entry.pw_name;
    return is_usable(name) ? name : std::string();
}

}  // namespace

std::string PlatformInfo::userName() const {
    auto const user = ::geteuid();
    if (Guarded<UserNames>::Access const names(user_names); names && names->current == user) {
        return names->known.at(user);
    }
    // Without the lock, because a directory server may respond slowly.
    auto name = look_up_name(user);
    Guarded<UserNames>::Access const names(user_names);
    if (!names) {
        return name;
    }
    names->current.reset();
    if (!name.empty()) {
        names->known[user] = std::move(name);
        names->current = user;
    }
    return names->known[user];
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
    // strftime returns 0 both for an empty result and if the buffer is too small. With one more
    // character, the result is never empty.
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
