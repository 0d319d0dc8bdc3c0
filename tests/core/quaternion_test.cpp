// SPDX-License-Identifier: MIT
#include "zorvan/core/quaternion.h"

#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

namespace {

using prereg::Quaternion;
using std::numbers::pi;
using Vector3d = std::array<double, 3>;

Quaternion randomRotation(std::mt19937& rng)
{
    std::normal_distribution<double> draw;
    const double w = draw(rng);
    const double x = draw(rng);
    const double y = draw(rng);
    return Quaternion(w, x, y, draw(rng)).GetNormalized();
}

void expectNear(const Vector3d& a, const Vector3d& b)
{
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-12);
}

TEST(Quaternion, MatrixRotationAndProductAgree)
{
    std::mt19937 rng(1);
    for (int k = 0; k < 200; ++k) {
        const Quaternion q = randomRotation(rng);
        const Quaternion p = randomRotation(rng);
        const Vector3d v = {1.0 + k, -2.0, 0.5};
        Vector3d byMatrix{};
        for (unsigned i = 0; i < 3; ++i) {
            for (unsigned j = 0; j < 3; ++j) byMatrix[i] += q(i, j) * v[j];
        }
        const double tolerance = 1e-12 * (k + 3);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(q.Rotate(v)[i], byMatrix[i], tolerance);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR((p * q).Rotate(v)[i], p.Rotate(q.Rotate(v))[i], tolerance);
        const Quaternion back(q(0, 0), q(0, 1), q(0, 2), q(1, 0), q(1, 1), q(1, 2), q(2, 0), q(2, 1), q(2, 2));
        // Twice an arc cosine near 1 keeps about half the digits.
        EXPECT_NEAR(back.Distance(q), 0, 1e-7);
        EXPECT_GE(back.w, 0);
    }
}

TEST(Quaternion, HalfTurnsComeBackFromTheirMatrices)
{
    // Trace -1: the branches for a large diagonal element.
    for (const Vector3d& axis : {Vector3d{1, 0, 0}, Vector3d{0, 1, 0}, Vector3d{0, 0, 1}, Vector3d{.6, .8, 0}}) {
        const Quaternion q = Quaternion::FromAxisAngle(axis, pi);
        const Quaternion back(q(0, 0), q(0, 1), q(0, 2), q(1, 0), q(1, 1), q(1, 2), q(2, 0), q(2, 1), q(2, 2));
        EXPECT_NEAR(back.Distance(q), 0, 1e-7);
    }
}

TEST(Quaternion, ArcTurnsOneDirectionIntoTheOther)
{
    const Vector3d a = {1, 2, -0.5};
    const Vector3d b = {-3, 0.1, 2};
    const Vector3d turned = Quaternion(a, b).Rotate(a);
    const double scale = std::sqrt((9 + 0.01 + 4) / (1 + 4 + 0.25));
    expectNear(turned, {b[0] / scale, b[1] / scale, b[2] / scale});
    EXPECT_EQ(Quaternion(a, a).w, 1);
    // Opposite directions: the half turn about x, which leaves directions along x in place.
    const Quaternion opposite({1, 0, 0}, {-1, 0, 0});
    EXPECT_EQ(opposite.x, 1);
    expectNear(opposite.Rotate({1, 0, 0}), {1, 0, 0});
}

TEST(Quaternion, AxisAngleWrapsAndRefusesAZeroAxis)
{
    EXPECT_FALSE(Quaternion::FromAxisAngle({0, 0, 0}, 1));
    const Quaternion wrapped = Quaternion::FromAxisAngle({0, 0, 2}, 7);
    EXPECT_NEAR(wrapped.GetAngle(), 7 - 6.28318530717959, 1e-12);
    expectNear(wrapped.GetAxis(), {0, 0, 1});
    EXPECT_NEAR(Quaternion::FromAxisAngle({0, 0, 1.0001}, 1).GetAngle(), 1, 1e-12);
    expectNear(Quaternion().GetAxis(), {1, 0, 0});
}

TEST(Quaternion, EulerAnglesRoundTrip)
{
    for (const Vector3d& angles : {Vector3d{0.1, 0.2, 0.3}, Vector3d{-2.5, 1.4, 3.0}, Vector3d{3.0, -1.5, -3.0}}) {
        expectNear(Quaternion(angles[0], angles[1], angles[2]).GetEulerAngles(), angles);
    }
}

TEST(Quaternion, SlerpDividesTheAngleAndKeepsItsAntipodalRule)
{
    std::mt19937 rng(2);
    for (int k = 0; k < 50; ++k) {
        const Quaternion p = randomRotation(rng);
        Quaternion q = randomRotation(rng);
        if (p.Dot(q) < 0) q = -q;
        EXPECT_NEAR(p.Distance(p.Slerp(q, 0.3)), 0.3 * p.Distance(q), 1e-7);
    }
    const Quaternion q(0.5, 0.5, -0.5, 0.5);
    const Quaternion half = q.Slerp(-q, 0.5);
    EXPECT_EQ(half.w, q.z);
    EXPECT_NEAR(half.x, 0, 1e-12);
}

TEST(Quaternion, InvalidAndDegenerateValues)
{
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(Quaternion::Invalid());
    EXPECT_TRUE(Quaternion(inf, 0, 0, 0)) << "weaker than a pose's test";
    EXPECT_EQ(Quaternion(0, 0, 0, 0).GetNormalized().w, 1);
    EXPECT_EQ(Quaternion(-2, 0, 0, 0).GetNormalized().w, 1);
    EXPECT_EQ(Quaternion()(3, 3), 0.0);
    EXPECT_NEAR(Quaternion(0.6, 0.8, 0, 0).Distance(Quaternion(-0.6, -0.8, 0, 0)), 0, 1e-7);
}

} // namespace
