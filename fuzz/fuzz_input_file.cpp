// Text of an input file to a map: what a plain reading, line by line as the format has it, gives.

#include <sstream>

#include "fuzz/fuzz.h"
#include "platform/text_conversion.h"
#include "utilities/input_file_parser.h"

using namespace install::cpputil;

namespace {

PropertyMap plainly_converted(std::string const& text) {
    InputFileParser parser;
    PropertyMap map;
    std::vector<std::u16string> products;
    std::istringstream stream(text.substr(0, text.rfind('\n') + 1));
    for (std::string line; std::getline(stream, line);) {
        bool const assignment = line.find('=') != std::string::npos;
        auto const separator = std::min(line.find(assignment ? '=' : '.'), line.size());
        auto const start = line.find_first_not_of(assignment ? '=' : '.', separator);
        bool const product =
            !assignment && line.find("product") != std::string::npos && start != std::string::npos;
        if (!assignment && !product) {
            continue;
        }
        auto const key = TextConversion::fromUtf8(
            parser.stringToLowerCase(parser.trim(line.substr(0, separator))));
        auto value =
            TextConversion::fromUtf8(parser.trim(line.substr(std::min(start, line.size()))));
        if (product) {
            parser.removeUnderscores(value);
            products.push_back(value);
            parser.updateMap(map, key, products);
        } else if (!key.empty() && key != u"product") {
            parser.updateMap(map, key, value);
        }
    }
    return map;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const text = text_of(data, size);
    PropertyMap map, again, plain;
    auto const convert = [&](PropertyMap& result) {
        return error_of<TextConversionError>(
            [&] { result = InputFileParser().convertInputsToPropertyMap(text); });
    };
    require(convert(map) == convert(again) && map == again);
    auto const error = error_of<TextConversionError>([&] { plain = plainly_converted(text); });
    require(convert(map).empty() == error.empty() && map == plain);
    return 0;
}
