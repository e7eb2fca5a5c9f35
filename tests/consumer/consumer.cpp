#include <platform/text_conversion.h>
#include <utilities/input_file_parser.h>

#include <iostream>

int main(int argc, char** argv) {
    using namespace install::cpputil;
    if (argc != 2) {
        return 2;
    }
    auto const inputs = InputFileParser().parse(TextConversion::fromUtf8(argv[1]));
    auto const& directory = std::get<std::u16string>(inputs.at(u"install_dir"));
    std::cout << "installing to " << TextConversion::toUtf8(directory) << '\n';
}
