// SPDX-License-Identifier: MIT
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/verdict/jointcovariance.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace prereg;
using Vector3 = kdtree::Vector<3>;

constexpr double dSpacing = 0.5;
constexpr unsigned uiSamples = 1000;
constexpr double dStep = 12.0; ///< between scans of 20 mm

double hills(double x, double y)
{
    return 1.5 * std::sin(0.55 * x) * std::cos(0.5 * y) + 0.8 * std::sin(0.4 * x + 0.6 * y);
}

/// A square of the hills about (middle, 0), in common coordinates, on a raster of its own.
std::shared_ptr<const CPointSet> scanOfHills(double middle, double noise, std::mt19937& rng)
{
    std::normal_distribution<double> normal;
    Vectors points;
    Vectors normals;
    const auto f = [](double v) { return static_cast<float>(v); };
    const double offset = 0.1 * middle;
    constexpr double h = 1e-3;
    for (double x = middle - 10 + offset; x < middle + 10; x += dSpacing) {
        for (double y = -10 + 0.3 * offset; y < 10; y += dSpacing) {
            const double dx = (hills(x + h, y) - hills(x - h, y)) / (2 * h) + 0.3 * noise / dSpacing * normal(rng);
            const double dy = (hills(x, y + h) - hills(x, y - h)) / (2 * h) + 0.3 * noise / dSpacing * normal(rng);
            const double length = std::sqrt(1 + dx * dx + dy * dy);
            points.emplace_back(f(x), f(y), f(hills(x, y) + noise * normal(rng)));
            normals.emplace_back(f(-dx / length), f(-dy / length), f(1 / length));
        }
    }
    return std::make_shared<const CPointSet>(points.data(), normals.data(), points.size());
}

/// Scans in a row, each overlapping with the next one, as an optimisation leaves them.
struct Row
{
    std::vector<std::shared_ptr<const CPointSet>> sets;
    std::vector<ScanInFrame> scans;

    Row(std::size_t count, double noise, std::mt19937& rng, double step = dStep)
    {
        ICPPointSetsWithPoses start;
        for (std::size_t i = 0; i < count; ++i) {
            sets.push_back(scanOfHills(step * static_cast<double>(i), noise, rng));
            start.emplace_back(std::make_shared<ICPPointSet>(sets.back()), CTrafo());
        }
        ConfigurationICP config;
        config.uiNumSamples = uiSamples;
        config.dMaxRMSE = 10 * noise;
        std::mt19937 engine(47110815);
        const auto [results, classes] =
            ComputeICPRegistration(config, engine, start, nullptr, 3.0, false, Zorvan::Hooks::None(), EDraws::Shared);
        EXPECT_EQ(classes.GetNumClasses(), 1U);
        const CTrafo back = results[0].GetTrafo().GetInverse(true);
        for (std::size_t i = 0; i < count; ++i)
            scans.push_back({sets[i].get(), back * results[i].GetTrafo(), {dSpacing, noise}});
    }
};

/// Squared errors of a scan over their variances, summed over the six numbers of its pose: the truth is the identity.
double squaresOf(const Row& row, const CJointCovariance& joint, std::size_t scan, int& within2)
{
    const Matrix6 covariance = joint.Of(scan);
    const auto q = row.scans[scan].pose.GetQuaternion();
    const Vector3 shift = row.scans[scan].pose * joint.CentreOf(scan) - joint.CentreOf(scan);
    const std::array<double, 6> errors{2 * q.x, 2 * q.y, 2 * q.z, shift.x, shift.y, shift.z};
    double sum = 0.0;
    for (std::size_t k = 0; k < 6; ++k) {
        sum += errors[k] * errors[k] / covariance[k][k];
        within2 += errors[k] * errors[k] < 4 * covariance[k][k];
    }
    return sum;
}

TEST(CJointCovariance, CoversTheErrorsOfRepeatedScans)
{
    std::mt19937 rng(47110815);
    constexpr int iRuns = 40;
    constexpr std::size_t uiScans = 4;
    std::array<double, uiScans> squares{};
    double distances = 0.0;
    int within2 = 0;
    for (int run = 0; run < iRuns; ++run) {
        const Row row(uiScans, 0.02, rng);
        const CJointCovariance joint(row.scans, uiSamples);
        for (std::size_t i = 1; i < uiScans; ++i) {
            squares[i] += squaresOf(row, joint, i, within2) / (6 * iRuns);
        }
        const Vector3 a(-5, 3, 0);
        const Vector3 b(static_cast<float>(dStep * (uiScans - 1)), -4, 0);
        const double error =
            static_cast<double>((row.scans[0].pose * a - row.scans[3].pose * b).Length() - (a - b).Length());
        const double deviation = joint.DistanceDeviation(0, a, 3, b);
        distances += error * error / (deviation * deviation) / iRuns;
    }
    // 1 were they exact; of 40 runs, of which the six numbers of a scan hang together, within 0.6 to 1.5.
    for (std::size_t i = 1; i < uiScans; ++i) EXPECT_NEAR(squares[i], 1.0, 0.5) << i;
    EXPECT_NEAR(distances, 1.0, 0.6);
    EXPECT_GT(within2, 0.89 * 6 * (uiScans - 1) * iRuns);
}

// Pairs of many scans that share their draws: each point counts about once. Were all draws of a scan the same points,
// as those of few scans are, the errors would be twice as large as it is told here.
TEST(CJointCovariance, CoversTheErrorsOfManyScansOfOnePlace)
{
    std::mt19937 rng(47110815);
    double squares = 0.0;
    int within2 = 0;
    constexpr int iRuns = 4;
    constexpr std::size_t uiScans = 36;
    for (int run = 0; run < iRuns; ++run) {
        const Row row(uiScans, 0.02, rng, 0.4);
        const CJointCovariance joint(row.scans, uiSamples);
        for (std::size_t i = 1; i < uiScans; ++i)
            squares += squaresOf(row, joint, i, within2) / (6 * (uiScans - 1) * iRuns);
    }
    EXPECT_NEAR(squares, 1.0, 0.5);
    EXPECT_GT(within2, 0.88 * 6 * (uiScans - 1) * iRuns);
}

TEST(CJointCovariance, GrowsAlongARowAndDoesNotDependOnTheFrame)
{
    std::mt19937 rng(47110815);
    Row row(4, 0.02, rng);
    const CJointCovariance joint(row.scans, uiSamples);
    for (std::size_t i = 1; i < 4; ++i) EXPECT_GT(joint.Of(i)[5][5], joint.Of(i - 1)[5][5]) << i;
    EXPECT_EQ(joint.DistanceDeviation(2, {0, 0, 0}, 2, {1, 0, 0}), 0.0);

    const double before = joint.DistanceDeviation(1, {10, 0, 0}, 3, {36, 5, 0});
    const CTrafo turn(Vector3(0.4F, -0.7F, 1.1F), Vector3(30, -20, 50));
    for (ScanInFrame& scan : row.scans) scan.pose = turn * scan.pose;
    std::swap(row.scans[0], row.scans[1]); // another scan stays
    EXPECT_NEAR(CJointCovariance(row.scans, uiSamples).DistanceDeviation(0, {10, 0, 0}, 3, {36, 5, 0}), before,
                0.1 * before);
}

TEST(CJointCovariance, KnowsNothingOfAScanThatTouchesNoOther)
{
    std::mt19937 rng(47110815);
    Row row(2, 0.02, rng);
    const auto far = scanOfHills(60, 0.02, rng);
    row.scans.push_back({far.get(), CTrafo(), {dSpacing, 0.02}});
    const CJointCovariance joint(row.scans, uiSamples);
    EXPECT_TRUE(joint.IsKnown(1));
    EXPECT_FALSE(joint.IsKnown(2));
    EXPECT_TRUE(std::isnan(joint.Of(2)[0][0]));
    EXPECT_TRUE(std::isnan(joint.DistanceDeviation(0, {0, 0, 0}, 2, {1, 0, 0})));
    EXPECT_TRUE(std::isfinite(joint.Of(1)[0][0]));
    row.scans[1].pose = CTrafo::Invalid();
    EXPECT_THROW(CJointCovariance{row.scans}, std::invalid_argument);
}

} // namespace
