// SPDX-License-Identifier: MIT
#include "zorvan/verdict/ellipsoidtwins.h"

#include "tests/verdict/sphereobject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using namespace prereg;
using support::Vector3;

constexpr float fPi = std::numbers::pi_v<float>;
const Vector3 halfAxes(30, 22, 18);

/// The upper half of an ellipsoid as a scanner sees it that looks along -z of its frame.
support::Surface scanOfDome(const CTrafo& pose, std::uint32_t seed)
{
    const CTrafo toObject = pose.GetInverse(true);
    const auto scaled = [](const Vector3& v) { return Vector3(v.x / halfAxes.x, v.y / halfAxes.y, v.z / halfAxes.z); };
    const Vector3 along = scaled(toObject.Rotate({0, 0, 1}));
    const auto height = [&](float x, float y) {
        const Vector3 start = scaled(toObject * Vector3(x, y, 0));
        const float a = Dot(along, along);
        const float b = Dot(start, along);
        const float root = b * b - a * (Dot(start, start) - 1.0F);
        if (root < 0.04F * a) return NAN;
        const float z = (std::sqrt(root) - b) / a;
        return (toObject * Vector3(x, y, z)).z > 0.0F ? z : NAN;
    };
    return support::RasterScan(height, 35.0F, 0.5F, 0.02F, seed);
}

/// Turned about the vertical, and looked at from the side, 55 degrees off it.
CTrafo seenFrom(float degrees)
{
    return CTrafo({0, 1, 0}, -55.0F * fPi / 180, Vector3()) * CTrafo({0, 0, 1}, -degrees * fPi / 180, Vector3());
}

TEST(FindEllipsoidTwins, LeadBackToTheTruthFromADomeFoldedOntoItsOtherEnd)
{
    const auto fixSet = support::PointSet(scanOfDome(seenFrom(15), 1));
    const auto fltSet = support::PointSet(scanOfDome(seenFrom(190), 2));
    const CScanView fix(fixSet);
    const CScanView flt(fltSet);
    const CPoseJudge judge(fix, flt);
    const CTrafo truth = seenFrom(15) * seenFrom(190).GetInverse(true);
    const CTrafo folded = seenFrom(15) * CTrafo({0, 0, 1}, fPi, Vector3()) * seenFrom(190).GetInverse(true);
    ASSERT_GT(judge.Count(folded).uiMatched, judge.Count(truth).uiMatched) << "the fold matches more";
    const auto twins = FindEllipsoidTwins(judge, folded, judge.Place(folded));
    const auto isTruth = [&](const PoseTwin& twin) {
        return judge.Distance(twin.pose, truth) < 6.0 * judge.GetPixelSize() && !twin.isTold;
    };
    EXPECT_TRUE(std::any_of(twins.begin(), twins.end(), isTruth)) << twins.size() << " twins";
}

TEST(FindEllipsoidTwins, DoNotShakeWhatNoEllipsoidExplains)
{
    const auto fixSet = support::PointSet(support::ScanSpheres(support::Cluster(), CTrafo(), 0.25F, 0.02F, 1));
    const CTrafo turn({0, 1, 0}, 0.5F, Vector3());
    const auto fltSet = support::PointSet(support::ScanSpheres(support::Cluster(), turn, 0.25F, 0.02F, 2));
    const CScanView fix(fixSet);
    const CScanView flt(fltSet);
    const CPoseJudge judge(fix, flt);
    const CTrafo pose = turn.GetInverse(true);
    EXPECT_TRUE(FindEllipsoidTwins(judge, pose, judge.Place(pose)).empty());
    const auto dome = support::PointSet(scanOfDome(CTrafo(), 1));
    const CScanView view(dome);
    const CScanView model(dome, {.isSurface = true});
    const CPoseJudge ofModel(view, model);
    EXPECT_TRUE(FindEllipsoidTwins(ofModel, CTrafo(), ofModel.Place(CTrafo())).empty())
        << "a model shows all of its sides";
}

/// Samples on a surface over a square, every fifth one lifted off it.
std::vector<CPoseJudge::PlacedSample> samplesOf(const support::HeightField& height)
{
    std::vector<CPoseJudge::PlacedSample> samples;
    for (int j = -20; j <= 20; ++j) {
        for (int i = -20; i <= 20; ++i) {
            const float x = 0.8F * static_cast<float>(i);
            const float y = 0.8F * static_cast<float>(j);
            const float lift = (i + 2 * j) % 5 == 0 ? 2.0F : 0.0F;
            samples.push_back({{x + 5, y - 3, height(x, y) + lift}, {}, true});
        }
    }
    return samples;
}

TEST(FitEllipsoid, FindsTheEllipsoidOfACapAndNoneForOtherSurface)
{
    const auto cap = samplesOf([](float x, float y) {
        return halfAxes.z * std::sqrt(1 - x * x / (halfAxes.x * halfAxes.x) - y * y / (halfAxes.y * halfAxes.y));
    });
    const auto ellipsoid = FitEllipsoid(cap, 0.1);
    ASSERT_TRUE(ellipsoid);
    EXPECT_LT((ellipsoid->middle - Vector3(5, -3, 0)).Length(), 0.5F);
    for (const Vector3& axis : {Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1)}) {
        const auto isAlong = [&](const Vector3& other) { return std::abs(Dot(axis, other)) > 0.999F; };
        EXPECT_TRUE(std::any_of(ellipsoid->axes.begin(), ellipsoid->axes.end(), isAlong));
    }
    const double off = static_cast<double>(ellipsoid->uiOff) / static_cast<double>(ellipsoid->uiMatched);
    EXPECT_NEAR(off, 0.2, 0.02);

    EXPECT_FALSE(FitEllipsoid(samplesOf([](float x, float y) { return 0.02F * x * y; }), 0.1)) << "saddle";
    EXPECT_FALSE(FitEllipsoid(samplesOf([](float, float) { return 1.0F; }), 0.1)) << "plane";
    EXPECT_FALSE(FitEllipsoid(std::span(cap).first(20), 0.1)) << "too few";
}

} // namespace
