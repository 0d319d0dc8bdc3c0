// SPDX-License-Identifier: MIT
#include "zorvan/features/cfpfhdatasource.h"

#include "tests/support/clouds.h"
#include "tests/support/logcapture.h"
#include "zorvan/core/hooks.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/platform/simd.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

using prereg::CFPFHDataSource;
using prereg::CFPFHPointSet;
using prereg::CPointFeatureHistogram;
using prereg::CTrafo;
using support::BumpySurface;
using support::Surface;
using support::Vector3;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

CFPFHDataSource makeSource(unsigned numTasks = 1, double radius = 3.0, double grid = 0.5, double featureGrid = 0.5)
{
    return {radius, grid, featureGrid, numTasks, nullptr};
}

template <typename T>
bool sameBytes(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

bool sameFeatures(const CFPFHDataSource& a, const CFPFHDataSource& b)
{
    return a.GetNumFeatures() == b.GetNumFeatures() && sameBytes(a.GetFeaturesV(), b.GetFeaturesV()) &&
           sameBytes(a.GetFeaturePointsV(), b.GetFeaturePointsV());
}

// What the features are, written down plainly: every point looked at, one pair at a time.
std::vector<CPointFeatureHistogram> plainFeatures(const Surface& s, float radius)
{
    const std::size_t n = s.points.size();
    std::vector<CPointFeatureHistogram> simplified(n);
    std::vector<CPointFeatureHistogram> features(n);
    std::vector<unsigned> counts(n);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            if (DistanceSq(s.points[i], s.points[j]) > radius * radius) continue;
            ++counts[i];
            if (i != j) simplified[i].Update(s.points[i], s.normals[i], s.points[j], s.normals[j]);
        }
        if (counts[i] < 12) simplified[i] = CPointFeatureHistogram();
    }
    for (std::size_t i = 0; i < n; ++i) {
        if (counts[i] < 12) {
            features[i] = CPointFeatureHistogram::Invalid();
            continue;
        }
        for (std::size_t j = 0; j < n; ++j) {
            const float distSq = DistanceSq(s.points[i], s.points[j]);
            if (distSq > radius * radius || distSq == 0) continue;
            features[i].Add(simplified[j], Zorvan::simd::ApproximateReciprocalSqrt(distSq));
        }
        features[i].Normalize();
    }
    return features;
}

// Flat lattice with coincident points, flipped, missing and endless normals: the edges of the bins.
Surface oddSurface()
{
    Surface s;
    for (int x = 0; x < 20; ++x) {
        for (int y = 0; y < 20; ++y) {
            s.points.emplace_back(static_cast<float>(x), static_cast<float>(y), 0.0F);
            const int kind = (7 * x + 3 * y) % 11;
            s.normals.push_back(kind == 0   ? Vector3()
                                : kind == 1 ? Vector3(0, 0, -1)
                                : kind == 2 ? Vector3(0, 0, 1e30F)
                                : kind == 3 ? Vector3(std::sqrt(0.5F), 0, std::sqrt(0.5F))
                                : kind == 4 ? Vector3(nan, 0, 1)
                                            : Vector3(0, 0, 1));
            if (kind < 6) {
                s.points.push_back(s.points.back());
                s.normals.emplace_back(0.0F, 0.0F, 1.0F);
            }
        }
    }
    return s;
}

Surface wall(const Surface& s) // two cells across at most
{
    Surface w;
    for (std::size_t i = 0; i < s.points.size(); ++i) {
        const auto& p = s.points[i];
        const auto& n = s.normals[i];
        w.points.emplace_back(p.z, p.x, p.y);
        w.normals.emplace_back(n.z, n.x, n.y);
    }
    return w;
}

TEST(CFPFHDataSource, FeaturesAreWhatThePlainLoopsGive)
{
    const Surface surfaces[] = {BumpySurface(1500, 3), oddSurface(), wall(oddSurface()), wall(BumpySurface(900, 4))};
    for (const auto& s : surfaces) {
        for (const float radius : {1.5F, 4.0F}) {
            auto source = makeSource(1, radius, 0, 0);
            ASSERT_TRUE(source.Load(s.points, s.normals, nullptr));
            const auto expected = plainFeatures(s, radius);
            std::size_t numValid = 0;
            for (const auto& f : expected) numValid += std::isfinite(f.AsArray()[0]) ? 1 : 0;
            ASSERT_EQ(source.GetNumFeatures(), numValid);
            for (std::size_t k = 0; k < numValid; ++k) {
                // Invalid ones swap places with the last: find it again by where it is and what it looks like.
                float nearest = 1.0F;
                for (std::size_t i = 0; i < expected.size(); ++i) {
                    if (!(s.points[i] == source.GetFeaturePointsV()[k])) continue;
                    const float distance = source.GetFeaturesV()[k].SoerensenDistance(expected[i]);
                    if (!(distance >= nearest)) nearest = std::isnan(distance) ? nearest : distance;
                }
                EXPECT_LT(nearest, 1e-9F) << k;
            }
        }
    }
}

TEST(CFPFHDataSource, TasksAndRunsGiveTheSameBytes)
{
    const auto before = BumpySurface(20000, 5);
    auto after = before;
    for (auto& p : after.points) {
        if (p.x > 10 && p.y > 10) p.z += 1.0F;
    }
    auto serial = makeSource(1, 2.0, 0.3, 0.6);
    serial.Update(before.points, before.normals, nullptr);
    serial.Update(after.points, after.normals, nullptr);
    ASSERT_GT(serial.GetNumFeatures(), 1000U);
    for (const unsigned tasks : {1U, 2U, 3U, 16U, 100000U}) {
        auto source = makeSource(tasks, 2.0, 0.3, 0.6);
        source.Update(before.points, before.normals, nullptr);
        source.Update(after.points, after.normals, nullptr);
        EXPECT_TRUE(sameFeatures(serial, source)) << tasks;
    }
}

TEST(CFPFHDataSource, AnUpdateWithoutAChangeKeepsEveryByte)
{
    const auto s = BumpySurface(5000, 6);
    auto source = makeSource();
    source.Update(s.points, s.normals, nullptr);
    const auto copy = source;
    EXPECT_TRUE(source.Update(s.points, s.normals, nullptr));
    EXPECT_TRUE(sameFeatures(copy, source));
    EXPECT_EQ(copy.GetNumPoints(), source.GetNumPoints());
}

TEST(CFPFHDataSource, AnUpdateReplacesWhatChangedAndNothingElse)
{
    const auto s = BumpySurface(20000, 7);
    auto half = Surface();
    for (std::size_t i = 0; i < s.points.size(); ++i) {
        if (s.points[i].x > 0) continue;
        half.points.push_back(s.points[i]);
        half.normals.push_back(s.normals[i]);
    }
    auto source = makeSource();
    source.Update(half.points, half.normals, nullptr);
    auto whole = makeSource();
    whole.Update(s.points, s.normals, nullptr);
    const auto key = [](const CFPFHDataSource& from) {
        std::vector<std::array<float, 3>> points;
        for (const auto& p : from.GetFeaturePointsV()) points.push_back({p.x, p.y, p.z});
        std::sort(points.begin(), points.end());
        return points;
    };
    const auto halfPoints = key(source);

    source.Update(s.points, s.normals, nullptr); // the surface grew
    EXPECT_EQ(key(source), key(whole));
    source.Update(half.points, half.normals, nullptr); // and part of it vanished again
    EXPECT_EQ(key(source), halfPoints);
    EXPECT_TRUE(source.Update(half.points.data(), half.normals.data(), nullptr, 0));
    EXPECT_EQ(source.GetNumPoints() + source.GetFeaturePointsV().size(), 0U);
    EXPECT_EQ(source.GetFeatures().first, nullptr);
}

TEST(CFPFHDataSource, GoesOnAfterAnUpdateThatWasStopped)
{
    const auto s = BumpySurface(20000, 7);
    auto fresh = makeSource();
    fresh.Update(s.points, s.normals, nullptr);
    for (int last = 0;; ++last) {
        auto source = makeSource();
        source.Update(s.points.data(), s.normals.data(), nullptr, s.points.size() / 2);
        const std::size_t before = source.GetNumFeatures();
        int questions = 0;
        const Zorvan::Hooks hooks([&] { return questions++ == last; });
        if (source.Update(s.points.data(), s.normals.data(), nullptr, s.points.size(), hooks)) {
            EXPECT_GT(last, 2); // it asks between blocks as well
            EXPECT_TRUE(sameFeatures(source, fresh));
            break;
        }
        EXPECT_LE(source.GetNumFeatures(), before);
        EXPECT_NO_THROW(CFPFHPointSet{source});
        source.Update(s.points, s.normals, nullptr);
        EXPECT_TRUE(sameFeatures(source, fresh)) << last;
    }
}

TEST(CFPFHDataSource, NoPointIsLostFarFromTheOrigin)
{
    auto s = BumpySurface(20000, 8);
    for (auto& p : s.points) p = p + Vector3(4000, -3000, 5000);
    auto updated = makeSource();
    updated.Update(s.points, s.normals, nullptr);
    auto loaded = makeSource();
    loaded.Load(s.points, s.normals, nullptr);
    EXPECT_EQ(updated.GetNumPoints(), loaded.GetNumPoints());
    EXPECT_EQ(updated.GetFeaturePointsV().size(), loaded.GetFeaturePointsV().size());
}

TEST(CFPFHDataSource, AveragesWhatFallsIntoACell)
{
    const std::vector<Vector3> points = {{0, 0, 0}, {0.2F, 0, 0}, {3, 0, 0}};
    const std::vector<Vector3> normals = {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}};
    const unsigned masks[] = {1, 4, 8};
    auto source = makeSource(1, 2.0, 1.0, 1.0);
    source.Load(points, normals, masks);
    ASSERT_EQ(source.GetNumPoints(), 2U);
    EXPECT_EQ(source.GetPoints().first[0], Vector3(0.1F, 0, 0));
    EXPECT_NEAR(source.GetNormals().first[0].Length(), 1, 1e-3);
    EXPECT_THAT(std::vector<unsigned>(source.GetMasks().first, source.GetMasks().first + 2),
                testing::ElementsAre(5U, 8U));
    EXPECT_TRUE(source.UsesMasks());
    auto updated = makeSource(1, 2.0, 1.0, 1.0);
    updated.Update(points, normals, nullptr);
    EXPECT_EQ(updated.GetNormals().first[0], Vector3(0, 0.5F, 0.5F)) << "an update leaves the mean as it is";
    EXPECT_EQ(updated.GetNumFeatures(), 0U) << "too few neighbours";
    EXPECT_EQ(updated.GetFeaturePointsV().size(), 2U);
    const auto s = BumpySurface(4000, 12);
    auto coarse = makeSource(1, 4.0, 0.5, 2.0);
    coarse.Load(s.points, s.normals, nullptr);
    ASSERT_GT(coarse.GetNumFeatures(), 100U);
    for (std::size_t i = 0; i < coarse.GetNumFeatures(); ++i)
        EXPECT_NEAR(coarse.GetFeatureNormals().first[i].Length(), 1, 1e-3);
}

TEST(CFPFHDataSource, TwelveNeighboursMakeAFeature)
{
    for (const std::size_t n : {11U, 12U}) {
        std::vector<Vector3> points;
        for (std::size_t i = 0; i < n; ++i) points.emplace_back(0.1F * static_cast<float>(i), 0.0F, 0.0F);
        const std::vector<Vector3> normals(n, {0, 0, 1});
        auto source = makeSource(1, 2.0, 0, 0);
        source.Load(points, normals, nullptr);
        EXPECT_EQ(source.GetNumFeatures(), n < 12 ? 0U : 12U);
        EXPECT_EQ(source.GetFeaturePointsV().size(), n);
    }
}

TEST(CFPFHDataSource, NoNeighbourIsMissedThoughCellsAreRounded)
{
    // The radius whose reciprocal is the most too large, so that cells are narrower than it. Eleven points on a spot
    // and one at the end of their reach have a feature only together.
    const auto excess = [](float r) { return Zorvan::simd::ApproximateReciprocal(r) * r; };
    float radius = 2.0F;
    for (int i = 0; i < 2000; ++i) {
        const float other = 2.0F + 0.001F * static_cast<float>(i);
        if (excess(other) > excess(radius)) radius = other;
    }
    std::mt19937 rng(17);
    std::vector<Vector3> points;
    for (unsigned i = 0; i < 24 * 24 * 24; ++i) {
        const Vector3 cell(static_cast<float>(i % 24), static_cast<float>(i / 24 % 24), static_cast<float>(i / 576));
        const float shift = 0.3F * static_cast<float>(rng() >> 8) * 0x1p-24F;
        const Vector3 spot = (cell + Vector3(shift, 0, 0)) * (2.6F * radius);
        points.insert(points.end(), 11, spot);
        points.push_back(spot + Vector3(0.99999F * radius, 0, 0));
    }
    auto source = makeSource(1, radius, 0, 0);
    source.Load(points, std::vector<Vector3>(points.size(), {0, 0, 1}), nullptr);
    EXPECT_EQ(source.GetNumFeatures(), points.size());
}

TEST(CFPFHDataSource, WhatHasNoFeatureStandsBehindAndDoesNotCount)
{
    // Twenty points on a spot, and one far from all: first, in the middle, and last.
    std::vector<Vector3> points;
    for (int i = 0; i < 20; ++i) points.emplace_back(3.0F, 0.02F * static_cast<float>(i), 0.0F);
    for (const std::ptrdiff_t place : {0, 11, 21}) points.insert(points.begin() + place, {3, 30, 0});
    std::vector<unsigned> masks;
    for (const auto& p : points) masks.push_back(p.y > 20 ? 8 : 1);
    const auto expectAllValid = [](const CFPFHDataSource& source, std::size_t n) {
        ASSERT_EQ(source.GetNumFeatures(), n);
        for (std::size_t i = 0; i < n; ++i) {
            EXPECT_LT(source.GetFeaturePoints().first[i].y, 20.0F);
            EXPECT_EQ(source.GetFeatureMasks().first[i], 1U);
        }
    };
    auto source = makeSource(1, 3.0, 0, 0);
    source.Update(points.data(), std::vector<Vector3>(23, {0, 0, 1}).data(), masks.data(), 23);
    expectAllValid(source, 20);
    // Ten times as far as the width of a cell away from the lone ones; its neighbours are all old.
    points.emplace_back(5.6F, 0.0F, 0.0F);
    masks.push_back(1);
    source.Update(points.data(), std::vector<Vector3>(24, {0, 0, 1}).data(), masks.data(), 24);
    expectAllValid(source, 21);
}

TEST(CFPFHDataSource, RejectsSettingsThatCannotWork)
{
    struct Case
    {
        double radius, grid, featureGrid;
        unsigned tasks;
        bool isAccepted;
        const wchar_t* message;
    };
    const auto s = BumpySurface(2000, 9);
    for (const auto& c : {Case{2, 1, 1, 0, false, L"cannot compute features on 0 tasks"},
                          Case{2, 1, 3, 1, false, L"Feature grid size (3) is larger than feature radius (2)"},
                          Case{2, 1.5, 1, 1, false, L"Grid size (1.5) exceeds feature grid size (1)"},
                          Case{2, 0, 1, 1, true, L"Invalid grid sizes: only one of the grid sizes is zero"}}) {
        const support::LogCapture log;
        CFPFHDataSource source(c.radius, c.grid, c.featureGrid, c.tasks, nullptr);
        EXPECT_EQ(source.Update(s.points, s.normals, nullptr), c.isAccepted);
        EXPECT_TRUE(log.Has(c.message)) << c.radius;
        EXPECT_EQ(source.GetNumPoints(), c.isAccepted ? s.points.size() : 0U);
        EXPECT_EQ(source.GetFeaturePointsV().size(), source.GetNumPoints()) << "the feature grid does not count";
    }
}

TEST(CFPFHDataSource, RadiusThatIsNoLengthGivesNoFeature)
{
    const auto s = BumpySurface(2000, 9);
    for (const double radius : {0.0, 1e39, std::numeric_limits<double>::infinity(), double{nan}}) {
        CFPFHDataSource source(radius, 0, 0, 1, nullptr);
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(source.Update(s.points, s.normals, nullptr));
            EXPECT_EQ(source.GetNumFeatures(), 0U) << radius;
        }
    }
}

TEST(CFPFHDataSource, PointsThatAreNotFiniteEmptyIt)
{
    auto s = BumpySurface(2000, 10);
    auto source = makeSource();
    source.Update(s.points, s.normals, nullptr);
    for (const float bad : {nan, std::numeric_limits<float>::infinity()}) {
        auto damaged = s;
        damaged.points[17].y = bad;
        const support::LogCapture log;
        EXPECT_TRUE(source.Update(damaged.points, damaged.normals, nullptr));
        EXPECT_TRUE(log.Has(L"rejecting update: detected (only) irregular points (Inf/NaN/dupes) ?!")) << bad;
        EXPECT_EQ(source.GetNumPoints() + source.GetNumFeatures(), 0U);
        EXPECT_TRUE(source.Update(s.points, s.normals, nullptr));
        EXPECT_GT(source.GetNumFeatures(), 100U) << "and the next good surface works again";
    }
}

TEST(CFPFHDataSource, MergesSets)
{
    const auto s = BumpySurface(8000, 11);
    auto source = makeSource();
    source.Load(s.points, s.normals, nullptr);
    const CFPFHPointSet set(source);
    const CFPFHPointSet flat(set.GetPoints(), set.GetNormals(), set.GetFeaturePoints(), set.GetFeatureNormals(),
                             {set.SizeFeatures(), CPointFeatureHistogram::Plane()});
    const auto shift = CTrafo().Translate({100, 0, 0});
    for (const unsigned tasks : {1U, 2U}) {
        auto merged = makeSource(tasks);
        merged.Load({{&set, CTrafo()}, {nullptr, CTrafo()}, {&flat, CTrafo()}, {&set, shift}});
        EXPECT_EQ(merged.GetNumFeatures(), merged.GetFeaturesV().size());
        // Means of cells need not lie in them, so some fall into one cell together.
        EXPECT_NEAR(static_cast<double>(merged.GetNumFeatures()), 2.0 * static_cast<double>(set.SizeFeatures()), 150);
        EXPECT_EQ(merged.GetFeatures().first[0], set.GetFeature(0)) << "the first of a cell stays";
        auto unreduced = makeSource(tasks, 3, 0, 0);
        unreduced.Load({{&set, CTrafo()}, {&set, shift}});
        EXPECT_EQ(unreduced.GetNumPoints(), 2 * set.Size());

        // A merged source has no counts of pairs to go on from, yet it can be updated.
        EXPECT_TRUE(merged.Update(s.points, s.normals, nullptr));
        EXPECT_GT(merged.GetNumFeatures(), set.SizeFeatures());
    }
}

} // namespace
