#pragma once

#include <string>

namespace own {

inline std::u16string const prefix = u"installing to ";

}  // namespace own
