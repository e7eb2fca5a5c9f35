#include <install_cpputil/platform/text_conversion.h>
#include <install_cpputil/utilities/input_file_parser.h>
#include <install_cpputil/utilities/logger.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <variant>

using namespace install::cpputil;

int main(int argc, char** argv) {
    std::string const input_file = argc > 1 ? argv[1] : "inputs.txt";
    try {
        logger::Logger const log(u"install.log");
        auto const inputs = InputFileParser().parse(TextConversion::fromUtf8(input_file));
        auto const entry = inputs.find(u"install_dir");
        if (entry == inputs.end()) {
            throw std::runtime_error("the input file has no install_dir");
        }
        logger::append_message(u"installing to " + std::get<std::u16string>(entry->second));
    } catch (std::exception const& error) {
        std::cerr << "my_installer: " << error.what() << '\n';
        return 1;
    }
}
