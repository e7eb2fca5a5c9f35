#include "platform/system_locale_service.h"

#include <cstdlib>
#include <string_view>

namespace install::cpputil {
namespace {

char const* own_variable(SystemLocaleService::Category category) {
    switch (category) {
        case SystemLocaleService::Category::messages:
            return "LC_MESSAGES";
    }
    return "LANG";
}

std::string_view setting(SystemLocaleService::Category category) {
    for (char const* const variable : {"LC_ALL", own_variable(category), "LANG"}) {
        char const* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "C";
}

}  // namespace

SystemLocaleService::SystemLocaleService(Category category) {
    auto const value = setting(category);
    auto const name = value.substr(0, value.find_first_of(".@"));
    if (name == "C" || name == "POSIX") {
        language_ = "en";
        region_ = "US";
        return;
    }
    auto const underscore = name.find('_');
    language_ = name.substr(0, underscore);
    if (underscore != std::string_view::npos) {
        region_ = name.substr(underscore + 1);
    }
}

}  // namespace install::cpputil
