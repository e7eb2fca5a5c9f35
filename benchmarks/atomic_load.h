#pragma once

/// Returns a flag that is false, after one sequentially consistent load, from another library.
bool load_flag() noexcept;
