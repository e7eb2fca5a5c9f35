#pragma once

namespace own {

inline constexpr char16_t const* log_file = u"install.log";

}  // namespace own
