// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Zorvan {

/// Sorts by unsigned keys, equal ones in the order in which they stand, byte by byte from the lowest; bytes that all
/// keys share cost nothing.
/// @param keyOf  of an item, its key of up to 64 bits
template <typename Item, typename KeyOf>
void RadixSort(std::vector<Item>& items, KeyOf keyOf)
{
    constexpr unsigned numBytes = 8;
    constexpr unsigned numValues = 256;
    const auto byteOf = [&](const Item& item, unsigned byte) -> std::size_t {
        return static_cast<std::uint64_t>(keyOf(item)) >> (8U * byte) & (numValues - 1);
    };
    std::array<std::array<std::size_t, numValues>, numBytes> counts{};
    for (const Item& item : items)
        for (unsigned byte = 0; byte < numBytes; ++byte) ++counts[byte][byteOf(item, byte)];
    std::vector<Item> sorted;
    for (unsigned byte = 0; byte < numBytes; ++byte) {
        std::array<std::size_t, numValues>& places = counts[byte];
        if (items.empty() || places[byteOf(items.front(), byte)] == items.size()) continue;
        std::size_t next = 0;
        for (std::size_t& place : places) next += std::exchange(place, next);
        sorted.resize(items.size());
        for (const Item& item : items) sorted[places[byteOf(item, byte)]++] = item;
        items.swap(sorted);
    }
}

} // namespace Zorvan
