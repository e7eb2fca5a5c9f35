// Comparison is antisymmetric, and a version equals itself and itself with a zero at its end.

#include <optional>
#include <stdexcept>

#include "fuzz/fuzz.h"
#include "platform/text_conversion.h"
#include "utilities/version_comparator.h"

using namespace install::cpputil;

namespace {

std::optional<int> order(std::string const& first, std::string const& second) {
    try {
        return VersionComparator().compareVersionNumbers(TextConversion::fromUtf8(first),
                                                         TextConversion::fromUtf8(second));
    } catch (std::logic_error const&) {
        return std::nullopt;  // a component that is no number, or one out of range
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const [first, second] = halves_of(data, size);
    auto const text = first + '\n' + second;
    if (!error_of<TextConversionError>([&] { TextConversion::checkUtf8(text); }).empty()) {
        return 0;
    }
    auto const there = order(first, second);
    auto const back = order(second, first);
    require(there.has_value() == back.has_value() && there.value_or(0) == -back.value_or(0));
    auto const dot = first.empty() || first.back() == '.' ? "" : ".";
    require(order(first, first).value_or(0) == 0 &&
            order(first, first + dot + "0").value_or(0) == 0);

    std::string joined;
    for (auto const& component : VersionComparator().tokenizeString(first)) {
        joined += component + '.';
    }
    require(joined == first + dot);
    return 0;
}
