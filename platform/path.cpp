#include "platform/path.h"

#include <algorithm>
#include <stdexcept>

#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

std::u16string with_single_separators(std::u16string text) {
    auto const both_separators = [](char16_t left, char16_t right) {
        return left == u'/' && right == u'/';
    };
    text.erase(std::unique(text.begin(), text.end(), both_separators), text.end());
    return text;
}

}  // namespace

Path::Path(std::u16string const& text)
    : text_(with_single_separators(text)), narrowName_(TextConversion::toNarrow(text_)) {
    if (auto const position = narrowName_.find('\0'); position != std::string::npos) {
        throw std::invalid_argument("a path must not contain a NUL: \"" +
                                    narrowName_.substr(0, position) + "\" is followed by one");
    }
}

}  // namespace install::cpputil
