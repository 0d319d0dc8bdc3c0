// SPDX-License-Identifier: MIT
#pragma once

// Draws that are the same with every standard library. Not installed.

#include <algorithm>
#include <cstddef>
#include <random>

namespace Zorvan {

/// Uniform in [0, 1), from the upper 24 bits of one number of the engine.
[[nodiscard]] inline float DrawUnit(std::mt19937& rng)
{
    constexpr float unit = 1.0F / (1 << 24);
    return static_cast<float>(rng() >> 8) * unit;
}

/// Uniform in [0, count).
[[nodiscard]] inline std::size_t DrawIndex(std::mt19937& rng, std::size_t count)
{
    // The product may round up to a count above 2^24.
    return std::min(static_cast<std::size_t>(DrawUnit(rng) * static_cast<float>(count)), count - 1);
}

} // namespace Zorvan
