// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/planevote.h"

#include "tests/preregistration/boxscans.h"
#include "zorvan/verdict/pairverdict.h"
#include "zorvan/verdict/supportplane.h"
#include "zorvan/verdict/verdictlimits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numbers>
#include <random>

namespace {

using namespace prereg;
using support::Boxes;
using support::Vector3;

constexpr double degree = std::numbers::pi / 180.0;

/// A small part without symmetry on a table that reaches beyond the field of view.
Boxes partOnTable()
{
    return {{{-300, -300, -5}, {300, 300, 0}}, {{22, 14, 0}, {38, 24, 6}}, {{22, 14, 6}, {29, 18, 13}}};
}

/// The table tilted toward the sensor by so much, after a turn about its normal.
CTrafo seenFrom(double tilt, double turn)
{
    return support::ExactTurn({1, 0.3F, 0}, tilt * degree) * support::ExactTurn({0, 0, 1}, turn * degree);
}

support::Surface scanFrom(const CTrafo& pose) { return support::ScanOfBoxes(partOnTable(), pose, 0.5F, 0.02F); }

/// How far a pose puts a corner of the part from where it belongs, mm.
float distanceAtPart(const CTrafo& pose, const CTrafo& truth, const CTrafo& flt)
{
    const Vector3 corner = flt * Vector3(38, 24, 13);
    return (pose * corner - truth * corner).Length();
}

TEST(ProposeOnPlane, FindsASmallPartOnATableThatAgreesEverywhere)
{
    const CTrafo first = seenFrom(35, 0);
    const CTrafo second = seenFrom(30, 65);
    std::mt19937 rng(47110815);
    const CTrafo carried = support::RandomPose(rng, 50.0F);
    const auto fix = support::ToVotingScan(scanFrom(first));
    const auto flt = support::ToVotingScan(scanFrom(second), carried);
    const CTrafo truth = first * (carried * second).GetInverse(true);
    const auto poses = ProposeOnPlane(fix, flt, 1, {});
    const auto isRight = [&](const CTrafo& pose) { return distanceAtPart(pose, truth, carried * second) < 2.0F; };
    const auto found = std::find_if(poses.begin(), poses.end(), isRight);
    EXPECT_LT(found - poses.begin(), 5) << poses.size() << " poses";
    const auto again = ProposeOnPlane(fix, flt, 3, {});
    ASSERT_EQ(again.size(), poses.size());
    for (std::size_t i = 0; i < poses.size(); ++i) EXPECT_EQ(std::memcmp(&again[i], &poses[i], sizeof(CTrafo)), 0);

    EXPECT_TRUE(ProposeOnPlane(fix, flt, 1, [] { return true; }).empty());
    const auto noTable = support::ToVotingScan(support::ScanOfBoxes(support::StepPart(), first, 0.6F, 0.02F));
    EXPECT_TRUE(ProposeOnPlane(fix, noTable, 1, {}).empty());
    const auto onlyTable = support::ToVotingScan(support::ScanOfBoxes({partOnTable()[0]}, first, 0.5F, 0.02F));
    EXPECT_TRUE(ProposeOnPlane(fix, onlyTable, 1, {}).empty());
}

// The table has four samples in five, and matches as well when the part lies beside its place.
TEST(CPoseJudge, IsNotOutvotedByATableThatAPartHasSlidOver)
{
    const CTrafo first = seenFrom(35, 0);
    const CTrafo second = seenFrom(30, 40);
    const auto fix = support::ToVotingScan(scanFrom(first));
    const auto flt = support::ToVotingScan(scanFrom(second));
    const CPoseJudge judge(*fix.view, *flt.view);
    ASSERT_TRUE(judge.GetSupportPlane());
    EXPECT_GT(Dot(judge.GetSupportPlane()->normal, first.Rotate({0, 0, 1})), 0.9999F);
    const CTrafo truth = first * second.GetInverse(true);
    const PoseVerdict right = judge.Judge(truth);
    EXPECT_TRUE(right) << right.ToString();
    for (const Vector3 along : {Vector3(2, 0, 0), Vector3(0, -2, 0)}) {
        const CTrafo slid = truth.Translate(first.Rotate(along));
        EXPECT_GT(judge.Judge(slid).counts.Contradiction(), verdict::dMaxDoubt) << judge.Judge(slid).ToString();
        const std::vector<CTrafo> both{slid, truth};
        const PairVerdict answer = JudgePoses(judge, both);
        EXPECT_EQ(answer.explanations, std::vector<std::size_t>{1}) << answer.ToString();
    }
}

TEST(FindSupportPlane, FindsTheHeightOfATableAndNoneInAPart)
{
    const auto table = scanFrom(seenFrom(35, 20));
    const ScanSampling sampling{.dSpacing = 0.5, .dNoise = 0.02};
    const auto plane = FindSupportPlane(table.points, table.normals, sampling, 0.65);
    ASSERT_TRUE(plane);
    const Vector3 normal = seenFrom(35, 20).Rotate({0, 0, 1});
    EXPECT_GT(Dot(plane->normal, normal), 0.99999F);
    EXPECT_NEAR(plane->offset, 0.0F, 0.01F);
    EXPECT_TRUE(plane->Holds(plane->normal * (plane->offset + 0.9F), normal));
    EXPECT_FALSE(plane->Holds(plane->normal * (plane->offset + 1.2F), normal));
    EXPECT_FALSE(plane->Holds(plane->normal * plane->offset, Vector3(0, 1, 0)));
    const auto part = support::ScanOfBoxes(support::StepPart(), seenFrom(35, 20), 0.6F, 0.02F);
    EXPECT_FALSE(FindSupportPlane(part.points, part.normals, sampling, 0.5));
    EXPECT_FALSE(FindSupportPlane({}, {}, sampling, 0.5));
}

// Along any ray a plane has a raster: the walls of the part know better, and are few.
TEST(FindViewingRay, IsNotMisledByATableUnderAPart)
{
    const CTrafo turn = support::ExactTurn({0.8F, -0.6F, 0}, 25 * degree);
    for (const double angle : {0.0, 50.0, 130.0, 220.0}) {
        const auto scan = support::ToVotingScan(scanFrom(seenFrom(30, angle)), turn);
        const ViewingRay ray = scan.view->GetRay();
        EXPECT_EQ(ray.eKind, ERay::Found);
        EXPECT_GT(Dot(ray.direction, turn.Rotate({0, 0, 1})), 0.9962F) << angle; // 5 degrees
    }
}

} // namespace
