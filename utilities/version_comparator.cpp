#include "utilities/version_comparator.h"

#include <algorithm>
#include <cstddef>

#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

int component(std::vector<std::string> const& components, std::size_t index) {
    return index < components.size() ? std::stoi(components[index]) : 0;
}

}  // namespace

VersionComparator::~VersionComparator() = default;

int VersionComparator::compareVersionNumbers(std::u16string const& first,
                                             std::u16string const& second) const {
    auto const first_components = tokenizeString(TextConversion::toNarrow(first));
    auto const second_components = tokenizeString(TextConversion::toNarrow(second));
    auto const count = std::max(first_components.size(), second_components.size());
    for (std::size_t index = 0; index != count; ++index) {
        auto const left = component(first_components, index);
        auto const right = component(second_components, index);
        if (left != right) {
            return left > right ? 1 : -1;
        }
    }
    return 0;
}

std::vector<std::string> VersionComparator::tokenizeString(std::string const& text) const {
    std::vector<std::string> components;
    components.reserve(1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), '.')));
    for (std::size_t start = 0; start < text.size();) {
        auto const end = std::min(text.find('.', start), text.size());
        components.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return components;
}

}  // namespace install::cpputil
