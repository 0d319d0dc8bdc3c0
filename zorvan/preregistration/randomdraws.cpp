// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/randomdraws.h"

#include <algorithm>
#include <utility>

namespace prereg {

std::uint32_t drawBelow(std::mt19937& random, std::uint32_t n)
{
    constexpr std::uint64_t range = std::uint64_t{1} << 32;
    const std::uint64_t limit = range - range % n; // above it, low numbers would come too often
    std::uint64_t drawn = random();
    while (drawn >= limit) drawn = random();
    return static_cast<std::uint32_t>(drawn % n);
}

std::vector<std::uint32_t> drawSubset(std::mt19937& random, std::uint32_t k, std::uint32_t n)
{
    std::vector<std::uint32_t> subset;
    if (k > n) return subset;
    subset.reserve(k);
    while (subset.size() < k) {
        for (std::uint64_t vain = 0;; ++vain) {
            if (vain == std::uint64_t{2} * k) return {};
            const std::uint32_t drawn = drawBelow(random, n);
            const auto place = std::lower_bound(subset.begin(), subset.end(), drawn);
            if (place != subset.end() && *place == drawn) continue;
            subset.insert(place, drawn);
            break;
        }
    }
    for (std::uint32_t i = k; i > 1; --i) std::swap(subset[i - 1], subset[drawBelow(random, i)]);
    return subset;
}

} // namespace prereg
