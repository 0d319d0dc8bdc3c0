// SPDX-License-Identifier: MIT
#include "zorvan/numerics/symsolvers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace Zorvan::symsolvers;
using testing::ElementsAre;

TEST(JacobiIteration, DecomposesRandomMatrices)
{
    std::mt19937 rng(1);
    std::normal_distribution<double> draw;
    for (int n = 1; n <= 7; ++n) {
        const auto size = static_cast<std::size_t>(n);
        std::vector<double> a(PackedSize(size));
        for (double& value : a) value = draw(rng);
        auto destroyed = a;
        std::vector<double> values(size);
        std::vector<double> vectors(size * size);
        std::vector<double> work(2 * size);
        JacobiIteration(destroyed.data(), values.data(), vectors.data(), n, 20, work.data());
        SortEigenV(values.data(), vectors.data(), n, true);

        EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = 0; j <= i; ++j) {
                double sum = 0;
                double dot = 0;
                for (std::size_t k = 0; k < size; ++k) {
                    sum += vectors[i * size + k] * values[k] * vectors[j * size + k];
                    dot += vectors[k * size + i] * vectors[k * size + j];
                }
                EXPECT_NEAR(sum, a[PackedSize(i) + j], 1e-12) << "A = V D V^T, n = " << n;
                EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, 1e-12) << "orthonormal columns, n = " << n;
            }
        }
    }
}

struct Fit
{
    double q[4] = {7, 7, 7, 7};
    double R[3][3] = {};
    double t[3] = {};
};

TEST(Procrustes, LeavesOutputsUntouchedWithoutThreePoints)
{
    const double points[6] = {0, 0, 0, 1, 0, 0};
    Fit fit;
    EXPECT_FALSE(Procrustes(points, points, nullptr, fit.q, fit.R, fit.t, 2));
    EXPECT_FALSE(Procrustes(nullptr, points, nullptr, fit.q, fit.R, fit.t, 5));
    EXPECT_EQ(fit.q[0], 7);
}

TEST(Procrustes, WeightsMoveTheCentroidsOnly)
{
    // The last pair is wrong and weighs nothing: the weighted centroids are carried onto each other without it, but the
    // rotation still feels it.
    const double from[] = {0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 4};
    const double to[] = {1, 1, 1, 3, 1, 1, 1, 3, 1, 3, 1, 5};
    const double weights[] = {1, 1, 1, 0};
    const double doubled[] = {2, 2, 2, 0};
    Fit fit;
    Fit twice;
    ASSERT_TRUE(Procrustes(from, to, weights, fit.q, fit.R, fit.t, 4));
    ASSERT_TRUE(Procrustes(from, to, doubled, twice.q, twice.R, twice.t, 4));
    for (std::size_t i = 0; i < 3; ++i) {
        const double carried = (fit.R[i][0] + fit.R[i][1]) * 2 / 3 + fit.t[i]; // centroid (2/3, 2/3, 0)
        EXPECT_NEAR(carried, i == 2 ? 1.0 : 5.0 / 3, 1e-12);
    }
    EXPECT_GT(std::abs(fit.R[0][2]), 0.1);
    EXPECT_THAT(twice.t, ElementsAre(fit.t[0], fit.t[1], fit.t[2]));
}

TEST(Procrustes, SaysWhenTheRotationIsOpen)
{
    // All points in one place: every eigenvalue is zero.
    const double same[] = {1, 2, 3, 1, 2, 3, 1, 2, 3};
    Fit fit;
    EXPECT_FALSE(Procrustes(same, same, nullptr, fit.q, fit.R, fit.t, 3));
}

std::array<double, 3> rotated(const double* angles, const double* p)
{
    const auto turn = [](double a, double& u, double& v) {
        const double nextU = std::cos(a) * u - std::sin(a) * v;
        v = std::sin(a) * u + std::cos(a) * v;
        u = nextU;
    };
    std::array<double, 3> r = {p[0], p[1], p[2]};
    turn(angles[0], r[1], r[2]);
    turn(angles[1], r[2], r[0]);
    turn(angles[2], r[0], r[1]);
    return r;
}

struct PlanePairs
{
    std::vector<double> from, to, normals;
    int n = 0;
};

// `to` is `from` moved by small angles and a translation.
PlanePairs randomPairs(int n, const double* angles, const double* translation, double noise)
{
    std::mt19937 rng(3);
    std::normal_distribution<double> draw;
    PlanePairs pairs;
    pairs.n = n;
    for (int k = 0; k < n; ++k) {
        const double p[] = {draw(rng), draw(rng), draw(rng)};
        double normal[] = {draw(rng), draw(rng), draw(rng)};
        const double length = std::hypot(normal[0], normal[1], normal[2]);
        const auto moved = rotated(angles, p);
        const double off = noise * draw(rng);
        for (std::size_t i = 0; i < 3; ++i) {
            pairs.from.push_back(p[i]);
            pairs.to.push_back(moved[i] + translation[i] + off * normal[i] / length);
            pairs.normals.push_back(normal[i] / length);
        }
    }
    return pairs;
}

TEST(PointToPlaneUpdate, AllFormsFindASmallMotion)
{
    const double angles[] = {1e-4, -2e-4, 3e-4};
    const double translation[] = {0.1, -0.2, 0.3};
    const auto pairs = randomPairs(50, angles, translation, 0.0);
    const std::vector<double> weights(50, 2.0);
    const double single = 0.25;
    double covariance[21];
    double r[3];
    double t[3];
    const auto expectMotion = [&](const char* form) {
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(r[i], angles[i], 1e-6) << form;
            EXPECT_NEAR(t[i], translation[i], 1e-6) << form;
            r[i] = t[i] = 0;
        }
    };
    const double* p = pairs.from.data();
    const double* q = pairs.to.data();
    const double* n = pairs.normals.data();
    ASSERT_TRUE(PointToPlaneUpdate(p, q, n, nullptr, r, t, 50));
    expectMotion("inline");
    ASSERT_TRUE(PointToPlaneUpdateLS(p, q, n, &single, r, t, 50, true));
    expectMotion("one weight");
    ASSERT_TRUE(PointToPlaneUpdateLS(p, q, n, weights.data(), r, t, 50, false));
    expectMotion("a weight each");
    ASSERT_TRUE(PointToPlaneUpdateLS(p, q, n, nullptr, r, t, 50, covariance, false));
    expectMotion("regression");
}

TEST(PointToPlaneUpdate, FailsWhereAPlaneLeavesDirectionsFree)
{
    const double still[] = {0, 0, 0};
    auto pairs = randomPairs(50, still, still, 0.0);
    for (int k = 0; k < 50; ++k) {
        for (int i = 0; i < 3; ++i)
            pairs.normals[3 * static_cast<std::size_t>(k) + static_cast<std::size_t>(i)] = i == 2 ? 1.0 : 0.0;
    }
    double r[3];
    double t[3];
    double covariance[21] = {};
    EXPECT_FALSE(PointToPlaneUpdate(pairs.from.data(), pairs.to.data(), pairs.normals.data(), nullptr, r, t, 50));
    EXPECT_FALSE(PointToPlaneUpdateLS(pairs.from.data(), pairs.to.data(), pairs.normals.data(), nullptr, r, t, 50,
                                      covariance, false));
    for (const double value : covariance) EXPECT_TRUE(std::isnan(value));
}

TEST(TrafoJacobian, AgreesWithFiniteDifferences)
{
    const double angles[] = {0.4, -0.7, 1.1};
    const double point[] = {3, -2, 5};
    double J[27];
    TrafoJacobian(J, point, angles);
    for (int k = 0; k < 3; ++k) {
        constexpr double h = 1e-6;
        double low[] = {angles[0], angles[1], angles[2]};
        double high[] = {angles[0], angles[1], angles[2]};
        low[k] -= h;
        high[k] += h;
        double axis[] = {0, 0, 0};
        axis[k] = 1;
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_NEAR(J[9 * i + static_cast<std::size_t>(k)],
                        (rotated(high, point)[i] - rotated(low, point)[i]) / (2 * h), 1e-8);
            EXPECT_EQ(J[9 * i + 3 + static_cast<std::size_t>(k)], i == static_cast<std::size_t>(k) ? 1.0 : 0.0);
            EXPECT_NEAR(J[9 * i + 6 + static_cast<std::size_t>(k)], rotated(angles, axis)[i], 1e-12);
        }
    }
}

TEST(PropagateTrafoErrors, AgreesWithDrawnSamples)
{
    const double angles[] = {0.2, 0.3, -0.4};
    const double point[] = {10, 5, -8};
    const double sigma[] = {0.01, 0.02, 0.03};
    // Independent parameters: standard deviations 0.001 of the angles, 0.02 of the translation.
    double covariance[21] = {};
    for (std::size_t i = 0; i < 6; ++i) covariance[PackedSize(i) + i] = i < 3 ? 1e-6 : 4e-4;
    double variances[3];
    double full[6];
    PropagateTrafoErrors(false, variances, sigma, covariance, point, angles);
    PropagateTrafoErrors(true, full, sigma, covariance, point, angles);
    EXPECT_THAT(variances, ElementsAre(full[0], full[2], full[5]));

    std::mt19937 rng(5);
    std::normal_distribution<double> draw;
    constexpr int samples = 200'000;
    const auto centre = rotated(angles, point);
    double squares[3] = {};
    double mixed = 0;
    for (int k = 0; k < samples; ++k) {
        double a[3];
        double p[3];
        for (int i = 0; i < 3; ++i) a[i] = angles[i] + 1e-3 * draw(rng);
        for (int i = 0; i < 3; ++i) p[i] = point[i] + sigma[i] * draw(rng);
        auto off = rotated(a, p);
        for (std::size_t i = 0; i < 3; ++i) off[i] += 0.02 * draw(rng) - centre[i];
        for (std::size_t i = 0; i < 3; ++i) squares[i] += off[i] * off[i] / samples;
        mixed += off[2] * off[0] / samples;
    }
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(variances[i], squares[i], 0.02 * squares[i]);
    EXPECT_NEAR(full[3], mixed, 0.02 * squares[0]);
}

} // namespace
