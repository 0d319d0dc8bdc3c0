// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>

namespace prereg {

/// Sets up to which their pairs take little time, and draw all points that they may.
constexpr std::size_t uiMaxSetsOfFullDraws = 32;

/// A set that is sampled together with some others.
struct SampledSet
{
    std::size_t uiPoints = 0;
    std::size_t uiPartners = 0; ///< other sets near it

    /// Points for each of its pairs, so that together they draw each of its points about once: a pair draws from one of
    /// its sets, so from this one in half of its pairs.
    [[nodiscard]] std::size_t Share() const { return 2 * uiPoints / std::max<std::size_t>(uiPartners, 1) + 1; }
};

/// Points that a pair draws of at most so many: all that the set with fewer partners can spare. Not installed.
[[nodiscard]] inline unsigned SharedDraws(const SampledSet& a, const SampledSet& b, unsigned uiMost)
{
    return static_cast<unsigned>(std::min<std::size_t>(uiMost, std::max(a.Share(), b.Share())));
}

} // namespace prereg
