// A small installer: reads the user's answers from an input file and shows what it understood.

#include <exception>
#include <iostream>
#include <string>
#include <variant>

#include "platform/text_conversion.h"
#include "utilities/input_file_parser.h"

namespace {

using namespace install::cpputil;

std::string readable(PropertyValue const& value) {
    if (auto const* const text = std::get_if<std::u16string>(&value)) {
        return TextConversion::toUtf8(*text);
    }
    std::string list;
    for (auto const& name : std::get<std::vector<std::u16string>>(value)) {
        list += "\n    - " + TextConversion::toUtf8(name);
    }
    return list;
}

void print_inputs(PropertyMap const& inputs) {
    std::cout << inputs.size() << " inputs:\n";
    for (auto const& [key, value] : inputs) {
        std::cout << "  " << TextConversion::toUtf8(key) << " = " << readable(value) << '\n';
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: example_installer INPUT_FILE LOG_FILE\n";
        return 2;
    }
    std::string const input_file = argv[1];
    try {
        print_inputs(InputFileParser().parse(TextConversion::fromUtf8(input_file)));
        return 0;
    } catch (std::exception const& error) {
        std::cerr << "example_installer: " << input_file << ": " << error.what() << '\n';
        return 1;
    }
}
