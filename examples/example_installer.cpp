// A small installer: reads the user's answers from an input file, shows what it understood, and keeps
// a log of what it did.

#include <exception>
#include <iostream>
#include <string>
#include <variant>

#include "platform/text_conversion.h"
#include "utilities/input_file_parser.h"
#include "utilities/logger.h"

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

void run_installation(std::string const& input_file) {
    auto const inputs = InputFileParser().parse(TextConversion::fromUtf8(input_file));
    logger::append_file(input_file);
    print_inputs(inputs);
    logger::append_message("understood " + std::to_string(inputs.size()) + " inputs");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: example_installer INPUT_FILE LOG_FILE\n";
        return 2;
    }
    std::string const input_file = argv[1];
    try {
        logger::Logger const log{std::string(argv[2])};
        logger::append_message(std::string("installation started"));
        try {
            run_installation(input_file);
        } catch (std::exception const& error) {
            logger::append_message(std::string("installation failed: ") + error.what());
            throw;
        }
        logger::append_message(std::string("installation finished"));
        return 0;
    } catch (std::exception const& error) {
        std::cerr << "example_installer: " << input_file << ": " << error.what() << '\n';
        return 1;
    }
}
