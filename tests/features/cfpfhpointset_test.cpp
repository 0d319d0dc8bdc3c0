// SPDX-License-Identifier: MIT
#include "zorvan/features/cfpfhpointset.h"

#include "tests/support/clouds.h"
#include "tests/support/logcapture.h"
#include "zorvan/features/cfpfhdatasource.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

using prereg::CFPFHDataSource;
using prereg::CFPFHPointSet;
using prereg::ConfigurationFPFH;
using prereg::CPointFeatureHistogram;
using prereg::CTrafo;
using support::LogCapture;
using support::Vector3;
using Vectors = std::vector<Vector3>;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

// Another seed measures the same surface at other points.
CFPFHPointSet measure(std::uint32_t seed)
{
    const auto s = support::BumpySurface(12000, seed);
    CFPFHDataSource source(3.0, 0.4, 0.4, 1, nullptr);
    source.Load(s.points, s.normals, nullptr);
    return CFPFHPointSet(source);
}

const CFPFHPointSet& bumpySet()
{
    static const CFPFHPointSet set = measure(1);
    return set;
}

ConfigurationFPFH verification()
{
    ConfigurationFPFH config;
    config.dVerifyTrafoMaxFeatureDistance = 0.3;
    config.dVerifyTrafoMinConfidence = 0.5;
    return config;
}

TEST(CFPFHPointSet, FindsTheFeaturesThatLookingAtAllFinds)
{
    const auto& set = bumpySet();
    ASSERT_GT(set.SizeFeatures(), 1000U);
    std::size_t complete = 0;
    std::size_t queries = 0;
    for (std::size_t i = 0; i < set.SizeFeatures(); i += 37, ++queries) {
        const auto found = set.LookupSimilarFeatures(set.GetFeature(i), 10, 0.1F);
        std::vector<float> all;
        for (const auto& f : set.GetFeatures()) all.push_back(f.SoerensenDistance(set.GetFeature(i)));
        std::sort(all.begin(), all.end());
        const auto within = std::count_if(all.begin(), all.end(), [](float d) { return d <= 0.1F * 0.1F; });
        ASSERT_FALSE(found.empty());
        EXPECT_EQ(found[0].second, 0.0F);
        EXPECT_LE(found.size(), 10U);
        complete += found.size() == std::min<std::size_t>(10, static_cast<std::size_t>(within)) ? 1 : 0;
        for (std::size_t k = 0; k < found.size(); ++k) {
            EXPECT_NEAR(found[k].second, set.GetFeature(found[k].first).SoerensenDistance(set.GetFeature(i)), 1e-6);
            EXPECT_GE(found[k].second, all[k] - 1e-6F);
            EXPECT_LE(found[k].second, 0.1F * 0.1F);
        }
    }
    EXPECT_GT(complete, queries / 2) << "approximate, but not blind";
    EXPECT_TRUE(set.LookupSimilarFeatures(CPointFeatureHistogram::Invalid(), 10, 2.0F).empty());
    EXPECT_TRUE(set.LookupSimilarFeatures(set.GetFeature(0), 0, 2.0F).empty());
    const auto everything = static_cast<unsigned>(set.SizeFeatures());
    for (const unsigned count : {everything, 1U << 31, ~0U})
        EXPECT_EQ(set.LookupSimilarFeatures(set.GetFeature(0), count, 100.0F).size(), everything);
    EXPECT_TRUE(CFPFHPointSet().LookupSimilarFeatures(set.GetFeature(0), 10, 2.0F).empty());
}

TEST(CFPFHPointSet, DataThatCannotBeUsedLeavesAnEmptySet)
{
    const Vectors points = {{0, 0, 0}, {1, 0, 0}};
    const Vectors normals(2, {0, 0, 1});
    const Vectors nowhere(2, {nan, 0, 0});
    const std::vector<CPointFeatureHistogram> features(2, CPointFeatureHistogram::Plane());
    const std::vector<CPointFeatureHistogram> invalid(2, CPointFeatureHistogram::Invalid());
    const auto half = std::vector{CPointFeatureHistogram::Plane(), CPointFeatureHistogram::Invalid()};
    const auto messageOf = [&](const Vectors& featurePoints, const auto& histograms, std::size_t expected) {
        const LogCapture log;
        const CFPFHPointSet set(points, normals, featurePoints, Vectors(featurePoints.size(), {0, 0, 1}), histograms);
        EXPECT_EQ(set.SizeFeatures(), expected);
        EXPECT_EQ(set.Size(), expected);
        return log.Messages().empty() ? L"" : log.Messages().back().text;
    };
    EXPECT_EQ(messageOf(points, features, 2), L"");
    EXPECT_EQ(messageOf({}, std::vector<CPointFeatureHistogram>(), 0), L"point set has no features");
    EXPECT_EQ(messageOf({}, features, 0), L"");
    EXPECT_EQ(messageOf(points, invalid, 0), L"Inf/NaN in FPFH data resulted in empty kD-tree; invalidating point set");
    EXPECT_EQ(messageOf(nowhere, features, 0),
              L"Inf/NaN in feature point data resulted in empty kD-tree; invalidating point set");
    EXPECT_EQ(messageOf(points, half, 2), L"kD-Tree reduced the number of FPFH features (Inf/NaN/duplicates) from 2 to "
                                          L"1 (performance warning)");
    EXPECT_EQ(messageOf({{0, 0, 0}}, features, 0),
              L"numbers of points, normals and features differ; invalidating point set");
}

TEST(CFPFHPointSet, AMovedCopyMovesPointsAndKeepsFeatures)
{
    std::mt19937 rng(2);
    auto masked = bumpySet();
    masked.InitializeBitMasks(5);
    const CTrafo pose = support::RandomPose(rng, 50);
    const auto moved = masked.Transform(pose);
    EXPECT_EQ(moved.GetFeatures(), masked.GetFeatures());
    EXPECT_EQ(moved.GetFeaturePoint(7), pose * masked.GetFeaturePoint(7));
    EXPECT_EQ(moved.GetNormal(7), pose.Rotate(masked.GetNormal(7)));
    EXPECT_EQ(moved.GetEllipsoid().center, pose * masked.GetEllipsoid().center);
    EXPECT_EQ(moved.GetFeatureBitMask(7) + moved.GetBitMask(7), 10U);
    EXPECT_EQ(moved.LookupSimilarFeatures(masked.GetFeature(3), 5, 1.0F),
              masked.LookupSimilarFeatures(masked.GetFeature(3), 5, 1.0F));
    EXPECT_EQ(masked.Transform(CTrafo::Invalid()).SizeFeatures(), 0U);
    EXPECT_THROW(static_cast<void>(moved.GetFeatureBitMask(moved.SizeFeatures())), std::out_of_range);
    masked.ClearBitMasks();
    EXPECT_EQ(masked.GetFeatureBitMask(masked.SizeFeatures()), 0U);
}

TEST(CFPFHPointSet, PartsHoldExactlyWhatBelongsToThem)
{
    const auto& set = bumpySet();
    const float toTheRight[] = {-1, 0, 0};
    const float zero[] = {0};
    const auto isRight = [](const Vector3& p) { return -p.x <= 0; };
    const auto byPlane = set.RestrictWithInequalities(toTheRight, zero, 1);
    const auto byPredicate = set.RestrictWithPredicate(isRight);
    const auto isFeatureRight = std::count_if(set.GetFeaturePoints().begin(), set.GetFeaturePoints().end(), isRight);
    EXPECT_EQ(byPlane.SizeFeatures(), static_cast<std::size_t>(isFeatureRight));
    EXPECT_EQ(byPlane.GetPoints(), byPredicate.GetPoints());
    EXPECT_EQ(byPlane.GetFeatures(), byPredicate.GetFeatures());
    EXPECT_TRUE(std::all_of(byPlane.GetPoints().begin(), byPlane.GetPoints().end(), isRight));
    const LogCapture log;
    EXPECT_EQ(set.RestrictWithPredicate([](const Vector3&) { return false; }).Size(), 0U);
    EXPECT_TRUE(log.Has(L"point set has no features"));

    const auto s = support::BumpySurface(3000, 4);
    std::vector<unsigned> masks;
    for (const auto& p : s.points) masks.push_back(p.x < 0 ? 3 : 6);
    CFPFHDataSource source(3.0, 0, 0, 1, nullptr);
    source.Load(s.points, s.normals, masks.data());
    const CFPFHPointSet masked(source);
    const auto left = masked.RestrictWithMask(1, true);
    const auto right = masked.RestrictWithMask(1, false);
    EXPECT_EQ(left.Size() + right.Size(), masked.Size());
    EXPECT_EQ(left.SizeFeatures() + right.SizeFeatures(), masked.SizeFeatures());
    EXPECT_TRUE(std::all_of(left.GetFeaturePoints().begin(), left.GetFeaturePoints().end(),
                            [](const Vector3& p) { return p.x < 0; }));
    EXPECT_EQ(right.GetFeatureBitMask(0) + right.GetBitMask(0), 12U);
    EXPECT_EQ(masked.RestrictWithMask(2, true).Size(), masked.Size());
    EXPECT_EQ(masked.RestrictWithMask(5, true).Size(), 0U) << "no mask has both bits";
    EXPECT_EQ(masked.RestrictWithMask(0, false).SizeFeatures(), masked.SizeFeatures());
    EXPECT_EQ(set.RestrictWithMask(1, true).SizeFeatures(), set.SizeFeatures()) << "there are no masks";
}

TEST(CFPFHPointSet, VerificationAcceptsTheTruthAndRejectsTheRest)
{
    const auto& set = bumpySet();
    const auto again = measure(2);
    EXPECT_TRUE(set.VerifyAlignmentFeatureBased(verification(), again, CTrafo()));

    const LogCapture log;
    const CTrafo turned({0, 0, 1}, std::numbers::pi_v<float>, {});
    EXPECT_FALSE(set.VerifyAlignmentFeatureBased(verification(), again, turned));
    EXPECT_TRUE(log.Has(L"VerifyAlignmentFeatureBased: rejecting trafo (confidence level"));
    EXPECT_FALSE(set.VerifyAlignmentFeatureBased(verification(), set, CTrafo().Translate({1000, 0, 0})));
    EXPECT_TRUE(log.Has(L"rejecting trafo (skewness 0.000 <= 0.150)")) << "no pair at all";
    EXPECT_TRUE(set.VerifyAlignmentFeatureBased({}, set, turned)) << "off by default";
    EXPECT_FALSE(set.VerifyAlignmentFeatureBased(verification(), set, CTrafo::Invalid()));
}

TEST(CFPFHPointSet, VerificationLearnsNothingFromFlatSpots)
{
    Vectors points;
    for (int x = 0; x < 30; ++x)
        for (int y = 0; y < 30; ++y) points.emplace_back(static_cast<float>(x), static_cast<float>(y), 0.0F);
    const Vectors normals(points.size(), {0, 0, 1});
    const CFPFHPointSet flat(points, normals, points, normals, {points.size(), CPointFeatureHistogram::Plane()});
    const LogCapture log;
    EXPECT_FALSE(flat.VerifyAlignmentFeatureBased(verification(), flat, CTrafo()));
    EXPECT_TRUE(log.Has(L"rejecting trafo (only 0.0p non-planar inliers)"));
    EXPECT_FALSE(log.Has(L"confidence level")) << "a share of nothing is no reason";
    for (const float height : {0.79F, 0.81F}) { // pairs are looked for within 8/3 of the query radius of 0.3
        const LogCapture above;
        EXPECT_FALSE(flat.VerifyAlignmentFeatureBased(verification(), flat, CTrafo().Translate({0, 0, height})));
        EXPECT_EQ(above.Has(L"non-planar inliers"), height < 0.8F);
    }
}

TEST(CFPFHPointSet, VerificationIsContentWithOneFeatureThatSaysSomething)
{
    const auto points = Vectors{{0, 0, 0}, {5, 0, 0}, {0, 5, 0}, {5, 5, 0}, {9, 0, 0}};
    std::vector<CPointFeatureHistogram> features(points.size(), CPointFeatureHistogram::Plane());
    features[0] = CPointFeatureHistogram(0.1F);
    const Vectors normals(points.size(), {0, 0, 1});
    const CFPFHPointSet set(points, normals, points, normals, features);
    EXPECT_TRUE(set.VerifyAlignmentFeatureBased(verification(), set, CTrafo())) << "it has no skewness";
}

TEST(CFPFHPointSet, RoughICPFindsASmallMotionTheSameEachTime)
{
    const auto& set = bumpySet();
    const CTrafo truth({0, 0, 1}, 0.02F, {0.2F, -0.1F, 0.1F});
    const auto flt = set.Transform(truth.GetInverse(false));
    prereg::ConfigurationICP config;
    config.dMinQueryRadius = 1.0;
    const auto result = set.ComputeRoughICPRegistration(config, flt, CTrafo(), nullptr, false);
    ASSERT_TRUE(result);
    const Vector3 corner(20, 20, 0);
    EXPECT_LT((result.GetTrafo() * corner - truth * corner).Length(), 0.05F);
    const auto again = set.ComputeRoughICPRegistration(config, flt, CTrafo(), nullptr, false);
    EXPECT_EQ(result.GetTrafo() * corner, again.GetTrafo() * corner);
}

TEST(CFPFHPointSet, IsTooLeanBelowTenFeaturesAVertex)
{
    const Vectors points(30);
    const CFPFHPointSet set(points, points, points, points, {points.size(), CPointFeatureHistogram::Plane()});
    ConfigurationFPFH config;
    for (const unsigned samples : {30U, 31U}) {
        for (const unsigned vertices : {3U, 4U}) {
            config.icpConfig.uiNumSamples = samples;
            config.uiNumPolygonVertices = vertices;
            EXPECT_EQ(set.IsTooLean(config), samples == 31 || vertices == 4);
        }
    }
}

} // namespace
