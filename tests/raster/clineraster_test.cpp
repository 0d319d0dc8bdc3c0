// SPDX-License-Identifier: MIT
#include "zorvan/raster/clineraster.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace {

using namespace Zorvan;

constexpr int iMin = std::numeric_limits<int>::min();
constexpr int iMax = std::numeric_limits<int>::max();

/// Whether a pixel is the nearest to the line in its column (or row, for a steep line), by exact fractions; of two that
/// are equally near the one towards the end.
bool isOnLine(const PixelCoords& from, const PixelCoords& to, const PixelCoords& p)
{
    __extension__ using Wide = __int128;
    Wide along[] = {Wide{to.x} - from.x, Wide{p.x} - from.x};
    Wide across[] = {Wide{to.y} - from.y, Wide{p.y} - from.y};
    const auto size = [](Wide v) { return v < 0 ? -v : v; };
    if (size(across[0]) > size(along[0])) std::swap(along, across);
    if (along[0] < 0) along[0] = -along[0], along[1] = -along[1];
    if (across[0] < 0) across[0] = -across[0], across[1] = -across[1];
    if (along[0] == 0) return along[1] == 0 && across[1] == 0;
    const Wide twiceBelow = 2 * (across[0] * along[1] - across[1] * along[0]); // the pixel below the line, times length
    return along[1] >= 0 && along[1] <= along[0] && -along[0] <= twiceBelow && twiceBelow < along[0];
}

/// Every second line is short, and the others reach as far as an int; rectangles lie where the line passes, mostly.
TEST(CLineRaster, HasTheNearestPixelsInsideTheRectangleAndNoOther)
{
    std::mt19937 engine(47110815);
    const auto draw = [&engine](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); };
    std::size_t hits = 0;
    for (int i = 0; i < 4000; ++i) {
        const int limit = i % 2 == 0 ? 12 : iMax;
        const auto end = [&] { return draw(0, 9) == 0 ? iMin : draw(limit == iMax ? iMin : -limit, limit); };
        const PixelCoords from{end(), end()};
        const PixelCoords to{draw(0, 9) == 0 ? from.x : end(), end()};
        const double t = draw(0, 1000) / 1000.0;
        const auto around = [&](double a, double b, int by) {
            return static_cast<int>(std::clamp(a + t * (b - a) + by, double{iMin}, double{iMax}));
        };
        const PixelRect clip{around(from.x, to.x, draw(-9, 2)), around(from.y, to.y, draw(-9, 2)),
                             around(from.x, to.x, draw(-2, 9)), around(from.y, to.y, draw(-2, 9))};

        const CLineRaster line(from, to, clip);
        std::vector<PixelCoords> pixels;
        for (const PixelCoords& p : line) pixels.push_back(p);
        std::vector<PixelCoords> expected;
        for (std::int64_t y = clip.ymin; y <= clip.ymax; ++y)
            for (std::int64_t x = clip.xmin; x <= clip.xmax; ++x)
                if (const PixelCoords p{static_cast<int>(x), static_cast<int>(y)}; isOnLine(from, to, p))
                    expected.push_back(p);
        ASSERT_THAT(pixels, testing::UnorderedElementsAreArray(expected)) << "line " << i;
        EXPECT_EQ(line.Size(), pixels.size());
        for (std::size_t k = 1; k < pixels.size(); ++k) { // in order, without a gap
            const auto steps = [&](const PixelCoords& p) {
                return std::max(std::abs(std::int64_t{p.x} - from.x), std::abs(std::int64_t{p.y} - from.y));
            };
            ASSERT_EQ(steps(pixels[k]), steps(pixels[k - 1]) + 1);
        }
        hits += pixels.size();
    }
    EXPECT_GT(hits, 15000U);
}

TEST(CLineRaster, GoesFromEndToEndWithoutARectangle)
{
    std::vector<PixelCoords> pixels;
    for (const PixelCoords& p : CLineRaster({4, 1}, {-3, 8})) pixels.push_back(p);
    EXPECT_EQ(pixels.front(), (PixelCoords{4, 1}));
    EXPECT_EQ(pixels.back(), (PixelCoords{-3, 8}));
    EXPECT_EQ(CLineRaster({iMin, iMin}, {iMax, iMax}).Size(), std::uint64_t{1} << 32);
    EXPECT_TRUE(CLineRaster({0, 0}, {9, 9}, {5, 5, 4, 9}).Empty());
}

} // namespace
