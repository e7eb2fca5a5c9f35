#pragma once

/// Performs one seq_cst load across a library boundary; returns false.
bool load_flag() noexcept;
