// SPDX-License-Identifier: MIT
#include "zorvan/raster/cpixelpolygon.h"

#include "zorvan/raster/pixelmask.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace Zorvan {

namespace {

/// Neighbouring pixels of a row that are set.
struct Run
{
    int y;
    int xStart;
    int xEnd; ///< inclusive
};

/// The run where the set of run i begins; paths are halved on the way.
std::size_t firstOf(std::vector<std::size_t>& parents, std::size_t i)
{
    while (parents[i] != i) i = parents[i] = parents[parents[i]];
    return i;
}

/// The first x from here on where the row has this byte; `end` when there is none.
int findByte(const unsigned char* row, int x, int end, unsigned char value)
{
    const void* const found = std::memchr(row + x, value, static_cast<std::size_t>(end - x));
    return found ? static_cast<int>(static_cast<const unsigned char*>(found) - row) : end;
}

void appendRuns(const CPixelMask& mask, int y, std::vector<Run>& runs)
{
    const unsigned char* const row = mask.Row(y);
    const auto width = static_cast<int>(mask.Box().Width());
    for (int x = findByte(row, 0, width, 1); x < width; x = findByte(row, x, width, 1)) {
        const int start = x;
        x = findByte(row, x, width, 0);
        runs.push_back({y, start, x - 1});
    }
}

/// Joins each run of a row with those of the row above that touch it, by sides or corners.
void joinRows(const std::vector<Run>& runs, std::size_t above, std::size_t begin, std::vector<std::size_t>& parents)
{
    for (std::size_t i = begin; i < runs.size(); ++i) {
        while (above < begin && runs[above].xEnd + 1 < runs[i].xStart) ++above;
        for (std::size_t j = above; j < begin && runs[j].xStart <= runs[i].xEnd + 1; ++j) {
            const auto [first, second] = std::minmax({firstOf(parents, i), firstOf(parents, j)});
            parents[second] = first;
        }
    }
}

/// The first run of each region.
std::vector<Run> firstRuns(const CPixelMask& mask)
{
    std::vector<Run> runs;
    std::vector<std::size_t> parents;
    std::size_t above = 0;
    for (int y = 0; y < static_cast<int>(mask.Box().Height()); ++y) {
        const std::size_t begin = runs.size();
        appendRuns(mask, y, runs);
        parents.resize(runs.size());
        std::iota(parents.begin() + static_cast<std::ptrdiff_t>(begin), parents.end(), begin);
        joinRows(runs, above, begin, parents);
        above = begin;
    }
    std::vector<Run> first;
    for (std::size_t i = 0; i < runs.size(); ++i)
        if (parents[i] == i) first.push_back(runs[i]);
    return first;
}

} // namespace

std::vector<CPixelPolygon> CPixelPolygon::RegionsOf(const unsigned char* mask, int width, int height)
{
    CPixelMask copy({0, 0, std::int64_t{width} - 1, std::int64_t{height} - 1});
    if (!copy) return {};
    for (int y = 0; y < height; ++y) {
        const unsigned char* const from = mask + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
        std::transform(from, from + width, copy.Row(y),
                       [](unsigned char byte) { return static_cast<unsigned char>(byte != 0); });
    }

    std::vector<CPixelPolygon> regions;
    for (const Run& run : firstRuns(copy)) regions.push_back(CPixelPolygon(copy.TraceFrom(run.xStart, run.y, 1)));
    return regions;
}

} // namespace Zorvan
