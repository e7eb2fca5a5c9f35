#include "platform/path.h"

#include <stdexcept>

#include "platform/file_system_service.h"
#include "platform/text_conversion.h"

namespace install::cpputil {

Path::Path(std::u16string const& text)
    : text_(FileSystemService::nativeForm(text)), narrowName_(TextConversion::toNarrow(text_)) {
    if (auto const position = narrowName_.find('\0'); position != std::string::npos) {
        throw std::invalid_argument("a path must not hold a NUL: \"" +
                                    narrowName_.substr(0, position) + "\" is followed by one");
    }
}

}  // namespace install::cpputil
