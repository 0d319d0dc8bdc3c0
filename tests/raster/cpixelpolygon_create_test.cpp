// SPDX-License-Identifier: MIT
#include "tests/raster/masks.h"

#include "zorvan/raster/cpixelpolygon.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <numbers>
#include <numeric>

namespace Zorvan {
namespace {

using namespace Testing;

constexpr unsigned uiSeed = 47110815;
constexpr double dSample = 0.05; ///< half the distance of the points by which `Star::Distance` sees an edge

/// Vertices around a middle, in order of their angles, either way round and from any of them on.
struct Star
{
    std::vector<double> x;
    std::vector<double> y;

    Star(std::mt19937& engine, bool isWhole)
    {
        std::uniform_real_distribution<double> draw(0.0, 1.0);
        const double middleX = 20.0 * draw(engine) - 10.0;
        const double middleY = 20.0 * draw(engine) - 10.0;
        const int n = 3 + static_cast<int>(engine() % 8);
        const double sense = engine() % 2 == 0 ? 1.0 : -1.0;
        const double first = 7.0 * draw(engine);
        for (int i = 0; i < n; ++i) {
            const double angle = sense * (i + 0.8 * draw(engine)) * 2.0 * std::numbers::pi / n + first;
            const double radius = 4.0 + 16.0 * draw(engine);
            x.push_back(middleX + radius * std::cos(angle));
            y.push_back(middleY + radius * std::sin(angle));
        }
        for (double& c : x) c = isWhole ? std::round(c) : c;
        for (double& c : y) c = isWhole ? std::round(c) : c;
    }

    [[nodiscard]] std::size_t Next(std::size_t i) const { return (i + 1) % x.size(); }

    /// By the number of edges that a ray to the right crosses.
    [[nodiscard]] bool Contains(double px, double py) const
    {
        bool isInside = false;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const std::size_t j = Next(i);
            if ((y[i] > py) != (y[j] > py) && px < x[i] + (py - y[i]) / (y[j] - y[i]) * (x[j] - x[i]))
                isInside = !isInside;
        }
        return isInside;
    }

    /// Distance of a point from the outline, in the larger of x and y: by dense points along the edges.
    [[nodiscard]] double Distance(double px, double py) const
    {
        double least = 1e9;
        for (std::size_t i = 0; i < x.size(); ++i)
            for (double t = 0.0; t <= 1.0; t += 1.0 / 512.0) {
                const double ex = x[i] + t * (x[Next(i)] - x[i]);
                const double ey = y[i] + t * (y[Next(i)] - y[i]);
                least = std::min(least, std::max(std::fabs(px - ex), std::fabs(py - ey)));
            }
        return least;
    }
};

/// The region has every pixel well inside and none farther outside than `slack`, the pixel being the point at its
/// coordinates plus `offset`.
void expectRegion(const CPixelPolygon& polygon, const Star& star, double offset, double slack)
{
    const PixelSet pixels = PixelsOf(polygon);
    ASSERT_EQ(polygon.GetArea(), static_cast<int>(pixels.size()));
    for (int y = -32; y < 32; ++y)
        for (int x = -32; x < 32; ++x) {
            const bool isInside = star.Contains(x + offset, y + offset);
            if (isInside == pixels.contains({y, x})) continue;
            ASSERT_FALSE(isInside) << "a pixel is missing";
            ASSERT_LE(star.Distance(x + offset, y + offset), slack);
        }
}

/// Labels name an edge, in drawing order from the first vertex on, and a place on it near the pixel.
void expectLabels(const CPixelPolygon& polygon, const Star& star, int start, int direction, double slack)
{
    const int n = static_cast<int>(star.x.size());
    int labelled = 0;
    for (auto it = polygon.GetMarginIterator(); it; ++it) {
        const auto* const label = it->label.get<CPixelPolygon::PixelLabel>();
        if (label == nullptr) continue;
        ++labelled;
        const auto a = static_cast<std::size_t>(label->firstVertex);
        const auto b = static_cast<std::size_t>(label->secondVertex);
        ASSERT_EQ((label->firstVertex + direction + n) % n, label->secondVertex);
        const double t = label->position == 0.5F ? 0.0 : -static_cast<double>(label->position);
        ASSERT_NEAR(star.x[a] + t * (star.x[b] - star.x[a]), it->x, slack);
        ASSERT_NEAR(star.y[a] + t * (star.y[b] - star.y[a]), it->y, slack);
    }
    ASSERT_GT(labelled, 0);
    for (std::size_t i = 0; i < star.x.size(); ++i)
        ASSERT_LE(std::pair(star.y[static_cast<std::size_t>(start)], star.x[static_cast<std::size_t>(start)]),
                  std::pair(star.y[i], star.x[i]));
}

TEST(CreateFromPolygon, FillsRandomPolygons)
{
    std::mt19937 engine(uiSeed);
    int start = -1;
    int direction = 0;
    for (int i = 0; i < 300 && !testing::Test::HasFatalFailure(); ++i) {
        const Star whole(engine, true);
        const std::vector<int> x(whole.x.begin(), whole.x.end());
        const std::vector<int> y(whole.y.begin(), whole.y.end());
        const auto n = static_cast<unsigned int>(x.size());
        const CPixelPolygon thin = CPixelPolygon::CreateFromPolygon(x.data(), y.data(), n, &start, &direction);
        expectRegion(thin, whole, 0.0, 0.5 + dSample);
        expectLabels(thin, whole, start, direction, 0.51);

        const Star star(engine, false);
        const auto m = static_cast<unsigned int>(star.x.size());
        const CPixelPolygon cells =
            CPixelPolygon::CreateFromPolygon(star.x.data(), star.y.data(), m, &start, &direction);
        expectRegion(cells, star, 0.5, 0.5 + dSample);
        expectLabels(cells, star, start, direction, 2.0);

        const CPixelPolygon wide =
            CPixelPolygon::CreateFromPolygon(star.x.data(), star.y.data(), m, -99, -99, 99, 99, &start, &direction);
        expectRegion(wide, star, 0.0, 1.5 + dSample);
        expectLabels(wide, star, start, direction, 1.51);
    }
}

TEST(CreateFromPolygon, CrossesEveryCellOfItsEdges)
{
    std::mt19937 engine(uiSeed);
    for (int i = 0; i < 300 && !testing::Test::HasFatalFailure(); ++i) {
        const Star star(engine, i % 3 == 0); // corners of cells too
        const PixelSet pixels = PixelsOf(CPixelPolygon::CreateFromPolygon(
            star.x.data(), star.y.data(), static_cast<unsigned int>(star.x.size()), nullptr, nullptr));
        for (std::size_t k = 0; k < star.x.size(); ++k)
            for (double t = 0.0; t <= 1.0; t += 1.0 / 256.0) {
                const double x = star.x[k] + t * (star.x[star.Next(k)] - star.x[k]);
                const double y = star.y[k] + t * (star.y[star.Next(k)] - star.y[k]);
                const bool isBetweenCells = std::fabs(x - std::round(x)) < 1e-6 || std::fabs(y - std::round(y)) < 1e-6;
                const Pixel cell(static_cast<int>(std::floor(y)), static_cast<int>(std::floor(x)));
                ASSERT_TRUE(isBetweenCells || pixels.contains(cell));
            }
    }
}

TEST(CreateFromPolygon, HoldsWideEdgesInABox)
{
    std::mt19937 engine(uiSeed);
    for (int i = 0; i < 100; ++i) {
        const Star star(engine, false);
        const auto make = [&](int limit) {
            return CPixelPolygon::CreateFromPolygon(star.x.data(), star.y.data(),
                                                    static_cast<unsigned int>(star.x.size()), -limit, -limit, limit,
                                                    limit, nullptr, nullptr);
        };
        const PixelSet all = PixelsOf(make(99));
        const PixelSet held = PixelsOf(make(6));
        for (const auto& [y, x] : held) EXPECT_TRUE(std::abs(x) <= 6 && std::abs(y) <= 6);
        for (const auto& [y, x] : all)
            EXPECT_TRUE(std::abs(x) > 6 || std::abs(y) > 6 || held.contains({y, x})) << x << " " << y;
    }
}

TEST(CreateFromPolygon, DrawsATriangleAsByHand)
{
    // Clockwise on the screen; drawn the other way round from the topmost vertex, as a contour runs.
    const int x[] = {0, 2, 4, 4};
    const int y[] = {4, 0, 4, 4};
    int start = -1;
    int direction = 0;
    const CPixelPolygon triangle = CPixelPolygon::CreateFromPolygon(x, y, 4, &start, &direction);
    EXPECT_EQ(start, 1);
    EXPECT_EQ(direction, -1);
    ASSERT_EQ(PixelsOf(triangle).size(), static_cast<std::size_t>(triangle.GetArea()));
    const auto labelAt = [&](const ChainedPixel& p) {
        for (auto it = triangle.GetMarginIterator(); it; ++it)
            if (*it == p) return *it->label.get<CPixelPolygon::PixelLabel>();
        return CPixelPolygon::PixelLabel{-1, -1, 0.0F};
    };
    EXPECT_EQ(labelAt({2, 0}).position, 0.0F);
    EXPECT_EQ(labelAt({0, 4}).position, -1.0F);
    EXPECT_EQ(labelAt({0, 4}).firstVertex, 1);
    EXPECT_EQ(labelAt({0, 4}).secondVertex, 0);
    EXPECT_EQ(labelAt({2, 4}).position, -0.5F);
    const int same[] = {3, 3, 3};
    const CPixelPolygon point = CPixelPolygon::CreateFromPolygon(same, same, 3, nullptr, nullptr);
    EXPECT_EQ(point.getPixelChainPtr()->front().label.get<CPixelPolygon::PixelLabel>()->position, 0.5F);
    EXPECT_EQ(point.GetArea(), 1);
}

TEST(CreateFromPolygon, IsEmptyWhereItCannotBeDrawn)
{
    constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();
    int start = 7;
    const int few[] = {0, 1};
    EXPECT_TRUE(CPixelPolygon::CreateFromPolygon(few, few, 2, &start, nullptr).Empty());
    EXPECT_EQ(start, 7) << "untouched";
    const int farX[] = {INT_MIN, INT_MAX, 0};
    const int farY[] = {0, 0, INT_MAX};
    EXPECT_TRUE(CPixelPolygon::CreateFromPolygon(farX, farY, 3, nullptr, nullptr).Empty());
    for (const double bad : {dNaN, HUGE_VAL, -1e300, 1e9}) {
        const double x[] = {0.0, bad, 5.0};
        const double y[] = {0.0, 3.0, 5.0};
        EXPECT_TRUE(CPixelPolygon::CreateFromPolygon(x, y, 3, nullptr, nullptr).Empty());
        EXPECT_TRUE(CPixelPolygon::CreateFromPolygon(y, x, 3, 0, 0, 9, 9, nullptr, nullptr).Empty());
    }
    const double x[] = {0.0, 9.0, 5.0};
    EXPECT_TRUE(
        CPixelPolygon::CreateFromPolygon(x, x, 3, INT_MAX, INT_MAX, INT_MIN, INT_MIN, nullptr, nullptr).Empty());
}

/// Corners by Andrew's chains, from the sorted points.
std::vector<Pixel> hullCorners(const PixelSet& pixels)
{
    std::vector<Pixel> hull;
    const auto cross = [](const Pixel& o, const Pixel& a, const Pixel& b) {
        return (a.first - o.first) * (b.second - o.second) - (a.second - o.second) * (b.first - o.first);
    };
    const auto add = [&](const Pixel& p, std::size_t first) {
        while (hull.size() >= first + 2 && cross(hull[hull.size() - 2], hull.back(), p) <= 0) hull.pop_back();
        hull.push_back(p);
    };
    for (const Pixel& p : pixels) add(p, 0);
    const std::size_t first = hull.size() - 1;
    for (auto p = std::next(pixels.rbegin()); p != pixels.rend(); ++p) add(*p, first);
    hull.pop_back();
    return hull;
}

TEST(ConvexHull, HasTheCornersOfTheHull)
{
    std::mt19937 engine(uiSeed);
    int hulls = 0;
    for (int i = 0; i < 500; ++i)
        for (const CPixelPolygon& region : RandomMask(engine).Regions()) {
            if (PixelsOf(region).size() < 2) continue;
            std::vector<int> x;
            std::vector<int> y;
            for (const auto& [py, px] : hullCorners(PixelsOf(region))) {
                x.push_back(px);
                y.push_back(py);
            }
            const CPixelPolygon expected = CPixelPolygon::CreateFromPolygon(
                x.data(), y.data(), static_cast<unsigned int>(x.size()), nullptr, nullptr);
            EXPECT_EQ(PixelsOf(region.ConvexHull()), PixelsOf(expected));
            hulls += expected.Empty() ? 0 : 1;
        }
    EXPECT_GT(hulls, 500);
    EXPECT_TRUE(CPixelPolygon().ConvexHull().Empty());
}

} // namespace
} // namespace Zorvan
