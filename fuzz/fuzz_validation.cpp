// A rule's outcome equals a plain second reading of it.

#include <algorithm>
#include <cctype>
#include <sstream>
#include <stdexcept>

#include "fuzz/fuzz.h"
#include "utilities/argument_validation.h"

using namespace install::cpputil;

namespace {

bool plainly_passes(std::string const& value, std::string const& rule) {
    auto const colon = rule.find(':');
    auto const kind = rule.substr(0, colon);
    if (kind == "strval") {
        auto const list = "," + (colon == std::string::npos ? rule : rule.substr(colon + 1)) + ",";
        return value.find(',') == std::string::npos &&
               list.find("," + value + ",") != std::string::npos;
    }
    if (kind == "boolval") {
        auto word = value;
        std::transform(word.begin(), word.end(), word.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        return word == "TRUE" || word == "FALSE" || word == "YES" || word == "NO";
    }
    if (kind == "intval") {
        std::istringstream stream(value.c_str());
        int number = 0;
        return static_cast<bool>(stream >> number);
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const text = text_of(data, size);
    auto const half = std::min(text.find('\n'), size);
    auto const value = text.substr(0, half);
    auto const rule = text.substr(std::min(half + 1, size));
    if (rule.substr(0, 5) == "rfile") {
        return 0;  // names files of this machine
    }
    try {
        validate_args({{"name", value}}, {{"name", rule}});
        require(plainly_passes(value, rule));
    } catch (std::invalid_argument const& error) {
        require(!plainly_passes(value, rule));
        require(error.what() ==
                std::string(("key='name' value='" + value + "' rule='" + rule + "'").c_str()));
    }
    return 0;
}
