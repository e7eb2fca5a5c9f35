#include "utilities/argument_validation.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <stdexcept>
#include <string_view>

#include "platform/file_system_service.h"
#include "platform/internal/file_stream.h"
#include "platform/text_conversion.h"
#include "utilities/logger.h"

namespace install::cpputil {
namespace {

/// Returns whether \p value is one of the pieces of \p list between commas.
bool is_item(std::string_view value, std::string_view list) {
    for (;;) {
        auto const comma = list.find(',');
        if (value == list.substr(0, comma)) {
            return true;
        }
        if (comma == std::string_view::npos) {
            return false;
        }
        list.remove_prefix(comma + 1);
    }
}

bool is_boolean(std::string const& value) {
    constexpr std::string_view words[] = {"true", "false", "yes", "no"};
    return std::any_of(std::begin(words), std::end(words), [&](std::string_view word) {
        return boost::algorithm::iequals(value, word);
    });
}

bool is_integer(std::string const& value) {
    try {
        static_cast<void>(std::stoi(value));
        return true;
    } catch (std::logic_error const&) {
        // The value is not a number, or is out of range.
        return false;
    }
}

bool is_readable_file(std::string const& value) {
    Path const path(TextConversion::fromUtf8(value));
    if (!FileSystemService::exists(path)) {
        return false;
    }
    InputFileStream stream(path);
    return stream.isOpen() && stream.endPosition() > 0;
}

bool passes(std::string const& value, std::string_view kind, std::string_view list) {
    if (kind == "strval") {
        return is_item(value, list);
    }
    if (kind == "boolval") {
        return is_boolean(value);
    }
    if (kind == "intval") {
        return is_integer(value);
    }
    if (kind == "rfile") {
        return is_readable_file(value);
    }
    // Every value passes an unknown rule.
    return true;
}

void validate(std::string const& name, std::string const& value, std::string_view rule) {
    auto const colon = rule.find(':');
    auto const kind = rule.substr(0, colon);
    auto const list = colon == std::string_view::npos ? rule : rule.substr(colon + 1);
    if (passes(value, kind, list)) {
        return;
    }
    auto const failure =
        "key='" + name + "' value='" + value + "' rule='" + std::string(rule) + "'";
    if (kind != "rfile") {
        throw std::invalid_argument(failure);
    }
    logger::append_message("Error reading file " + value);
    logger::append_message("File '" + value + "' does not exist or it's empty");
    throw std::runtime_error(failure);
}

}  // namespace

void validate_args(std::map<std::string, std::string> const& args,
                   std::map<std::string, std::string> const& rules) {
    for (auto const& [name, value] : args) {
        if (auto const rule = rules.find(name); rule != rules.end()) {
            validate(name, value, rule->second);
        }
    }
}

}  // namespace install::cpputil
