// Parsing an input file through the file stream gives the same map as converting its input lines.

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/fuzz.h"
#include "platform/text_conversion.h"
#include "utilities/input_file_parser.h"

using namespace install::cpputil;

namespace {

/// Writes \p text to a file that exists only in memory and returns the file's name.
std::u16string write_file(std::string const& text) {
    static int const descriptor = ::memfd_create("input_file", MFD_CLOEXEC);
    require(::ftruncate(descriptor, 0) == 0);
    require(::pwrite(descriptor, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return TextConversion::fromUtf8("/proc/self/fd/" + std::to_string(descriptor));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const path = write_file({reinterpret_cast<char const*>(data), size});
    auto const kept = InputFileParser().getUserInputsFromFile(path);
    auto const result_of = [](auto convert) {
        PropertyMap map;
        auto const error = error_of<TextConversionError>([&] { map = convert(); });
        return std::pair(error, map);
    };
    require(result_of([&] { return InputFileParser().parse(path); }) ==
            result_of([&] { return InputFileParser().convertInputsToPropertyMap(kept); }));
    return 0;
}
