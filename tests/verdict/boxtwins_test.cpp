// SPDX-License-Identifier: MIT
#include "zorvan/verdict/boxtwins.h"

#include "tests/preregistration/boxscans.h"
#include "tests/verdict/sphereobject.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace prereg;
using support::Boxes;
using support::Vector3;

constexpr float fPi = 3.14159265F;

CTrafo turnAbout(const Vector3& axis, float angle, const Vector3& through)
{
    const CTrafo turn(axis, angle, Vector3());
    return turn.Translate(through - turn.Rotate(through));
}

/// The object looked at from somewhere: up from the x axis by 35 degrees, after a turn about z.
CTrafo seenFrom(float degrees)
{
    return CTrafo({0, 1, 0}, -55.0F * fPi / 180, Vector3()) * CTrafo({0, 0, 1}, -degrees * fPi / 180, Vector3());
}

struct Case
{
    const char* name;
    Boxes object;
    float first;  ///< where it is seen from
    float second; ///< and again
    CTrafo turn;  ///< of the object; carries the truth into the pose that is asked about
};

TEST(FindBoxTwins, LeadBackToTheTruthFromBoxesThatWereFoldedOntoTheirOtherSide)
{
    // A knob on each of two sides, which the views of the other side do not see.
    const Boxes housing{{{0, 0, 0}, {60, 40, 30}}, {{60, 8, 5}, {63, 14, 9}}, {{-3, 25, 5}, {0, 30, 9}}};
    const Boxes onTable{{{-300, -300, -5}, {300, 300, 0}}, {{10, 0, 0}, {50, 30, 20}}};
    const Vector3 z(0, 0, 1);
    for (const Case& c : {Case{"sides", housing, 20, 200, turnAbout(z, fPi, {30, 20, 15})},
                          Case{"square", {{{10, 0, 0}, {50, 40, 30}}}, 30, 120, turnAbout(z, 0.5F * fPi, {30, 20, 15})},
                          Case{"table", onTable, 30, 100, turnAbout(z, fPi, {30, 15, 10})}}) {
        const auto fixSet = support::PointSet(support::ScanOfBoxes(c.object, seenFrom(c.first), 0.5F, 0.01F));
        const auto fltSet = support::PointSet(support::ScanOfBoxes(c.object, seenFrom(c.second), 0.5F, 0.01F));
        const CScanView fix(fixSet);
        const CScanView flt(fltSet);
        const CPoseJudge judge(fix, flt);
        const CTrafo truth = seenFrom(c.first) * seenFrom(c.second).GetInverse(true);
        const CTrafo folded = seenFrom(c.first) * c.turn * seenFrom(c.second).GetInverse(true);
        const auto twins = FindBoxTwins(judge, folded, judge.Place(folded));
        const auto isTruth = [&](const PoseTwin& twin) {
            return judge.Distance(twin.pose, truth) < 6.0 * judge.GetPixelSize() && !twin.isTold;
        };
        EXPECT_TRUE(std::any_of(twins.begin(), twins.end(), isTruth)) << c.name << ": " << twins.size() << " twins";
    }
}

TEST(FindBoxTwins, DoNotShakeWhatNoBoxExplains)
{
    const auto fixSet = support::PointSet(support::ScanSpheres(support::Cluster(), CTrafo(), 0.25F, 0.02F, 1));
    const CTrafo turn({0, 1, 0}, 0.5F, Vector3());
    const auto fltSet = support::PointSet(support::ScanSpheres(support::Cluster(), turn, 0.25F, 0.02F, 2));
    const CScanView fix(fixSet);
    const CScanView flt(fltSet);
    const CPoseJudge judge(fix, flt);
    const CTrafo pose = turn.GetInverse(true);
    for (const PoseTwin& twin : FindBoxTwins(judge, pose, judge.Place(pose))) EXPECT_TRUE(twin.isTold);
    const CScanView model(fltSet, {.isSurface = true});
    EXPECT_TRUE(FindBoxTwins(CPoseJudge(fix, model), pose, judge.Place(pose)).empty());
}

} // namespace
