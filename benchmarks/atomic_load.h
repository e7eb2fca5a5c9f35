#pragma once

/// Returns false, after one sequentially consistent load from an atomic of another library.
bool load_flag() noexcept;
