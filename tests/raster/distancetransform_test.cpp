// SPDX-License-Identifier: MIT
#include "zorvan/raster/distancetransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using namespace Zorvan::detail;

std::int64_t nearestSquare(const std::vector<unsigned char>& mask, int width, int at)
{
    std::int64_t nearest = -1;
    for (int i = 0; i < static_cast<int>(mask.size()); ++i) {
        if (mask[static_cast<std::size_t>(i)] == 0) continue;
        const std::int64_t dx = i % width - at % width;
        const std::int64_t dy = i / width - at / width;
        if (nearest < 0 || dx * dx + dy * dy < nearest) nearest = dx * dx + dy * dy;
    }
    return nearest;
}

/// From no pixel set over a few to all.
TEST(DistanceTransform, AgreesWithLookingAtEveryPixel)
{
    std::mt19937 engine(47110815);
    for (int i = 0; i < 600; ++i) {
        const int width = 1 + static_cast<int>(engine() % (i % 5 == 0 ? 60 : 20));
        const int height = 1 + static_cast<int>(engine() % 20);
        std::vector<unsigned char> mask(static_cast<std::size_t>(width * height));
        for (unsigned char& pixel : mask)
            pixel = engine() % 1000 < static_cast<unsigned int>(i % 7 == 6 ? 1000 : i % 7 * i % 7 * 25) ? 255 : 0;
        std::vector<float> distances(mask.size());
        std::vector<std::int64_t> squares(mask.size());
        ComputeDistanceTransform(mask, width, height, distances);
        ComputeSquaredDistanceTransform(mask, width, height, squares);
        for (int at = 0; at < width * height; ++at) {
            const std::int64_t expected = nearestSquare(mask, width, at);
            const auto k = static_cast<std::size_t>(at);
            ASSERT_EQ(squares[k], expected) << "mask " << i << ", pixel " << at;
            ASSERT_EQ(distances[k], expected < 0 ? std::numeric_limits<float>::infinity()
                                                 : static_cast<float>(std::sqrt(static_cast<double>(expected))));
        }
    }
}

TEST(DistanceTransform, IsExactAlongTheLongestSide)
{
    constexpr int iLongest = 1 << 20;
    std::vector<unsigned char> mask(iLongest);
    mask.front() = mask[iLongest / 2] = mask.back() = 1;
    std::vector<std::int64_t> squares(mask.size());
    for (const bool isRow : {true, false}) {
        ComputeSquaredDistanceTransform(mask, isRow ? iLongest : 1, isRow ? 1 : iLongest, squares);
        for (std::int64_t i = 0; i < iLongest; ++i) {
            const auto nearest = std::min({i, std::abs(i - iLongest / 2), iLongest - 1 - i});
            ASSERT_EQ(squares[static_cast<std::size_t>(i)], nearest * nearest);
        }
    }
}

TEST(DistanceTransform, RefusesSizesThatDoNotFit)
{
    std::vector<float> distances(12);
    const std::vector<unsigned char> mask(12);
    EXPECT_NO_THROW(ComputeDistanceTransform({}, 0, 7, {}));
    for (const auto& [width, height] : {std::pair(5, 3), {-4, -3}, {4, 2}})
        EXPECT_THROW(ComputeDistanceTransform(mask, width, height, distances), std::invalid_argument);
}

} // namespace
