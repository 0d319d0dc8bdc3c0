// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/ctaskcollection.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace prereg {

/// Calls work(first, last) for contiguous parts of the indices 0 .. n - 1 (`last` is behind the end), as many as there
/// are tasks but none empty; on the calling thread below 2 tasks. Returns when all are done.
template <typename Work>
void forEachPart(unsigned numTasks, std::size_t n, const Work& work)
{
    if (n == 0) return;
    if (numTasks < 2) {
        work(std::size_t{0}, n);
        return;
    }
    const std::size_t parts = std::min<std::size_t>(numTasks, n);
    const double step = static_cast<double>(n) / static_cast<double>(parts);
    const auto start = [step](std::size_t k) {
        return static_cast<std::size_t>(std::floor(static_cast<double>(k) * step + 0.5));
    };
    Zorvan::CTaskCollection tasks;
    for (std::size_t k = 0; k < parts; ++k) {
        tasks.Schedule([&work, first = start(k), last = start(k + 1)] { work(first, last); });
    }
    tasks.RunAndWait();
}

/// Calls first() and second() side by side, on the calling thread one after the other below 2 tasks. Returns when both
/// are done.
template <typename First, typename Second>
void inParallel(unsigned numTasks, const First& first, const Second& second)
{
    forEachPart(numTasks, 2, [&](std::size_t from, std::size_t to) {
        if (from == 0) first();
        if (to == 2) second();
    });
}

} // namespace prereg
