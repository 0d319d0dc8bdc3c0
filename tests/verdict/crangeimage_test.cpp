// SPDX-License-Identifier: MIT
#include "zorvan/verdict/crangeimage.h"

#include "tests/verdict/rasterscans.h"
#include "zorvan/verdict/nearestpixel.h"
#include "zorvan/verdict/verdictlimits.h"

#include <gtest/gtest.h>

#include <numbers>
#include <random>

namespace {

using namespace prereg;
using support::Vector3;
using Pixel = CRangeImage::Pixel;

CRangeImage imageOf(const support::Surface& scan, float spacing)
{
    return {scan.points, scan.normals, Vector3(0, 0, 1), static_cast<double>(spacing)};
}

template <typename Visit>
void forEachPixel(const CRangeImage& image, Visit visit)
{
    for (int y = 0; y < image.GetHeight(); ++y)
        for (int x = 0; x < image.GetWidth(); ++x) visit(Pixel{x, y});
}

// A tower on waves: steps, shadows and a hole.
float tower(float x, float y)
{
    if (std::hypot(x - 4.0F, y) < 2.0F) return NAN;
    return support::Waves(x, y) + (x < -5.0F ? 6.0F : 0.0F);
}

TEST(CRangeImage, HoldsTheHighestPointOfEachPixel)
{
    support::Surface scan = support::RasterScan(tower, 20.0F, 0.5F);
    const std::size_t below = scan.points.size();
    scan.points.emplace_back(0.0F, 0.0F, -30.0F);
    scan.normals.emplace_back(0, 0, 1);
    const CRangeImage image = imageOf(scan, 0.5F);
    std::size_t filled = 0;
    forEachPixel(image, [&](Pixel at) {
        EXPECT_NE(image.GetPointIndex(at), below);
        if (!image.IsFilled(at)) return;
        ++filled;
        const Vector3 p = image.GetFrame() * scan.points[image.GetPointIndex(at)];
        EXPECT_EQ(p, image.GetSurfel(at).point);
        EXPECT_LE(std::abs(image.PixelAt(p).x - at.x), 1); // a closed pixel shows a point beside it
    });
    EXPECT_EQ(filled, image.GetNumFilled());
    const Vector3 under = image.GetFrame() * scan.points[below];
    EXPECT_TRUE(image.IsFilled(image.PixelAt(under)));
    EXPECT_NEAR(image.GetCompleteness(), 1.0 - 4.0 / 225.0, 0.01);
}

TEST(FindNearestPixel, AgreesWithLookingAtEachOfNine)
{
    const CRangeImage image = imageOf(support::RasterScan(tower, 20.0F, 0.5F), 0.5F);
    std::mt19937 rng(47110815);
    std::uniform_real_distribution<float> place(-3.0F, 45.0F);
    std::uniform_real_distribution<float> height(-4.0F, 9.0F);
    int found = 0;
    for (int i = 0; i < 20000; ++i) {
        // On a lattice, so that several pixels are equally near.
        Vector3 p(place(rng), place(rng), height(rng));
        if (i % 2 == 0) p = {0.25F * std::round(4.0F * p.x), 0.25F * std::round(4.0F * p.y), std::round(p.z)};
        const auto plainly = detail::NearestPixelPlainly(image, image.PixelAt(p), p);
        const auto nearest = detail::FindNearestPixel(image, image.PixelAt(p), p);
        ASSERT_EQ(nearest.surfel, plainly.surfel) << p.x << ' ' << p.y << ' ' << p.z;
        ASSERT_EQ(nearest.distSq, plainly.distSq);
        found += static_cast<int>(nearest.surfel != nullptr);
    }
    EXPECT_GT(found, 5000);
    EXPECT_LT(found, 19000);
}

TEST(CRangeImage, AgreesWithLookingAtEveryPixel)
{
    const CRangeImage image = imageOf(support::RasterScan(tower, 20.0F, 0.5F), 0.5F);
    const double slope = static_cast<double>(image.GetPixelSize()) / std::tan(std::numbers::pi / 6);
    std::size_t numFull = 0;
    forEachPixel(image, [&](Pixel at) {
        double distance = 1e9;
        double shadow = -1e9;
        int around = 0;
        forEachPixel(image, [&](Pixel other) {
            if (!image.IsFilled(other)) return;
            const double dx = std::abs(at.x - other.x);
            const double dy = std::abs(at.y - other.y);
            const double steps = std::max(dx, dy) + (std::numbers::sqrt2 - 1) * std::min(dx, dy);
            distance = std::min(distance, steps);
            shadow = std::max(shadow, static_cast<double>(image.GetSurfel(other).point.z) - steps * slope);
            if (dx <= 1 && dy <= 1) ++around;
        });
        EXPECT_NEAR(static_cast<double>(image.GetDistanceToSilhouette(at)), distance, 1e-3);
        EXPECT_NEAR(static_cast<double>(image.GetShadow(at)), shadow, 1e-3);
        EXPECT_EQ(image.IsFull(at), around == 9);
        numFull += around == 9;
    });
    EXPECT_GT(numFull, 1000U);
}

TEST(CRangeImage, SaysWhatASecondSurfaceMeans)
{
    const CRangeImage image = imageOf(support::RasterScan(tower, 20.0F, 0.5F), 0.5F);
    const auto at = [&](float x, float y) { return image.PixelAt(image.GetFrame() * Vector3(x, y, 0)); };
    EXPECT_TRUE(image.IsInFront(at(0, 0), 8.0F));
    EXPECT_FALSE(image.IsInFront(at(0, 0), -8.0F)); // behind what was seen
    EXPECT_FALSE(image.IsInFront(at(4, 0), 8.0F));  // nothing was seen there
    EXPECT_TRUE(image.IsMissing(at(4, 0), 8.0F, 2.5F));
    EXPECT_FALSE(image.IsMissing(at(4, 0), -8.0F, 2.5F)); // at the bottom of the hole: hidden from the light
    EXPECT_FALSE(image.IsMissing(at(0, 0), 8.0F, 2.5F));
    EXPECT_TRUE(image.IsMissing(at(0, 16.5F), 8.0F, 2.5F));
    EXPECT_TRUE(image.IsMissing(at(0, 500.0F), -8.0F, 2.5F));
    EXPECT_TRUE(image.IsMissing(at(-1e30F, 0), 0.0F, 2.5F)); // far outside of any pixel number
}

TEST(CRangeImage, TakesAHoleForAGapOnlyWhereCurvedSurfaceClosesIt)
{
    const auto bored = [](float x, float y) { return std::hypot(x - 4.0F, y) < 2.0F; };
    const auto walled = [&](float x, float y) { // the far wall of the bore is seen
        const float depth = 4.0F + std::hypot(x - 4.0F, y) - 3.0F;
        return support::Waves(x, y) - (x > 4.0F && std::hypot(x - 4.0F, y) < 3.0F ? 4.0F * (4.0F - depth) : 0.0F);
    };
    const auto ring = [](float x, float y) { // it turns away from the sensor on both sides
        const float off = std::hypot(x - 4.0F, y) - 6.0F;
        return std::sqrt(16.0F - off * off);
    };
    const auto isGap = [&](const support::HeightField& height) {
        const auto torn = [&](float x, float y) { return bored(x, y) ? NAN : height(x, y); };
        const CRangeImage image = imageOf(support::RasterScan(torn, 20.0F, 0.25F), 0.25F);
        return image.IsInGap(image.PixelAt(image.GetFrame() * Vector3(4, 0, 0)));
    };
    EXPECT_TRUE(isGap(support::Waves));
    EXPECT_FALSE(isGap([](float x, float y) { return std::hypot(x, y) > 15.0F ? NAN : 0.3F * x; })); // a bore
    EXPECT_FALSE(isGap(walled));
    EXPECT_FALSE(isGap(ring));
    const CRangeImage image = imageOf(support::RasterScan(support::Waves, 20.0F, 0.25F), 0.25F);
    forEachPixel(image, [&](Pixel at) { EXPECT_FALSE(image.IsInGap(at)); }); // the outside is none
}

/// Looks from a pixel in eight directions.
bool isInGapByLooking(const CRangeImage& image, Pixel at)
{
    Vector3 sum;
    int count = 0;
    int steep = 0;
    for (const Pixel step : {Pixel{-1, 0}, {-1, -1}, {0, -1}, {1, -1}, {1, 0}, {1, 1}, {0, 1}, {-1, 1}}) {
        Pixel seen = at;
        while (image.Contains(seen) && !image.IsFilled(seen)) seen = {seen.x + step.x, seen.y + step.y};
        if (!image.Contains(seen)) continue;
        const Vector3 normal = image.GetSurfel(seen).normal;
        sum = sum + normal;
        ++count;
        steep += normal.z < static_cast<float>(verdict::dGapCosine);
    }
    return !image.IsFilled(at) && count >= verdict::iGapDirections && steep <= verdict::iGapSteep &&
           sum.Length() < static_cast<float>(verdict::dGapFlatness) * static_cast<float>(count);
}

TEST(CRangeImage, FindsTheGapsThatLookingInEightDirectionsFinds)
{
    std::mt19937 rng(47110815);
    std::uniform_real_distribution<float> place(-14.0F, 14.0F);
    std::vector<Vector3> holes;
    for (int i = 0; i < 12; ++i) holes.emplace_back(place(rng), place(rng), 0.3F * static_cast<float>(i + 1));
    const auto torn = [&](float x, float y) {
        const auto isIn = [&](const Vector3& hole) { return std::hypot(x - hole.x, y - hole.y) < hole.z; };
        return std::any_of(holes.begin(), holes.end(), isIn) ? NAN : 2.0F * support::Waves(x, y);
    };
    const CRangeImage image = imageOf(support::RasterScan(torn, 20.0F, 0.25F), 0.25F);
    std::size_t gaps = 0;
    std::size_t others = 0;
    forEachPixel(image, [&](Pixel at) {
        EXPECT_EQ(image.IsInGap(at), isInGapByLooking(image, at)) << at.x << " " << at.y;
        if (!image.IsFilled(at)) ++(image.IsInGap(at) ? gaps : others);
    });
    EXPECT_GT(gaps, 100U);
    EXPECT_GT(others, 100U);
}

TEST(CRangeImage, DoesNotMissWhatLiesBeyondTheFieldOfView)
{
    const auto cut = [](float x, float y) { return x > 8.0F ? NAN : support::Waves(x, y); };
    const CRangeImage image = imageOf(support::RasterScan(cut, 20.0F, 0.5F), 0.5F);
    const auto isMissing = [&](float x, float y) {
        return image.IsMissing(image.PixelAt(image.GetFrame() * Vector3(x, y, 0)), 8.0F, 2.5F);
    };
    EXPECT_FALSE(isMissing(11.0F, 0.0F));
    EXPECT_FALSE(isMissing(300.0F, 0.0F));
    EXPECT_FALSE(isMissing(-17.0F, 0.0F)); // may be cut there as well
    EXPECT_FALSE(isMissing(0.0F, 17.0F));
    EXPECT_TRUE(isMissing(-12.0F, -12.0F)); // in view, beside the surface
}

TEST(CRangeImage, KnowsTheFieldOfViewWhereverItsEndFallsInAPixel)
{
    const auto cut = [](float x, float y) { return x > 8.0F ? NAN : support::Waves(x, y); };
    support::Surface scan = support::RasterScan(cut, 20.0F, 0.5F);
    std::mt19937 rng(47110815);
    std::uniform_real_distribution<float> thinned(-0.1F, 0.1F); // points that stand for two are not on the raster
    for (Vector3& p : scan.points) p.x += thinned(rng);
    for (float spacing = 0.48F; spacing < 0.52F; spacing += 0.002F) { // from one pixel to the next but one
        const CRangeImage image = imageOf(scan, spacing);
        const Pixel beyond = image.PixelAt(image.GetFrame() * Vector3(-17.0F, 0.0F, 0.0F));
        EXPECT_FALSE(image.IsMissing(beyond, 8.0F, 2.5F)) << spacing;
        const CRangeImage whole = imageOf(support::RasterScan(support::Waves, 20.0F, 0.5F), spacing);
        EXPECT_TRUE(whole.IsMissing(beyond, 8.0F, 2.5F)) << spacing;
    }
}

TEST(CRangeImage, WidensItsPixelsForLinesOfASpinningSensor)
{
    support::Surface lines;
    for (int line = 0; line < 40; ++line) {
        for (int i = 0; i < 400; ++i) {
            lines.points.emplace_back(0.1F * static_cast<float>(i), static_cast<float>(line), 0.0F);
            lines.normals.emplace_back(0, 0, 1);
        }
    }
    const CRangeImage image = imageOf(lines, 0.1F);
    EXPECT_GT(image.GetPixelSize(), 0.6F);
    EXPECT_LT(image.GetPixelSize(), 1.6F);
    EXPECT_GT(image.GetCompleteness(), 0.95);
}

TEST(CRangeImage, BoundsItsMemoryWhenAPointLiesFarAway)
{
    support::Surface scan = support::RasterScan(support::Waves, 20.0F, 0.5F);
    scan.points.emplace_back(1e8F, -1e8F, 0.0F);
    scan.normals.emplace_back(0, 0, 1);
    const CRangeImage image = imageOf(scan, 0.5F);
    EXPECT_LE(image.GetWidth(), 2020);
    EXPECT_LE(image.GetHeight(), 2020);
}

} // namespace
