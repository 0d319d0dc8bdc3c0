// SPDX-License-Identifier: MIT
#include "zorvan/raster/ctriangle2d.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace {

using namespace Zorvan;
using Point = CTriangle2D::Point;
__extension__ using Wide = __int128;

int exactSide(const Point& a, const Point& b, const Point& p)
{
    const auto wide = [](double v) { return static_cast<Wide>(v); };
    const Wide side =
        (wide(b.x) - wide(a.x)) * (wide(p.y) - wide(a.y)) - (wide(b.y) - wide(a.y)) * (wide(p.x) - wide(a.x));
    return (side > 0) - (side < 0);
}

/// Whole coordinates: small ones put points on edges and corners; or a far edge passes a point so closely that the
/// difference to its ends, rounded to a double, may lie on its other side.
TEST(CTriangle2D, HoldsPointsAsIntegersSay)
{
    std::mt19937_64 engine(47110815);
    const auto draw = [&engine](std::int64_t limit) {
        return static_cast<double>(std::uniform_int_distribution<std::int64_t>(-limit, limit)(engine));
    };
    int counts[3] = {};
    for (int i = 0; i < 20000; ++i) {
        const std::int64_t limit = i % 2 == 0 ? 4 : std::int64_t{1} << 50;
        const Point c{draw(limit), draw(limit)};
        Point a{draw(limit), draw(limit)};
        Point b{draw(limit), draw(limit)};
        Point p = i % 4 == 3 ? Point{std::trunc((a.x + b.x) / 2), std::trunc((a.y + b.y) / 2)}
                             : Point{draw(limit), draw(limit)};
        if (i % 4 == 1) {
            const double far[] = {1024.0 * draw(std::int64_t{1} << 46), 1024.0 * draw(std::int64_t{1} << 46)};
            const double near = draw(4096);
            a = {3.0 * far[0], 5.0 * far[0]};
            b = {3.0 * far[1], 5.0 * far[1]};
            p = {3.0 * near, 5.0 * near + draw(1)};
        }
        const CTriangle2D triangle(a, b, c);
        const int turn = exactSide(a, b, c);
        ASSERT_EQ(triangle.GetOrientation(), turn);
        const int least = std::min({turn * exactSide(a, b, p), turn * exactSide(b, c, p), turn * exactSide(c, a, p)});
        const bool isInside = turn != 0 && least > 0;
        const bool isOnMargin = turn != 0 && least == 0;
        ASSERT_EQ(triangle.Contains(p), isInside || isOnMargin) << i;
        ASSERT_TRUE(isOnMargin || triangle.Covers(p) == isInside) << i;
        ++counts[isInside ? 0 : isOnMargin ? 1 : 2];

        const auto [u, v, w] = triangle.GetBarycentric(p);
        if (turn == 0 || limit != 4) continue;
        EXPECT_NEAR(u * a.x + v * b.x + w * c.x, p.x, 1e-12);
        EXPECT_NEAR(u * a.y + v * b.y + w * c.y, p.y, 1e-12);
        EXPECT_NEAR(u + v + w, 1.0, 1e-12);
    }
    for (const int count : counts) EXPECT_GT(count, 500);
}

/// A grid of corners, moved at random (by multiples of `step`, or any) but not over one another; each square is cut in
/// two either way, and around.
std::vector<CTriangle2D> randomTiling(std::mt19937& engine, double side, double step)
{
    constexpr std::size_t n = 4;
    std::vector<Point> corners;
    for (std::size_t i = 0; i < (n + 1) * (n + 1); ++i) {
        const auto moved = [&](std::size_t k) {
            const double by = std::uniform_real_distribution<double>(-0.24, 0.24)(engine) * side;
            return side * static_cast<double>(k) + (step > 0.0 ? std::round(by / step) * step : by);
        };
        corners.push_back({moved(i % (n + 1)), moved(i / (n + 1))});
    }
    std::vector<CTriangle2D> triangles;
    for (std::size_t i = 0; i < n * (n + 1); ++i) {
        if (i % (n + 1) == n) continue;
        Point square[] = {corners[i], corners[i + 1], corners[i + n + 2], corners[i + n + 1]};
        std::rotate(square, square + engine() % 4, square + 4);
        triangles.emplace_back(square[0], square[1], square[2]);
        triangles.emplace_back(square[3], square[2], square[0]);
    }
    return triangles;
}

/// Whole, half and third steps put pixels on edges, exactly or nearly.
TEST(CTriangle2D, SharesNoPixelWithItsNeighboursAndMissesNone)
{
    std::mt19937 engine(47110815);
    const double steps[] = {1.0, 0.5, 1.0 / 3.0, 0.0};
    for (int i = 0; i < 200; ++i) {
        const int side = i % 5 == 0 ? 49 : 5;
        const PixelRect clip{side / 2, (side + 1) / 3, 3 * side, 3 * side + 1}; // within all tilings
        std::map<std::pair<int, int>, int> hits;
        for (const CTriangle2D& triangle : randomTiling(engine, side, steps[i % 4])) {
            int covered = 0;
            for (int y = clip.ymin; y <= clip.ymax; ++y)
                for (int x = clip.xmin; x <= clip.xmax; ++x)
                    covered += triangle.Covers({static_cast<double>(x), static_cast<double>(y)}) ? 1 : 0;
            for (const PixelSpan& span : triangle.GetSpans(clip))
                for (int x = span.xStart; x <= span.xEnd; ++x, --covered) ++hits[{span.y, x}];
            ASSERT_EQ(covered, 0) << "tiling " << i;
        }
        ASSERT_EQ(hits.size(), (clip.xmax - clip.xmin + 1) * (clip.ymax - clip.ymin + 1));
        for (const auto& [pixel, count] : hits)
            ASSERT_EQ(count, 1) << "tiling " << i << ", x " << pixel.second << ", y " << pixel.first;
    }
}

TEST(CTriangle2D, OfFarCornersCoversThePictureThatItHolds)
{
    constexpr PixelRect picture{-2147483647 - 1, 0, 2147483647, 2};
    const auto spans = CTriangle2D({-1e30, -1e30}, {1e30, -1e30}, {0.0, 1e30}).GetSpans(picture);
    ASSERT_EQ(spans.size(), 3U);
    EXPECT_EQ(spans[1], (PixelSpan{1, picture.xmin, picture.xmax}));
    for (const double odd : {std::nan(""), HUGE_VAL})
        EXPECT_TRUE(CTriangle2D({0, 0}, {9, 0}, {0, odd}).GetSpans({0, 0, 9, 9}).empty());
}

} // namespace
