// SPDX-License-Identifier: MIT
#include "zorvan/numerics/citerativeconefit.h"
#include "zorvan/numerics/citerativecylinderfit.h"
#include "zorvan/numerics/citerativespherefit.h"
#include "zorvan/numerics/primitivegeometry.h"

#include "tests/support/simulatedprimitives.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Zorvan;
using Eigen::Vector3d;
using Eigen::VectorXd;
using support::PrimitiveScan;
using support::ScanSetup;

const Vector3d tilted = Vector3d(0.3, -0.5, 1.0).normalized();

template <typename Fit>
Fit fitOf(const PrimitiveScan& scan)
{
    return Fit(scan.points.data(), scan.normals.data(), scan.points.size());
}

template <typename Fit>
double rmseOf(Fit& fit)
{
    const VectorXd errors = fit.GetObjectiveFunction().Error(fit.GetParams());
    return errors.norm() / std::sqrt(static_cast<double>(errors.size()));
}

/// Standard deviation of the radius, from that of the curvature, the last parameter.
template <typename Fit>
double radiusDeviation(Fit& fit)
{
    const auto last = static_cast<Eigen::Index>(fit.GetNumParams()) - 1;
    const double kappa = fit.GetParams()(last);
    const double variance = fit.GetObjectiveFunction().GetCovariance(fit.GetParams(), 1e-12)(last, last);
    return rmseOf(fit) * std::sqrt(variance) / (kappa * kappa);
}

double distanceToAxis(const Vector3d& p, const Vector3d& place, const Vector3d& axis)
{
    return (p - place).cross(axis).norm();
}

/// Setups that put the origin outside, inside, and on the far side of the axis.
std::vector<ScanSetup> setups()
{
    std::vector<ScanSetup> result;
    for (const double degrees : {360.0, 180.0}) {
        for (const Vector3d& place : {Vector3d(30, 10, -20), Vector3d(0.5, 1, 0.3), Vector3d(-6, -7, 2)})
            result.push_back({place, tilted, degrees, 1500, 0.02});
    }
    return result;
}

// Six standard deviations: one of a billion draws lies outside.
TEST(PrimitiveFits, FindTheSphereWithinItsCovariance)
{
    for (const ScanSetup& setup : setups()) {
        auto fit = fitOf<CIterativeSphereFit>(support::SimulateSphere(setup, 5.0));
        const VectorXd estimate = fit.GetParams();
        ASSERT_LE(fit.Run(), CNLSSolver::SmallStepSize);
        EXPECT_NE(fit.GetParams(), estimate);
        EXPECT_NEAR(rmseOf(fit), setup.noise, 0.1 * setup.noise);
        EXPECT_NEAR(fit.GetRadius(), 5.0, 6.0 * radiusDeviation(fit)) << setup.place.transpose();
        EXPECT_LT((fit.GetCenter() - setup.place).norm(), 0.02) << setup.place.transpose();
        EXPECT_EQ(fit.GetParams()(0) < 0.0, setup.place.norm() < 5.0) << "the origin inside gives a negative distance";
    }
}

TEST(PrimitiveFits, FindTheCylinderWithinItsCovariance)
{
    for (const ScanSetup& setup : setups()) {
        auto fit = fitOf<CIterativeCylinderFit>(support::SimulateCylinder(setup, 5.0, 30.0));
        ASSERT_LE(fit.Run(), CNLSSolver::SmallStepSize);
        EXPECT_NEAR(rmseOf(fit), setup.noise, 0.1 * setup.noise);
        EXPECT_NEAR(fit.GetRadius(), 5.0, 6.0 * radiusDeviation(fit)) << setup.place.transpose();
        EXPECT_LT(distanceToAxis(fit.GetPointOnAxis(), setup.place, tilted), 0.02);
        EXPECT_LT(fit.GetAxisDirection().cross(tilted).norm(), 0.001);
        const auto [lower, upper] = fit.GetLowerAndUpperEnd();
        EXPECT_NEAR((upper - lower).norm(), 30.0, 0.2);
        EXPECT_LT(((lower + upper) / 2.0 - setup.place).norm(), 0.1);
    }
}

TEST(PrimitiveFits, FindTheCone)
{
    for (const ScanSetup& setup : setups()) {
        auto fit = fitOf<CIterativeConeFit>(support::SimulateCone(setup, 5.0, 10.0, 0.4));
        ASSERT_LE(fit.Run(), CNLSSolver::SmallStepSize);
        EXPECT_NEAR(rmseOf(fit), setup.noise, 0.1 * setup.noise);
        EXPECT_NEAR(fit.GetApexAngle(), 0.4, 0.003) << setup.place.transpose();
        EXPECT_LT((fit.GetApex() - (setup.place - 5.0 / std::tan(0.4) * tilted)).norm(), 0.12);
        EXPECT_LT(fit.GetAxisDirection().cross(tilted).norm(), 0.002);
        const auto [a, b] = fit.GetLowerAndUpperRadius();
        EXPECT_NEAR(std::max(a, b), 5.0 + 5.0 * std::tan(0.4), 0.05);
        EXPECT_NEAR(std::min(a, b), 5.0 - 5.0 * std::tan(0.4), 0.05);
    }
}

TEST(PrimitiveFits, ReturnWhatTheyAreGiven)
{
    const PrimitiveScan scan = support::SimulateCone({{30, 10, -20}, tilted}, 5.0, 10.0, 0.4);
    const Vector3d place(3, -8, 5);
    auto sphere = fitOf<CIterativeSphereFit>(scan);
    sphere.SetParams(place, 2.5);
    EXPECT_LT((sphere.GetCenter() - place).norm(), 1e-5);
    EXPECT_DOUBLE_EQ(sphere.GetRadius(), 2.5);

    auto cylinder = fitOf<CIterativeCylinderFit>(scan);
    cylinder.SetParams(place, -3.0 * tilted, 2.5);
    EXPECT_LT(distanceToAxis(cylinder.GetPointOnAxis(), place, tilted), 1e-9);
    EXPECT_NEAR(cylinder.GetAxisDirection().dot(tilted), -1.0, 1e-6);
    EXPECT_DOUBLE_EQ(cylinder.GetRadius(), 2.5);

    auto cone = fitOf<CIterativeConeFit>(scan);
    for (const double halfAngle : {0.4, -0.4}) { // by the near line of the surface, by the far one
        cone.SetParams(place, 2.0 * tilted, -4.0, halfAngle);
        EXPECT_LT((cone.GetApex() - (place - 8.0 * tilted)).norm(), 1e-9);
        EXPECT_NEAR(cone.GetApexAngle(), 0.4, 1e-9);
        EXPECT_LT((cone.GetAxisDirection() - tilted).norm(), 1e-9);
    }
    EXPECT_THROW(cone.SetParams(VectorXd::Ones(5)), std::invalid_argument);
    EXPECT_EQ(cone.GetParams().size(), 6);
    EXPECT_NEAR(cone.GetApexAngle(), 0.4, 1e-9) << "unchanged";
}

// Points 0.01 above and below the surface, where the square of the distance no longer counts.
template <typename Fit>
void expectSignedDistances(const Fit& exact, const PrimitiveScan& scan)
{
    for (const double distance : {-0.01, 0.0, 0.01}) {
        PrimitiveScan off;
        for (std::size_t i = 0; i < scan.points.size(); ++i) {
            const Vector3d p = Eigen::Map<const Eigen::Vector3f>(scan.points[i].data()).cast<double>();
            const Vector3d n = Eigen::Map<const Eigen::Vector3f>(scan.normals[i].data()).cast<double>();
            off.Add(p + distance * n, n);
        }
        Fit fit(off.points.data(), off.normals.data(), off.points.size(), exact.GetParams());
        const VectorXd errors = fit.GetObjectiveFunction().Error(fit.GetParams());
        EXPECT_LT((errors.array() - distance).abs().maxCoeff(), 1.5e-4) << distance;
    }
}

TEST(PrimitiveFits, ErrorsAreSignedDistances)
{
    const ScanSetup setup{{30, 10, -20}, tilted, 360.0, 300};
    const auto sphere = support::SimulateSphere(setup, 5.0);
    auto sphereFit = fitOf<CIterativeSphereFit>(sphere);
    sphereFit.SetParams(setup.place, 5.0);
    expectSignedDistances(sphereFit, sphere);
    const auto cylinder = support::SimulateCylinder(setup, 5.0, 30.0);
    auto cylinderFit = fitOf<CIterativeCylinderFit>(cylinder);
    cylinderFit.SetParams(setup.place, tilted, 5.0);
    expectSignedDistances(cylinderFit, cylinder);
    const auto cone = support::SimulateCone(setup, 5.0, 10.0, 0.1);
    auto coneFit = fitOf<CIterativeConeFit>(cone);
    coneFit.SetParams(setup.place, tilted, -5.0 / std::tan(0.1), 0.1);
    expectSignedDistances(coneFit, cone);
}

// Counts that leave every remainder by four points.
TEST(PrimitiveFits, ErrorsAreTheSameBitsInEveryWidth)
{
    if (!GetCpuFeatures().bAvx) GTEST_SKIP() << "no AVX";
    const primitives::Coordinates a(0.3, -0.5, 0.7);
    const auto errorOf = [=](const primitives::Coordinates& q) {
        return Dot(Cross(q - a, q), a) + Dot(q, q) / Dot(q, a);
    };
    for (const std::size_t count : {0, 1, 2, 3, 4, 255}) {
        const auto scan = support::SimulateSphere({{30, 10, -20}, tilted, 360.0, count}, 5.0);
        std::vector<primitives::Point> points;
        std::vector<FitPoint> fitPoints;
        for (const auto& p : scan.points) {
            fitPoints.push_back({static_cast<std::uint32_t>(points.size()), 0.0});
            points.push_back({p[0], p[1], p[2]});
        }
        const primitives::CPointColumns columns(points, fitPoints);
        std::vector<double> expected;
        for (const auto& [x, y, z] : points) expected.push_back(errorOf({x, y, z}));
        std::vector<double> narrow(count);
        std::vector<double> wide(count);
        columns.EvaluateBaseline(errorOf, narrow.data());
        columns.EvaluateWide(errorOf, wide.data());
        EXPECT_EQ(narrow, expected) << count;
        EXPECT_EQ(wide, expected) << count;
    }
}

TEST(PrimitiveFits, EstimateTheUnitSphereFromItsNormals)
{
    const auto fit = fitOf<CIterativeSphereFit>(support::SimulateSphere({{2, 0, 0}, tilted, 360.0, 500}, 1.0));
    const VectorXd expected = Eigen::Vector4d(1.0, 0.0, std::numbers::pi / 2.0, 1.0);
    EXPECT_LT((fit.GetParams() - expected).norm(), 1e-5) << fit.GetParams().transpose();
}

TEST(PrimitiveFits, KeepPointsAndConstraintsWhenTheyMove)
{
    const ScanSetup setup{{30, 10, -20}, tilted, 360.0, 800, 0.02};
    auto source = fitOf<CIterativeSphereFit>(support::SimulateSphere(setup, 5.0));
    ASSERT_TRUE(source.GetObjectiveFunction().AddEquality(3, 1.0 / 5.5));
    auto moved = std::move(source);
    auto assigned = fitOf<CIterativeSphereFit>(support::SimulateSphere({{1, 2, 3}}, 1.0));
    assigned = std::move(moved);
    ASSERT_LE(assigned.Run(), CNLSSolver::SmallStepSize);
    EXPECT_DOUBLE_EQ(assigned.GetRadius(), 5.5) << "the fixed radius came along";
    EXPECT_FALSE(assigned.GetObjectiveFunction().HasEqualities()) << "and went with the success";
    ASSERT_LE(assigned.Run(), CNLSSolver::SmallStepSize);
    EXPECT_NEAR(assigned.GetRadius(), 5.0, 0.01);

    EXPECT_TRUE(std::isnan(moved.GetRadius()) && moved.GetCenter().array().isNaN().all()); // NOLINT
    EXPECT_THROW((void)moved.GetObjectiveFunction(), std::logic_error);
    EXPECT_EQ(moved.Run(), CNLSSolver::LSSolutionFailed) << "no points";
}

template <typename Fit>
void expectResultCode(const std::string& what, const PrimitiveScan& scan)
{
    auto fit = fitOf<Fit>(scan);
    const VectorXd estimate = fit.GetParams();
    const auto result = fit.Run();
    EXPECT_TRUE(result > CNLSSolver::SmallStepSize || rmseOf(fit) < 0.01 || scan.points.size() < 7)
        << what << " " << result << " from " << estimate.transpose();
}

TEST(PrimitiveFits, EndOnDegenerateInput)
{
    std::vector<std::pair<std::string, PrimitiveScan>> scans(5);
    scans[0].first = "nothing";
    scans[1].first = "parallel normals";
    for (int i = 0; i < 100; ++i) scans[1].second.Add(Vector3d(i % 10, i / 10, 2), Vector3d(0, 0, 1));
    scans[2] = {"three points", support::SimulateSphere({{30, 10, -20}, tilted, 360.0, 3}, 5.0)};
    scans[3] = {"one place", {}};
    for (int i = 0; i < 20; ++i) scans[3].second.Add(Vector3d(1, 2, 3), Vector3d::Unit(i % 3));
    scans[4] = {"a NaN", support::SimulateSphere({{30, 10, -20}, tilted, 360.0, 50}, 5.0)};
    scans[4].second.points[7][1] = std::numeric_limits<float>::quiet_NaN();
    for (const auto& [what, scan] : scans) {
        expectResultCode<CIterativeSphereFit>(what, scan);
        expectResultCode<CIterativeCylinderFit>(what, scan);
        expectResultCode<CIterativeConeFit>(what, scan);
    }
    auto around = fitOf<CIterativeSphereFit>(support::SimulateSphere({}, 5.0));
    around.SetParams(Vector3d::Zero(), 5.0);
    EXPECT_TRUE(std::isnan(around.GetParams()(1))) << "a centre at the origin has no direction";
    EXPECT_EQ(around.Run(), CNLSSolver::MaxIterExceeded);
}

} // namespace
