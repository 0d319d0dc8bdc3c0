// SPDX-License-Identifier: MIT
#include "zorvan/verdict/posecovariance.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <random>

namespace {

using prereg::CPointSet;
using prereg::CTrafo;
using prereg::EstimatePose;
using prereg::PoseEstimate;
using prereg::ScanSampling;
using Vector3 = kdtree::Vector<3>;

constexpr double dSpacing = 0.5;

/// Heights over a square of twice `half` mm with noise along z, and normals with the noise that fitting leaves.
struct Sheet
{
    prereg::Vectors points;
    prereg::Vectors normals;

    Sheet(const std::function<double(double, double)>& height, double noise, double offset, std::mt19937& rng,
          double half = 10)
    {
        std::normal_distribution<double> normal;
        constexpr double h = 1e-3;
        for (double x = -half + offset; x < half; x += dSpacing) {
            for (double y = -half + offset; y < half; y += dSpacing) {
                const double dx =
                    (height(x + h, y) - height(x - h, y)) / (2 * h) + 0.3 * noise / dSpacing * normal(rng);
                const double dy =
                    (height(x, y + h) - height(x, y - h)) / (2 * h) + 0.3 * noise / dSpacing * normal(rng);
                const double length = std::sqrt(1 + dx * dx + dy * dy);
                const auto f = [](double v) { return static_cast<float>(v); };
                points.emplace_back(f(x), f(y), f(height(x, y) + noise * normal(rng)));
                normals.emplace_back(f(-dx / length), f(-dy / length), f(1 / length));
            }
        }
    }
};

PoseEstimate estimate(const std::function<double(double, double)>& height, double noise, std::mt19937& rng,
                      double half = 10)
{
    const Sheet a(height, noise, 0.0, rng, half);
    const Sheet b(height, noise, 0.2, rng, half);
    const CPointSet fix(a.points.data(), a.normals.data(), a.points.size());
    const CPointSet flt(b.points.data(), b.normals.data(), b.points.size());
    const ScanSampling sampling{dSpacing, noise};
    return EstimatePose(fix, flt, CTrafo(Vector3(0.002F, -0.003F, 0.002F), Vector3(0.05F, 0.1F, -0.08F)), sampling,
                        sampling);
}

double hills(double x, double y)
{
    return 1.5 * std::sin(0.55 * x) * std::cos(0.5 * y) + 0.8 * std::sin(0.4 * x + 0.6 * y);
}

TEST(EstimatePose, CoversTheErrorsOfRepeatedScans)
{
    constexpr double dNoise = 0.01; // the table in benchmarks/README.md has others
    constexpr int iRuns = 60;
    // Some fifty patches; and sixteen, so that the deviations themselves are known to a fifth.
    for (const double half : {10.0, 5.0}) {
        std::mt19937 rng(47110815);
        int within1 = 0;
        int within2 = 0;
        for (int i = 0; i < iRuns; ++i) {
            const PoseEstimate found = estimate(hills, dNoise, rng, half);
            ASSERT_TRUE(found);
            ASSERT_TRUE(found.free.empty()) << found.ToString();
            const auto deviations = found.GetStdDevs();
            const auto q = found.pose.GetQuaternion();
            const Vector3 shift = found.pose * found.centre - found.centre;
            const std::array<double, 6> errors{2 * q.x, 2 * q.y, 2 * q.z, shift.x, shift.y, shift.z};
            for (std::size_t k = 0; k < 6; ++k) {
                within1 += std::abs(errors[k]) < deviations[k];
                within2 += std::abs(errors[k]) < 2 * deviations[k];
            }
        }
        // 68.3 and 95.4 % of a normal error; 360 of them, of which those of one run hang together.
        EXPECT_NEAR(within1, 0.683 * 6 * iRuns, 0.08 * 6 * iRuns) << half;
        EXPECT_GT(within2, 0.89 * 6 * iRuns) << half;
        EXPECT_LT(within2, 0.99 * 6 * iRuns) << half;
    }
}

TEST(EstimatePose, SaysWhatTheSurfaceDoesNotHold)
{
    std::mt19937 rng(47110815);
    const PoseEstimate cone = estimate([](double x, double y) { return 0.5 * std::hypot(1, x, y); }, 0.02, rng);
    ASSERT_EQ(cone.free.size(), 1U) << cone.ToString();
    EXPECT_TRUE(cone.free[0].isTurn);
    EXPECT_GT(std::abs(cone.free[0].axis.z), 0.95F);
    EXPECT_GT(cone.free[0].dMoves, 2 * dSpacing);
    EXPECT_EQ(cone.ToString().rfind("free to turn about the axis (", 0), 0U) << cone.ToString();

    // Nearly a ball, which rolls as well.
    const PoseEstimate bowl = estimate([](double x, double y) { return 0.02 * (x * x + y * y); }, 0.02, rng);
    EXPECT_EQ(bowl.free.size(), 3U) << bowl.ToString();

    const PoseEstimate groove = estimate([](double x, double) { return 2 * std::sin(0.5 * x); }, 0.02, rng);
    ASSERT_EQ(groove.free.size(), 1U) << groove.ToString();
    EXPECT_FALSE(groove.free[0].isTurn);
    EXPECT_GT(std::abs(groove.free[0].axis.y), 0.95F);

    EXPECT_EQ(estimate([](double, double) { return 0.0; }, 0.02, rng).free.size(), 3U) << "a plane holds three of six";
    EXPECT_EQ(estimate(hills, 0.02, rng).ToString(), "the surfaces hold the pose in all directions");
}

TEST(EstimatePose, TakesLeaningNormalsAtAnEdgeForNoHold)
{
    // A plate with a hole: normals fitted beside it lean outwards, by what the points there happen to be.
    std::mt19937 rng(47110815);
    std::uniform_real_distribution<float> leaning(0.0F, 0.15F);
    const auto leaningAtTheHole = [&](Sheet sheet) {
        for (std::size_t i = 0; i < sheet.points.size(); ++i) {
            const Vector3 outward(sheet.points[i].x, sheet.points[i].y, 0);
            if (std::abs(outward.Length() - 4.0F) > 0.6F) continue;
            const Vector3 normal = sheet.normals[i] + outward * (leaning(rng) / outward.Length());
            sheet.normals[i] = normal * (1.0F / normal.Length());
        }
        return sheet;
    };
    constexpr double dNoise = 0.003;
    const Vector3 along(0.2F, 0.3F, 0);
    for (int run = 0; run < 10; ++run) {
        const Sheet a = leaningAtTheHole({[](double, double) { return 0.0; }, dNoise, 0.0, rng});
        const Sheet b = leaningAtTheHole({[](double, double) { return 0.0; }, dNoise, 0.2, rng});
        const CPointSet fix(a.points.data(), a.normals.data(), a.points.size());
        const CPointSet flt(b.points.data(), b.normals.data(), b.points.size());
        const ScanSampling sampling{dSpacing, dNoise};
        const PoseEstimate found =
            EstimatePose(fix, flt, CTrafo(Vector3(0.002F, 0.001F, 0), along), sampling, sampling);
        ASSERT_TRUE(found);
        ASSERT_EQ(found.free.size(), 3U) << found.ToString();
        for (const prereg::FreeMotion& motion : found.free) EXPECT_GT(motion.dMoves, 2 * dSpacing) << found.ToString();
        const Vector3 moved = found.pose * found.centre - found.centre;
        EXPECT_LT((moved - along).Length(), 0.02F) << "what nothing holds stays";
        EXPECT_LT(std::abs(moved.z), 0.001F);
    }
}

TEST(EstimatePose, GrowsWithTheNoiseAndCountsNeighboursThatHangTogether)
{
    std::mt19937 rng(47110815);
    const PoseEstimate fine = estimate(hills, 0.01, rng);
    const PoseEstimate rough = estimate(hills, 0.04, rng);
    EXPECT_NEAR(rough.GetStdDevs()[5] / fine.GetStdDevs()[5], 4.0, 1.2);
    EXPECT_NEAR(fine.dResidual, 0.01 * std::sqrt(2.0), 0.004);
    EXPECT_LE(fine.dEffectivePairs, static_cast<double>(fine.uiPairs));

    // Every point four times over is no more knowledge.
    Sheet a(hills, 0.02, 0.0, rng);
    Sheet b(hills, 0.02, 0.2, rng);
    const ScanSampling sampling{dSpacing, 0.02};
    const CPointSet fix(a.points.data(), a.normals.data(), a.points.size());
    const auto deviationOf = [&](int times) {
        prereg::Vectors points;
        prereg::Vectors normals;
        for (int i = 0; i < times; ++i) {
            points.insert(points.end(), b.points.begin(), b.points.end());
            normals.insert(normals.end(), b.normals.begin(), b.normals.end());
        }
        const CPointSet flt(points.data(), normals.data(), points.size());
        return EstimatePose(fix, flt, CTrafo::Identity(), sampling, sampling).GetStdDevs()[5];
    };
    EXPECT_NEAR(deviationOf(4) / deviationOf(1), 1.0, 0.01);
}

TEST(EstimatePose, SaysNothingWithoutMatches)
{
    std::mt19937 rng(1);
    const Sheet a(hills, 0.01, 0.0, rng);
    const CPointSet set(a.points.data(), a.normals.data(), a.points.size());
    const ScanSampling sampling{dSpacing, 0.01};
    const CTrafo away(Vector3(0, 0, 0), Vector3(500, 0, 0));
    EXPECT_FALSE(EstimatePose(set, set, away, sampling, sampling));
    EXPECT_FALSE(EstimatePose(set, set, CTrafo::Invalid(), sampling, sampling));
    EXPECT_FALSE(EstimatePose(set, set, CTrafo::Identity(), {}, {}));
    EXPECT_FALSE(EstimatePose(set, set, away, sampling, sampling).ToString().empty());
}

TEST(SettlePose, LeadsBackFromWhereCurvedSurfaceHardlyTells)
{
    // Shallow swells: some degrees off all points still lie within a spacing of the other surface.
    const auto shell = [](double x, double y) {
        const double swells = 0.1 * std::sin(0.4 * x + 0.25 * y) + 0.07 * std::cos(0.45 * y - 0.2 * x);
        return swells - 0.006 * x * x - 0.009 * y * y;
    };
    std::mt19937 rng(7);
    const Sheet a(shell, 0.01, 0.0, rng);
    const Sheet b(shell, 0.01, 0.2, rng);
    const CPointSet fix(a.points.data(), a.normals.data(), a.points.size());
    const CPointSet flt(b.points.data(), b.normals.data(), b.points.size());
    const ScanSampling sampling{dSpacing, 0.01};
    const CTrafo start(Vector3(0, 0, 1), 0.14F, Vector3(0.5F, -0.3F, 0.05F)); // 8 degrees: two spacings at the rim
    const CTrafo settled = prereg::SettlePose(fix, flt, start, sampling, sampling);
    ASSERT_TRUE(settled);
    EXPECT_LT(static_cast<double>(settled.GetRotationDistance(CTrafo::Identity())), 0.0016); // an ICP: 0.0043
    EXPECT_LT(static_cast<double>(settled.GetTranslation().Length()), 0.03);
    const CTrafo away(Vector3(), Vector3(0, 0, 50));
    EXPECT_FALSE(prereg::SettlePose(fix, flt, away, sampling, sampling));
    EXPECT_FALSE(prereg::SettlePose(fix, flt, CTrafo::Invalid(), sampling, sampling));
}

} // namespace
