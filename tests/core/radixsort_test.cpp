// SPDX-License-Identifier: MIT
#include "zorvan/core/radixsort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace {

using Item = std::pair<std::uint64_t, int>; // a key, and where it stood

std::vector<Item> items(std::size_t n, std::uint64_t mask)
{
    std::mt19937_64 rng(47110815);
    std::vector<Item> items;
    for (std::size_t i = 0; i < n; ++i) items.emplace_back(rng() & mask, static_cast<int>(i));
    return items;
}

TEST(RadixSort, SortsAsAStableSortDoes)
{
    // All bytes; few keys, many of them equal; bytes in the middle alone; one key.
    for (const std::uint64_t mask : {~0ULL, 0x3ULL, 0xF00F000000ULL, 0ULL}) {
        for (const std::size_t n : {0U, 1U, 2U, 1000U}) {
            std::vector<Item> sorted = items(n, mask);
            Zorvan::RadixSort(sorted, [](const Item& item) { return item.first; });
            std::vector<Item> expected = items(n, mask);
            std::ranges::stable_sort(expected, {}, &Item::first);
            EXPECT_EQ(sorted, expected) << n << " items, mask " << mask;
        }
    }
}

} // namespace
