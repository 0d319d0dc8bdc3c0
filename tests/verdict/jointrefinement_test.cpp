// SPDX-License-Identifier: MIT
#include "zorvan/verdict/jointrefinement.h"

#include "tests/support/clouds.h"
#include "zorvan/runtime/cjobscheduler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace prereg;
using support::Vector3;

constexpr double dSpacing = 0.5;
constexpr double dNoise = 0.02;

/// A rectangle of points in a plane, with noise along its normal and of its normals.
void addFace(const Vector3& corner, const Vector3& along, const Vector3& across, const Vector3& normal,
             std::mt19937& rng, Vectors& points, Vectors& normals)
{
    std::normal_distribution<float> noise(0.0F, static_cast<float>(dNoise));
    std::uniform_real_distribution<float> share(0.0F, 1.0F);
    const auto count = static_cast<int>(along.Length() * across.Length() / (dSpacing * dSpacing));
    for (int i = 0; i < count; ++i) {
        points.push_back(corner + along * share(rng) + across * share(rng) + normal * noise(rng));
        const Vector3 lean = normal + Vector3(noise(rng), noise(rng), noise(rng));
        normals.push_back(lean * (1.0F / lean.Length()));
    }
}

/// A view of a bar along x: its top and one side. Nothing holds a shift along it.
std::shared_ptr<const CPointSet> viewOfBar(std::mt19937& rng)
{
    Vectors points;
    Vectors normals;
    addFace({-20, -5, 0}, {40, 0, 0}, {0, 10, 0}, {0, 0, 1}, rng, points, normals);
    addFace({-20, -5, 0}, {40, 0, 0}, {0, 0, -10}, {0, -1, 0}, rng, points, normals);
    return std::make_shared<const CPointSet>(points.data(), normals.data(), points.size());
}

/// Three views of the bar, of which the truth is that all lie in one frame, each turned and shifted a little.
struct Bar
{
    std::vector<std::shared_ptr<const CPointSet>> sets;
    std::vector<ScanInFrame> scans;

    Bar()
    {
        std::mt19937 rng(47110815);
        for (const float k : {0.0F, 1.0F, -0.5F}) {
            sets.push_back(viewOfBar(rng));
            const CTrafo turn = support::ExactTurn({0.3F, 1.0F, -0.4F}, 0.003 * static_cast<double>(k));
            scans.push_back({sets.back().get(), turn.Translate({0.3F * k, -0.08F * k, 0.1F * k}), {dSpacing, dNoise}});
        }
    }
};

TEST(RefineJointly, MeetsWhereSurfacesHoldAndStaysWhereTheyDoNot)
{
    const Bar bar;
    const std::vector<CTrafo> poses = RefineJointly(bar.scans);
    ASSERT_EQ(poses.size(), bar.scans.size());
    EXPECT_EQ(poses[0], bar.scans[0].pose) << "the first stays";
    for (std::size_t i = 1; i < poses.size(); ++i) {
        // Two thousand points of each face know a shift to noise / sqrt(2000), a turn to that over 10 mm.
        EXPECT_LT(poses[i].GetRotationDistance(CTrafo()), 3e-4F) << i;
        EXPECT_NEAR(poses[i].GetTranslation().y, 0.0F, 0.003F) << i;
        EXPECT_NEAR(poses[i].GetTranslation().z, 0.0F, 0.003F) << i;
        // Along the bar a part of the way to wherever leaning normals would carry it.
        EXPECT_NEAR(poses[i].GetTranslation().x, bar.scans[i].pose.GetTranslation().x, 0.1F) << i;
    }
    Zorvan::CJobScheduler scheduler(3);
    EXPECT_EQ(RefineJointly(bar.scans, 0, scheduler.CreateJobGroup({}, {})), poses) << "with three threads";
}

TEST(RefineJointly, RefusesAScanWithoutPose)
{
    Bar bar;
    bar.scans[1].pose = CTrafo::Invalid();
    EXPECT_THROW((void)RefineJointly(bar.scans), std::invalid_argument);
    EXPECT_TRUE(RefineJointly({}).empty());
}

// Leaning normals feign that a shift along the bar is known to a quarter of the spacing.
TEST(CJointCovariance, DoesNotKnowWhatMaySlide)
{
    const Bar bar;
    const CJointCovariance joint(bar.scans, 0, true);
    for (const std::size_t scan : {1U, 2U}) {
        EXPECT_GT(std::sqrt(joint.Of(scan)[3][3]), 0.5 * dSpacing) << "along the bar";
        EXPECT_LT(std::sqrt(joint.Of(scan)[4][4]), 0.1 * dSpacing);
        EXPECT_LT(std::sqrt(joint.Of(scan)[5][5]), 0.1 * dSpacing);
    }
    EXPECT_LT(std::sqrt(CJointCovariance(bar.scans).Of(1)[3][3]), 0.5 * std::sqrt(joint.Of(1)[3][3]))
        << "were there no faces";
}

} // namespace
