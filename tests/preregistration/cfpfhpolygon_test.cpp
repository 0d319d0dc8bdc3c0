// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cfpfhpolygon.h"

#include "tests/preregistration/measuredsurface.h"
#include "tests/support/logcapture.h"
#include "zorvan/preregistration/polygonmatching.h"
#include "zorvan/preregistration/randomdraws.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

namespace {

using prereg::CFPFHClusterAnalysis;
using prereg::CFPFHPolygon;
using prereg::ConfigurationFPFH;
using prereg::CTrafo;
using support::LogCapture;
using support::Vector3;
using Ring = std::vector<prereg::RingVertex>;

TEST(RandomSubset, HoldsDifferentNumbersAndAllOfThemEquallyOften)
{
    std::mt19937 random(1);
    std::vector<int> counts(10);
    for (int round = 0; round < 5000; ++round) {
        const auto subset = prereg::drawSubset(random, 4, 10);
        ASSERT_EQ(std::set<std::uint32_t>(subset.begin(), subset.end()).size(), 4U);
        ++counts[subset[0]];
    }
    EXPECT_THAT(counts, testing::Each(testing::AllOf(testing::Gt(400), testing::Lt(600))));
    EXPECT_TRUE(prereg::drawSubset(random, 0, 10).empty());
    EXPECT_TRUE(prereg::drawSubset(random, 11, 10).empty());
    int failures = 0;
    for (int round = 0; round < 200; ++round) failures += prereg::drawSubset(random, 2, 2).empty() ? 1 : 0;
    EXPECT_GT(failures, 0) << "the last one takes too many draws now and then";
    EXPECT_LT(failures, 50);
}

double changeOfSide(const Ring& ring, const std::vector<std::size_t>& choice, std::size_t i)
{
    const std::size_t next = (i + 1) % ring.size();
    const Vector3 side = ring[i].candidates[choice[i]] - ring[next].candidates[choice[next]];
    return std::abs(side.Length() - (ring[i].point - ring[next].point).Length());
}

double changeOf(const Ring& ring, const std::vector<std::size_t>& choice)
{
    double sum = 0;
    for (std::size_t i = 0; i < ring.size(); ++i) sum += changeOfSide(ring, choice, i);
    return sum;
}

double smallestChange(const Ring& ring, std::vector<std::size_t> choice)
{
    if (choice.size() == ring.size()) return changeOf(ring, choice);
    double smallest = 1e9;
    choice.push_back(0);
    for (; choice.back() < ring[choice.size() - 1].candidates.size(); ++choice.back()) {
        smallest = std::min(smallest, smallestChange(ring, choice));
    }
    return smallest;
}

TEST(MatchRing, KeepsTheShapeAsWellAsAnyChoiceOfCandidates)
{
    std::mt19937 rng(2);
    for (std::size_t vertices = 1; vertices < 6; ++vertices) {
        for (int round = 0; round < 20; ++round) {
            Ring ring(vertices);
            for (auto& vertex : ring) {
                vertex.point = support::RandomDirection(rng) * 5;
                vertex.candidates.resize(1 + rng() % 4);
                for (auto& candidate : vertex.candidates) candidate = support::RandomDirection(rng) * 5;
            }
            const auto match = prereg::matchRing(ring);
            ASSERT_EQ(match.candidate.size(), vertices);
            EXPECT_NEAR(changeOf(ring, match.candidate), smallestChange(ring, {}), 1e-4);
            for (std::size_t i = 0; i < vertices; ++i) {
                const double before = changeOfSide(ring, match.candidate, (i + vertices - 1) % vertices);
                EXPECT_NEAR(match.errors[i], (before + changeOfSide(ring, match.candidate, i)) / 2, 1e-4);
            }
            ring[rng() % vertices].candidates.clear();
            EXPECT_TRUE(prereg::matchRing(ring).Empty());
        }
    }
}

TEST(CFPFHPolygon, IsDrawnWhereItMayBe)
{
    const auto set = support::Measure(1);
    auto config = support::SearchSettings();
    std::mt19937 random(3);
    for (const double diameter : {8.0, 0.01}) {
        config.dMaxPolygonDiameter = diameter;
        const LogCapture log;
        const CFPFHPolygon polygon(random, *set, {}, config, -1.0);
        ASSERT_TRUE(polygon);
        ASSERT_EQ(polygon.GetNumVertices(), config.uiNumPolygonVertices);
        float widest = 0;
        for (std::size_t i = 1; i < polygon.GetNumVertices(); ++i) {
            const auto p = set->GetFeaturePoint(static_cast<std::size_t>(polygon.GetVertexIndex(i)));
            const auto q = set->GetFeaturePoint(static_cast<std::size_t>(polygon.GetVertexIndex(0)));
            widest = std::max(widest, (p - q).Length());
        }
        const bool isTooSmall = diameter < 1;
        EXPECT_EQ(widest > static_cast<float>(diameter), isTooSmall);
        EXPECT_EQ(log.Has(L"failed to create a polygon; 0 tries left ..."), isTooSmall);
        EXPECT_EQ(log.Has(L"failed to create a polygon; removing diameter restriction"), isTooSmall);
    }
    config.dMaxPolygonDiameter = -1;
    EXPECT_TRUE(CFPFHPolygon(random, *set, {}, config, 0.5)) << "from dense places";
    config.uiNumPolygonVertices = static_cast<unsigned>(set->SizeFeatures() / 5 + 1);
    const LogCapture log;
    const CFPFHPolygon none(random, *set, {}, config, -1.0);
    EXPECT_FALSE(none);
    EXPECT_LT(none.GetVertexIndex(0), 0);
    EXPECT_TRUE(log.Has(L"too few points for seeding"));
    EXPECT_FALSE(none.ComputePreRegistration(*set, *set, config, false).first);
}

TEST(CFPFHPolygon, TakesOneVertexFromEachCluster)
{
    const auto set = support::Measure(1);
    auto config = support::SearchSettings();
    config.uiNumPolygonVertices = 4;
    const CFPFHClusterAnalysis analysis(*set, config);
    ASSERT_EQ(analysis.GetNumClusters(), 4U);
    config.uiNumPolygonVertices = 9;
    std::mt19937 random(4);
    const CFPFHPolygon polygon(random, *set, analysis, config, -1.0);
    ASSERT_EQ(polygon.GetNumVertices(), 4U);
    for (std::size_t k = 0; k < 4; ++k) {
        const auto cluster = analysis.GetCluster(k);
        EXPECT_NE(std::find(cluster.begin(), cluster.end(), static_cast<unsigned>(polygon.GetVertexIndex(k))),
                  cluster.end());
    }
}

TEST(CFPFHPolygon, ProposesThePoseOfAMovedCopyExactly)
{
    std::mt19937 random(5);
    const auto fix = support::Measure(1);
    const CTrafo truth = support::RandomPose(random, 30);
    const auto flt = fix->Transform(truth.GetInverse(true));
    const auto config = support::SearchSettings();
    for (int round = 0; round < 20; ++round) {
        const CFPFHPolygon polygon(random, flt, {}, config, -1.0);
        const auto [trafo, pairs] = polygon.ComputePreRegistration(*fix, flt, config, false);
        ASSERT_TRUE(trafo);
        const Vector3 p = flt.GetFeaturePoint(0);
        EXPECT_LT((trafo * p - truth * p).Length(), 0.01F);
        for (const auto& pair : pairs) {
            EXPECT_EQ(pair.fixIndex, pair.fltIndex);
            EXPECT_GE(pair.weight, 0.0099);
            EXPECT_LE(pair.weight, 100);
        }
    }
    ConfigurationFPFH exact = config;
    exact.dMaxPolygonVertexError = 0;
    const auto pairs = CFPFHPolygon(random, *fix, {}, exact, -1.0).ComputePreRegistration(*fix, *fix, exact, false);
    EXPECT_TRUE(pairs.first) << "an error at the limit is within it";
    for (const auto& pair : pairs.second) EXPECT_EQ(pair.weight, 100);
}

TEST(CFPFHPolygon, PrefersDensePlacesWhenItKnowsTheSpacing)
{
    std::vector<Vector3> points;
    for (int i = 0; i < 100; ++i) points.emplace_back(0.01F * static_cast<float>(i), 0.0F, 0.0F);
    for (int i = 0; i < 100; ++i) points.emplace_back(50 * static_cast<float>(i), 50.0F, 0.0F);
    const prereg::CFPFHPointSet set(points, points, points, points,
                                    {points.size(), prereg::CPointFeatureHistogram::Plane()});
    ConfigurationFPFH config = support::SearchSettings();
    config.dMaxPolygonDiameter = -1;
    std::mt19937 random(7);
    int dense = 0;
    for (int round = 0; round < 20; ++round) {
        const CFPFHPolygon polygon(random, set, {}, config, 0.5);
        for (std::size_t i = 0; i < polygon.GetNumVertices(); ++i) dense += polygon.GetVertexIndex(i) < 100 ? 1 : 0;
    }
    EXPECT_GT(dense, 97) << "of 100: each is the best of ten, and half of all are dense";
}

// Twenty features in four places, each like none of the others.
prereg::CFPFHPointSet inFourPlaces(const std::array<Vector3, 4>& places)
{
    std::vector<Vector3> points;
    std::vector<prereg::CPointFeatureHistogram> features(20);
    for (std::size_t i = 0; i < features.size(); ++i) {
        points.push_back(places[i % places.size()]);
        features[i].AsArray()[i] = 1.0F;
    }
    const std::vector<Vector3> normals(points.size(), Vector3(0, 0, 1));
    return {points, normals, points, normals, features};
}

TEST(CFPFHPolygon, ClosesItsRingOverAGapOrGivesUp)
{
    // The fourth corner of the square keeps no shape. Without it the ring has a diagonal, too long for a float in the
    // larger square.
    for (const float unit : {1.0F, 1.35e18F}) {
        const std::array<Vector3, 4> square{
            Vector3(0, 0, 0), {10 * unit, 0, 0}, {10 * unit, 10 * unit, 0}, {0, 10 * unit, 0}};
        const auto flt = inFourPlaces(square);
        const auto fix = inFourPlaces({square[0], square[1], square[2], {0, 12 * unit, 0}});
        ConfigurationFPFH config = support::SearchSettings();
        config.uiNumPolygonVertices = 4;
        config.dMaxPolygonDiameter = -1;
        config.dMaxPolygonVertexError = 1.05 * unit; // of the fourth 1.1, of its neighbours 1.0 and 0.1
        std::mt19937 random(6);
        int met = 0;
        for (int round = 0; round < 300; ++round) {
            const CFPFHPolygon polygon(random, flt, {}, config, -1.0);
            int places[4];
            for (std::size_t i = 0; i < 4; ++i) places[i] = polygon.GetVertexIndex(i) % 4;
            const auto bad = std::find(std::begin(places), std::end(places), 3) - std::begin(places);
            if (std::set<int>(std::begin(places), std::end(places)).size() < 4 || places[(bad + 2) % 4] != 1) continue;
            ++met;
            const auto [trafo, pairs] = polygon.ComputePreRegistration(fix, flt, config, false);
            ASSERT_EQ(static_cast<bool>(trafo), unit == 1);
            if (!trafo) continue;
            ASSERT_EQ(pairs.size(), 3U);
            for (const auto& pair : pairs) EXPECT_EQ(pair.weight, 100);
        }
        EXPECT_GT(met, 5);
    }
}

} // namespace
