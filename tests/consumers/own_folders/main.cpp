#include <install_cpputil/platform/path.h>
#include <install_cpputil/utilities/input_file_parser.h>
#include <install_cpputil/utilities/logger.h>
#include <platform/path.h>

#include <variant>

int main(int, char** argv) {
    using namespace install::cpputil;
    logger::Logger const log(Path(u"install.log"));
    auto const inputs = InputFileParser().parse(own::to_utf16(argv[1]));
    logger::append_message(u"installing to " + std::get<std::u16string>(inputs.at(u"install_dir")));
}
