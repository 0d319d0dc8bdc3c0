// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cvotepreregistration.h"

#include "tests/preregistration/boxscans.h"
#include "tests/support/matchers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numbers>
#include <stdexcept>

namespace {

using prereg::CTrafo;
using prereg::CVotePreRegistration;
using support::Vector3;

constexpr float degree = std::numbers::pi_v<float> / 180.0F;

/// Two views of the part, the second one carried off, and the pose that brings it home.
struct Views
{
    prereg::VotingScan fix;
    prereg::VotingScan flt;
    CTrafo truth;
};

Views viewsOfPart()
{
    const CTrafo first(Vector3(1.0F, 0.4F, 0.2F), 35.0F * degree, {});
    const CTrafo second = CTrafo(Vector3(0.3F, 1.0F, -0.2F), 60.0F * degree, {}) * first;
    std::mt19937 rng(47110815);
    const CTrafo carried = support::RandomPose(rng, 100.0F);
    return {support::ToVotingScan(support::ScanOfBoxes(support::StepPart(), first, 0.6F, 0.02F)),
            support::ToVotingScan(support::ScanOfBoxes(support::StepPart(), second, 0.6F, 0.02F), carried),
            first * (carried * second).GetInverse(true)};
}

/// Place of the first candidate near the truth; the number of candidates when there is none.
std::size_t placeOf(const CVotePreRegistration& vote, const CTrafo& truth)
{
    const auto& all = vote.GetCandidates();
    const Vector3 middle = vote.GetFltPointSet().GetPoint(0);
    const auto isRight = [&](const auto& candidate) {
        return candidate.pose.GetRotationDistance(truth) < 2.0F * degree &&
               (candidate.pose * middle - truth * middle).Length() < 1.2F;
    };
    return static_cast<std::size_t>(std::find_if(all.begin(), all.end(), isRight) - all.begin());
}

// Nothing but planes: features tell no spot from another. Either source of rotations finds it by itself.
TEST(CVotePreRegistration, FindsAPartOfPlanesFromEvenRotationsAndFromDirections)
{
    const Views views = viewsOfPart();
    prereg::ConfigurationVote even;
    even.uiNumDirectedRotations = 0;
    prereg::ConfigurationVote directed;
    directed.uiNumRotations = 0;
    for (const auto& config : {even, directed, prereg::ConfigurationVote()}) {
        CVotePreRegistration vote(views.fix, views.flt, config);
        ASSERT_TRUE(vote.Compute({}));
        EXPECT_LT(placeOf(vote, views.truth), 10U)
            << config.uiNumRotations << " even, " << config.uiNumDirectedRotations << " directed rotations";
        EXPECT_LE(vote.GetCandidates().size(), config.uiMaxCandidates);
    }
}

TEST(CVotePreRegistration, FindsViewsOfARoundBody)
{
    const auto fix = support::ToVotingScan(support::BumpyBall({0, 0, 1}, 1.2F, 15000, 1));
    std::mt19937 rng(1);
    const CTrafo carried = support::RandomPose(rng, 50.0F);
    const auto flt = support::ToVotingScan(support::BumpyBall({0, 0.7F, 0.7F}, 1.2F, 15000, 2), carried);
    CVotePreRegistration vote(fix, flt, {});
    ASSERT_TRUE(vote.Compute({}));
    EXPECT_LT(placeOf(vote, carried.GetInverse(true)), 10U);
}

// A model was not seen from one side: it has images from all sides, and nothing contradicts there.
TEST(CVotePreRegistration, FindsAScanOnAModel)
{
    support::Surface model;
    for (const float turn : {0.0F, 90.0F, 180.0F, 270.0F}) {
        for (const float tilt : {55.0F, -55.0F}) {
            const CTrafo pose =
                CTrafo(Vector3(1, 0, 0), tilt * degree, {}) * CTrafo(Vector3(0, 0, 1), (turn + 40.0F) * degree, {});
            const auto scan = support::ScanOfBoxes(support::StepPart(), pose, 0.9F, 0.0F);
            const CTrafo home = pose.GetInverse(true);
            for (std::size_t i = 0; i < scan.points.size(); ++i) {
                model.points.push_back(home * scan.points[i]);
                model.normals.push_back(home.Rotate(scan.normals[i]));
            }
        }
    }
    prereg::SensorKnowledge isModel;
    isModel.isSurface = true;
    const CTrafo pose(Vector3(1.0F, 0.4F, 0.2F), 35.0F * degree, {});
    CVotePreRegistration vote(support::ToVotingScan(model, {}, isModel),
                              support::ToVotingScan(support::ScanOfBoxes(support::StepPart(), pose, 0.6F, 0.02F)), {});
    ASSERT_TRUE(vote.Compute({}));
    EXPECT_LT(placeOf(vote, pose.GetInverse(true)), 10U);
}

TEST(CVotePreRegistration, GivesTheSameBytesForAnyNumberOfTasks)
{
    const Views views = viewsOfPart();
    const auto found = [&](unsigned numTasks) {
        prereg::ConfigurationVote config;
        config.uiNumRotations = 400;
        config.uiNumTasks = numTasks;
        CVotePreRegistration vote(views.fix, views.flt, config);
        vote.Compute({});
        return vote.GetCandidates();
    };
    const auto one = found(1);
    ASSERT_FALSE(one.empty());
    for (const unsigned numTasks : {2U, 8U}) {
        const auto many = found(numTasks);
        ASSERT_EQ(many.size(), one.size());
        for (std::size_t i = 0; i < one.size(); ++i) {
            EXPECT_TRUE(many[i].pose == one[i].pose);
            EXPECT_EQ(many[i].score, one[i].score);
            EXPECT_EQ(many[i].rmse, one[i].rmse);
        }
    }
}

TEST(CVotePreRegistration, StopsWhenAskedToAndKeepsWhatItHad)
{
    const Views views = viewsOfPart();
    CVotePreRegistration vote(views.fix, views.flt, {});
    int asked = 0;
    EXPECT_FALSE(vote.Compute([&] { return ++asked == 3; }));
    EXPECT_EQ(asked, 3);
    ASSERT_TRUE(vote.InjectTrafo(views.truth));
    EXPECT_TRUE(vote.Compute([] { return true; }));
    EXPECT_EQ(vote.GetCandidates().size(), 1U);
}

TEST(CVotePreRegistration, QueuesAnInjectedPoseByItsScore)
{
    const Views views = viewsOfPart();
    prereg::ConfigurationVote config;
    config.uiNumRotations = 0;
    config.uiNumDirectedRotations = 20;
    CVotePreRegistration vote(views.fix, views.flt, config);
    ASSERT_TRUE(vote.Compute({}));
    const auto number = vote.GetCandidates().size();
    EXPECT_FALSE(vote.InjectTrafo(views.truth.Translate({1000, 0, 0})));
    EXPECT_FALSE(vote.InjectTrafo(CTrafo::Invalid()));
    const CTrafo near = CTrafo(Vector3(0, 0, 1), 2.0F * degree, {}) * views.truth;
    const auto injected = vote.InjectTrafo(near);
    ASSERT_TRUE(injected);
    EXPECT_LT(injected.GetTrafo().GetRotationDistance(views.truth), 0.5F * degree);
    EXPECT_EQ(vote.GetCandidates().size(), number + 1);
    EXPECT_TRUE(std::is_sorted(vote.GetCandidates().begin(), vote.GetCandidates().end(),
                               [](const auto& a, const auto& b) { return a.score > b.score; }));
    std::size_t queued = 0;
    for (; vote.HasMoreResults(); ++queued) EXPECT_TRUE(vote.GetNextResult());
    EXPECT_EQ(queued, number + 1);
    EXPECT_FALSE(vote.GetNextResult());
}

TEST(CVotePreRegistration, FindsNothingInScansOfAPointAndRefusesMissingOnes)
{
    const auto scan = support::ToVotingScan(support::BumpySurface(500, 1));
    const auto point = support::ToVotingScan({{{1, 2, 3}}, {{0, 0, 1}}});
    for (const auto& [fix, flt] : {std::pair(scan, point), std::pair(point, scan), std::pair(point, point)}) {
        CVotePreRegistration vote(fix, flt, {});
        EXPECT_FALSE(vote.Compute({}));
        EXPECT_FALSE(vote.InjectTrafo({}));
    }
    EXPECT_THROW(CVotePreRegistration(scan, {scan.set, nullptr}, {}), std::invalid_argument);
}

} // namespace
