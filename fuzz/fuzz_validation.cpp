// A rule's outcome equals a plain second reading of it.

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
    auto const [value, rule] = halves_of(data, size);
    if (rule.substr(0, 5) == "rfile") {
        return 0;  // names files of this machine
    }
    std::map<std::string, std::string> const args = {{"name", value}}, rules = {{"name", rule}};
    auto const failure = "key='name' value='" + value + "' rule='" + rule + "'";
    require(error_of<std::invalid_argument>([&] { validate_args(args, rules); }) ==
            (plainly_passes(value, rule) ? "" : failure.c_str()));
    return 0;
}
