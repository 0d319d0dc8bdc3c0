// SPDX-License-Identifier: MIT
#pragma once

// Draws that are the same with every standard library. Not installed.

#include "zorvan/platform/export.h"

#include <cstdint>
#include <random>
#include <vector>

namespace prereg {

/// Uniform in 0 .. n - 1, by rejection; n > 0.
[[nodiscard]] std::uint32_t drawBelow(std::mt19937& random, std::uint32_t n);

/// k different numbers out of 0 .. n - 1, in random order. Empty for k = 0 or k > n, and when one of them took 2 k
/// draws in vain, as happens when k is nearly n.
[[nodiscard]] ZORVAN_API std::vector<std::uint32_t> drawSubset(std::mt19937& random, std::uint32_t k, std::uint32_t n);

} // namespace prereg
