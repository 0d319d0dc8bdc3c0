// SPDX-License-Identifier: MIT
// The pure functions that a vote over rotations is made of.

#include "tests/preregistration/boxscans.h"
#include "tests/support/matchers.h"
#include "zorvan/preregistration/evenrotations.h"
#include "zorvan/preregistration/matchingdirections.h"
#include "zorvan/preregistration/surfaceedges.h"
#include "zorvan/preregistration/surfelthinning.h"
#include "zorvan/preregistration/translationvote.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <numbers>
#include <numeric>
#include <random>

namespace {

using prereg::CTrafo;
using prereg::MarkedDirection;
using support::Vector3;

constexpr float degree = std::numbers::pi_v<float> / 180.0F;

// A sheet is thinner than a cell, and an edge lies in one: no mean may mix what looks different ways.
TEST(ThinSurfels, KeepsTheSidesOfASheetAndTheFacesAtAnEdgeApart)
{
    prereg::Vectors points;
    prereg::Vectors normals;
    const auto add = [&](const Vector3& p, const Vector3& n) {
        points.push_back(p);
        normals.push_back(n);
    };
    for (float a = 0.05F; a < 1.0F; a += 0.1F) {
        for (float b = 0.05F; b < 1.0F; b += 0.1F) {
            add({a, b, 0.9F}, {0, 0, 1});
            add({a, b, 0.8F}, {0, 0, -1});
            add({0.98F, a, 0.1F * b}, {1, 0, 0});
        }
    }
    add({0.98F, 0.5F, 0.9F},
        {std::numbers::sqrt2_v<float> / 2, 0, std::numbers::sqrt2_v<float> / 2}); // across the edge
    const prereg::Surfels surfels = prereg::ThinSurfels(points, normals, {}, 1.0F);
    ASSERT_EQ(surfels.Size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(surfels.counts[i], 100U);
        EXPECT_NEAR(std::abs(surfels.normals[i].x) + std::abs(surfels.normals[i].z), 1.0F, 1e-6F);
    }
    EXPECT_NEAR(surfels.points[0].z, 0.9F, 1e-5F);
    EXPECT_NEAR(surfels.points[1].z, 0.8F, 1e-5F);
}

TEST(ThinSurfels, GivesTheSameMeansInOneStepAndInTwo)
{
    const auto scan = support::BumpySurface(20000, 1);
    const auto fine = prereg::ThinSurfels(scan.points, scan.normals, {}, 1.0F);
    const auto coarse = prereg::ThinSurfels(scan.points, scan.normals, {}, 4.0F);
    const auto twice = prereg::ThinSurfels(fine.points, fine.normals, fine.counts, 4.0F);
    EXPECT_GT(fine.Size(), 4 * coarse.Size());
    const auto total = [](const prereg::Surfels& s) { return std::accumulate(s.counts.begin(), s.counts.end(), 0U); };
    EXPECT_GT(total(coarse), 19000U); // but for rare directions all points are in some patch
    EXPECT_GT(total(twice), 19000U);
    EXPECT_NEAR(static_cast<double>(twice.Size()), static_cast<double>(coarse.Size()),
                0.3 * static_cast<double>(coarse.Size()));

    const prereg::Vectors points = {{0, 0, 0}, {1, 0, 0}};
    const prereg::Vectors normals(2, Vector3(0, 0, 1));
    const std::vector<std::uint32_t> counts = {3, 1};
    EXPECT_EQ(prereg::ThinSurfels(points, normals, counts, 4.0F).points.at(0), Vector3(0.25F, 0, 0));
}

TEST(ThinCrowds, LeavesOfATableAShareAndOfThePartAll)
{
    prereg::Surfels surfels;
    const auto add = [&](const Vector3& p, const Vector3& n) {
        surfels.points.push_back(p);
        surfels.normals.push_back(n);
        surfels.counts.push_back(1);
    };
    for (int i = 0; i < 900; ++i) add({static_cast<float>(i % 30), static_cast<float>(i / 30), 0}, {0, 0, 1});
    for (int i = 0; i < 100; ++i) add({15, 15, 0.1F * static_cast<float>(i)}, {1, 0, 0});
    const prereg::Surfels kept = prereg::ThinCrowds(surfels, 0.2);
    const auto isTable = [](const Vector3& normal) { return normal.z == 1.0F; };
    EXPECT_EQ(std::count_if(kept.normals.begin(), kept.normals.end(), isTable), 200);
    EXPECT_EQ(kept.Size(), 300U);
    const auto isLeft = [](const Vector3& p) { return p.x < 15.0F; };
    EXPECT_NEAR(static_cast<double>(std::count_if(kept.points.begin(), kept.points.end(), isLeft)), 100.0, 5.0);
    EXPECT_EQ(prereg::ThinCrowds(surfels, 1.0).Size(), 1000U);
}

TEST(EstimateSize, IsThatOfTheObjectWhereverItLies)
{
    const auto ball = support::BumpyBall({0, 0, 1}, 1.5F, 20000, 1); // a half of some 40 mm across
    std::mt19937 rng(2);
    const CTrafo pose = support::RandomPose(rng, 500.0F);
    prereg::Vectors moved;
    for (const Vector3& p : ball.points) moved.push_back(pose * p);
    moved.push_back(pose * Vector3(300, 0, 0)); // a stray point
    EXPECT_NEAR(prereg::EstimateSize(ball.points), 40.0F, 10.0F);
    EXPECT_NEAR(prereg::EstimateSize(moved), prereg::EstimateSize(ball.points), 1.0F);
    EXPECT_EQ(prereg::EstimateSize({}), 0.0F);
}

TEST(EvenRotations, LeaveNoRotationFarFromTheNearest)
{
    const std::vector<CTrafo> rotations = prereg::EvenRotations(1500);
    std::mt19937 rng(3);
    float farthest = 0.0F;
    float sum = 0.0F;
    constexpr int queries = 500;
    for (int i = 0; i < queries; ++i) {
        const CTrafo any = support::RandomPose(rng, 0.0F);
        float nearest = 4.0F;
        for (const CTrafo& r : rotations) nearest = std::min(nearest, r.GetRotationDistance(any));
        farthest = std::max(farthest, nearest);
        sum += nearest;
    }
    EXPECT_LT(farthest, 17.5F * degree);
    EXPECT_LT(sum / queries, 11.5F * degree);
    for (const CTrafo& r : rotations) EXPECT_NEAR((r * r.GetInverse(true)).GetRotationDistance({}), 0.0F, 1e-3F);
}

/// Surfels on whole numbers that look along the axes: no vote is rounded, and all of it can be counted.
prereg::Surfels latticeSurfels(std::mt19937& rng, std::size_t count)
{
    prereg::Surfels surfels;
    std::uniform_int_distribution<int> at(-5, 5);
    for (std::size_t i = 0; i < count; ++i) {
        surfels.points.emplace_back(at(rng), at(rng), at(rng));
        Vector3 normal;
        normal[static_cast<unsigned>(rng() % 3)] = rng() % 2 == 0 ? 1.0F : -1.0F;
        surfels.normals.push_back(normal);
        surfels.counts.push_back(1);
    }
    for (const float corner : {-5.0F, 5.0F}) { // so that the middle lies on a whole number
        surfels.points.emplace_back(corner, corner, corner);
        surfels.normals.emplace_back(1.0F, 0.0F, 0.0F);
        surfels.counts.push_back(1);
    }
    return surfels;
}

TEST(CTranslationVote, CountsAsManyVotesAsAPlainCountOfAllPairs)
{
    std::mt19937 rng(47110815);
    const CTrafo turn(Vector3(0, 1, 0), Vector3(0, 0, 1), Vector3(1, 0, 0), Vector3(7, 7, 7));
    for (const std::size_t count : {3U, 40U, 333U}) {
        const auto fix = latticeSurfels(rng, count);
        auto flt = latticeSurfels(rng, count + 2);
        if (count == 333U) flt.normals.front() = Vector3(NAN, NAN, NAN); // has no vote
        std::map<std::array<int, 3>, unsigned> blocks;                   // by lowest cell
        for (std::size_t a = 0; a < fix.Size(); ++a) {
            for (std::size_t b = 0; b < flt.Size(); ++b) {
                if (!(kdtree::Dot(fix.normals[a], turn.Rotate(flt.normals[b])) >= 0.9F)) continue;
                const Vector3 t = fix.points[a] - turn.Rotate(flt.points[b]);
                for (int k = 0; k < 8; ++k)
                    ++blocks[{static_cast<int>(t.x) - (k & 1), static_cast<int>(t.y) - (k >> 1 & 1),
                              static_cast<int>(t.z) - (k >> 2)}];
            }
        }
        unsigned most = 0;
        for (const auto& [cell, votes] : blocks) most = std::max(most, votes);
        prereg::CTranslationVote::Ballot ballot;
        std::vector<prereg::CTranslationVote::Peak> peaks;
        const prereg::CTranslationVote vote(fix, flt, {1.0F, 0.38F});
        vote.Find(turn, 5, ballot, peaks);
        ASSERT_EQ(peaks.size(), 5U);
        EXPECT_EQ(peaks.front().votes, most);
        for (std::size_t i = 0; i < peaks.size(); ++i) {
            // The peak lies within a cell of the middle of a block that has as many.
            const Vector3 t = peaks[i].pose.GetTranslation();
            bool isThere = false;
            for (const auto& [cell, votes] : blocks) {
                const Vector3 middle(static_cast<float>(cell[0] + 1), static_cast<float>(cell[1] + 1),
                                     static_cast<float>(cell[2] + 1));
                const Vector3 d = t - middle;
                isThere = isThere ||
                          (votes == peaks[i].votes && std::max({std::abs(d.x), std::abs(d.y), std::abs(d.z)}) <= 1.0F);
            }
            EXPECT_TRUE(isThere) << "peak " << i << " of " << count << " surfels";
            EXPECT_LE(peaks[i].votes, peaks[i == 0 ? 0 : i - 1].votes);
        }
        auto again = peaks;
        again.clear();
        vote.Find(turn, 5, ballot, again); // the ballot starts anew
        EXPECT_EQ(again.front().votes, most);
    }
}

TEST(MatchingDirections, FindTheFacesOfAPartAndTheRotationBetweenTwoViews)
{
    const CTrafo first(Vector3(1.0F, -0.8F, 0.2F), 50.0F * degree, {});
    const auto scan = support::ScanOfBoxes(support::StepPart(), first, 0.5F, 0.02F);
    const auto surfels = prereg::ThinSurfels(scan.points, scan.normals, {}, 1.5F);
    const auto planes = prereg::FindPlaneNormals(surfels, 1.5F, 0.02F, 12);
    ASSERT_EQ(planes.size(), 3U);
    float sum = 0.0F;
    for (const MarkedDirection& plane : planes) {
        const Vector3 home = first.GetInverse(true).Rotate(plane.direction);
        EXPECT_GT(std::max({std::abs(home.x), std::abs(home.y), std::abs(home.z)}), 0.9998F); // 1.1 degrees
        sum += plane.weight;
    }
    EXPECT_GT(sum, 0.9F);

    std::mt19937 rng(5);
    const CTrafo pose = support::RandomPose(rng, 0.0F);
    std::vector<MarkedDirection> turned;
    for (const MarkedDirection& plane : planes) turned.push_back({pose.Rotate(plane.direction), plane.weight});
    const auto rotations = prereg::RotationsFromDirections(planes, turned, 200);
    ASSERT_GE(rotations.size(), 3U); // the turns of a corner
    EXPECT_LT(rotations.front().GetRotationDistance(pose.GetInverse(true)), 0.5F * degree);
    for (std::size_t i = 1; i < rotations.size(); ++i)
        EXPECT_GT(rotations[i].GetRotationDistance(rotations.front()), 4.9F * degree);
    EXPECT_EQ(prereg::RotationsFromDirections(planes, turned, 2).size(), 2U);
    EXPECT_TRUE(prereg::RotationsFromDirections(planes, {}, 200).empty());
}

prereg::CRangeImage imageOf(const support::Surface& scan, double spacing)
{
    return {scan.points, scan.normals, {0, 0, 1}, spacing};
}

// Around each direction that is left all others are counted anew, until hardly any lie together.
std::vector<float> bundleWeights(prereg::Vectors left)
{
    const auto all = static_cast<float>(left.size());
    std::vector<float> weights;
    while (weights.size() < 10) {
        prereg::Vectors best;
        for (const Vector3& centre : left) {
            prereg::Vectors close;
            for (const Vector3& other : left)
                if (Dot(centre, other) >= 0.9945F) close.push_back(other);
            if (close.size() > best.size()) best = close;
        }
        if (best.size() < 8) break;
        weights.push_back(static_cast<float>(best.size()) / all);
        const Vector3 sum = std::accumulate(best.begin(), best.end(), Vector3());
        std::erase_if(left, [&](const Vector3& v) { return Dot(v, sum) > 0.978F * sum.Length(); });
    }
    return weights;
}

TEST(FindEdgeNormals, FindsTheBundlesThatCountingAllPairsAnewFinds)
{
    std::mt19937 rng(47110815);
    std::normal_distribution<float> spread(0.0F, 0.08F);
    std::vector<prereg::SurfaceEdge> edges;
    prereg::Vectors directions;
    for (int i = 0; i < 600; ++i) {
        const Vector3 axis(i % 7 < 3 ? 1.0F : 0.0F, i % 7 < 5 ? 1.0F : 0.0F, i % 5 == 0 ? 0.9F : 0.1F);
        const Vector3 v = axis + Vector3(spread(rng), spread(rng), spread(rng));
        directions.push_back((1.0F / v.Length()) * v);
        edges.push_back({{}, {}, directions.back()});
    }
    std::vector<float> weights;
    for (const MarkedDirection& found : prereg::FindEdgeNormals(edges, 10)) weights.push_back(found.weight);
    EXPECT_EQ(weights, bundleWeights(directions));
    EXPECT_GE(weights.size(), 4U);
}

TEST(FindSurfaceEdges, FindsWhereFacesEndAndNotWhereTheyAreHidden)
{
    const support::Boxes plateOnPlate = {{{0, 0, 0}, {60, 40, 5}}, {{20, 10, 5}, {40, 30, 15}}};
    const CTrafo pose(Vector3(0, 0, 1), 20.0F * degree, {});
    const auto image = imageOf(support::ScanOfBoxes(plateOnPlate, pose, 0.4F, 0.01F), 0.4);
    const CTrafo home = (image.GetFrame() * pose).GetInverse(true);
    std::size_t upper = 0;
    std::size_t outer = 0;
    const auto edges = prereg::FindSurfaceEdges(image, 0.01F);
    for (const auto& edge : edges) {
        const Vector3 p = home * edge.point;
        const Vector3 outward = home.Rotate(edge.outward);
        const bool isUpper = p.z > 10.0F;
        ++(isUpper ? upper : outer);
        // Off its end: away from the middle, along the axis on which the plate ends here.
        const Vector3 d = p - Vector3(30, 20, p.z);
        const float halfX = isUpper ? 10.0F : 30.0F;
        const float halfY = isUpper ? 10.0F : 20.0F;
        const float toEnd = std::min(std::abs(std::abs(d.x) - halfX), std::abs(std::abs(d.y) - halfY));
        EXPECT_LT(toEnd, 0.6F) << p.x << " " << p.y << " " << p.z;
        EXPECT_GT(kdtree::Dot(outward, d), 0.0F);
    }
    EXPECT_GT(upper, 150U); // 80 mm of edge, 0.5 mm a pixel
    EXPECT_GT(outer, 300U); // 200 mm
}

TEST(FindSurfaceEdges, TakesNoOutlineOfARoundBodyForAnEdge)
{
    support::Surface ball;
    for (float y = -20; y <= 20; y += 0.4F) {
        for (float x = -20; x <= 20; x += 0.4F) {
            const float z = std::sqrt(std::max(0.0F, 400.0F - x * x - y * y));
            if (z < 2.0F) continue;
            ball.points.emplace_back(x, y, z);
            ball.normals.emplace_back(x / 20, y / 20, z / 20);
        }
    }
    EXPECT_TRUE(prereg::FindSurfaceEdges(imageOf(ball, 0.4), 0.0F).empty());
}

} // namespace
