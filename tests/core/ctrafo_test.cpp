// SPDX-License-Identifier: MIT
#include "tests/support/clouds.h"
#include "tests/support/matchers.h"
#include "zorvan/core/ctrafo.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace {

using prereg::CTrafo;
using support::IsNearPose;
using support::Vector3;

constexpr float inf = std::numeric_limits<float>::infinity();

TEST(CTrafo, InverseUndoesAndProductsCompose)
{
    std::mt19937 rng(1);
    for (int k = 0; k < 100; ++k) {
        const CTrafo a = support::RandomPose(rng, 50);
        const CTrafo b = support::RandomPose(rng, 50);
        const Vector3 p(3, -7, static_cast<float>(k));
        EXPECT_NEAR((a * b * p - a * (b * p)).Length(), 0, 1e-4);
        EXPECT_THAT(a * a.GetInverse(true), IsNearPose(CTrafo(), 1e-4, 0.05));
        EXPECT_THAT(a * a.GetInverse(false), IsNearPose(CTrafo(), 1e-4, 0.05));
        const CTrafo stretched = a.Scale(Vector3(2, 0.5F, 3));
        EXPECT_NEAR((stretched.GetInverse(false) * (stretched * p) - p).Length(), 0, 1e-3);
    }
}

TEST(CTrafo, SingularMatricesInvertToTheIdentity)
{
    const CTrafo flat(Vector3(), Vector3(), Vector3(), Vector3(1, 2, 3));
    EXPECT_EQ(flat.GetInverse(false), CTrafo());
    const auto scaled = [](float s) { return CTrafo().Scale(Vector3(s, s, s)); };
    EXPECT_EQ(scaled(0.0048F).GetInverse(false), CTrafo()) << "determinant 1.1e-7";
    EXPECT_NEAR(scaled(0.0051F).GetInverse(false)(2, 2), 1 / 0.0051, 1e-3);
}

TEST(CTrafo, RepresentationsAgree)
{
    std::mt19937 rng(2);
    for (int k = 0; k < 100; ++k) {
        const CTrafo a = support::RandomPose(rng, 5);
        EXPECT_THAT(CTrafo(a.GetQuaternion(), a.GetTranslation()), IsNearPose(a, 0.0, 0.05));
        EXPECT_THAT(CTrafo(a.GetEulerAngles(), a.GetTranslation()), IsNearPose(a, 0.0, 0.05));
        EXPECT_EQ(CTrafo(static_cast<HfMatrix4Rd>(a)), a);
        EXPECT_EQ(CTrafo(static_cast<HfMatrix4Rf>(a)), a);
        EXPECT_EQ(a.GetMatrix()[1][3], a(1, 3));
    }
    const Vector3 axis(0, 0, 3); // normalised to about 12 bits
    const float quarter = std::numbers::pi_v<float> / 2;
    EXPECT_NEAR((CTrafo(axis, quarter, Vector3()) * Vector3(1, 0, 0) - Vector3(0, 1, 0)).Length(), 0, 1e-3);
    EXPECT_NEAR(
        (CTrafo::RotationBetween(Vector3(1, 0, 0), Vector3(0, 0, 2)) * Vector3(1, 0, 0) - Vector3(0, 0, 1)).Length(), 0,
        1e-6);
}

TEST(CTrafo, RotationPartsAreMadeOrthonormalOnDemand)
{
    std::mt19937 rng(3);
    const CTrafo a = support::RandomPose(rng, 5);
    const CTrafo doubled = a.Scale(Vector3(1.01F, 1.01F, 1.01F));
    EXPECT_NEAR(doubled.GetRotationPart(true).Rotate(Vector3(1, 0, 0)).Length(), 1.01F, 1e-5);
    EXPECT_NEAR(doubled.GetRotationPart(false).Rotate(Vector3(1, 0, 0)).Length(), 1.0F, 1e-5);
    EXPECT_THAT(doubled.GetTransposedRotationPart(false) * a.GetRotationPart(true), IsNearPose(CTrafo(), 0, 0.2));
    EXPECT_EQ(a.GetRotationPart(true).GetTranslation(), Vector3());
}

TEST(CTrafo, InvalidPosesAreFarFromEverything)
{
    const CTrafo none = CTrafo::Invalid();
    EXPECT_FALSE(none);
    EXPECT_FALSE(none == none);
    EXPECT_EQ(none.GetRotationDistance(CTrafo()), inf);
    EXPECT_EQ(CTrafo().GetRotationDistance(none), inf);
    EXPECT_FALSE(none.GetInverse(true));
    EXPECT_FALSE(none * CTrafo());
    EXPECT_FALSE(CTrafo().Translate(Vector3(inf, 0, 0)));
}

TEST(CTrafo, ElementsOutsideTheMatrixThrow)
{
    EXPECT_EQ(CTrafo()(3, 3), 1.0F);
    for (const auto& at : {std::pair(3U, 4U), std::pair(4U, 0U)}) {
        EXPECT_THAT([&] { (void)CTrafo()(at.first, at.second); },
                    testing::ThrowsMessage<std::invalid_argument>("invalid row or column index"));
    }
}

TEST(CTrafo, FlipHandednessKeepsItsSigns)
{
    const CTrafo turned(Vector3(0.3F, 0.2F, 0.1F), Vector3(1, 2, 3));
    const CTrafo flipped = turned.FlipHandedness();
    EXPECT_EQ(flipped.FlipHandedness(), turned);
    EXPECT_EQ(flipped(1, 2), turned(1, 2)) << "the one element that a true mirror would negate too";
    for (const auto& [row, col] : {std::pair(0U, 1U), std::pair(1U, 0U), std::pair(2U, 1U), std::pair(1U, 3U)}) {
        EXPECT_EQ(flipped(row, col), -turned(row, col));
    }
}

TEST(CTrafo, MeanAndLerpLieBetween)
{
    const CTrafo a(Vector3(0, 0, 0.2F), Vector3(0, 0, 0));
    const CTrafo b(Vector3(0, 0, 0.6F), Vector3(4, 0, 0));
    const CTrafo both[] = {a, b};
    EXPECT_THAT(CTrafo::Mean(both, 2), IsNearPose(CTrafo(Vector3(0, 0, 0.4F), Vector3(2, 0, 0)), 1e-5, 0.05));
    EXPECT_THAT(a.Lerp(b, 0.25), IsNearPose(CTrafo(Vector3(0, 0, 0.3F), Vector3(1, 0, 0)), 1e-5, 0.05));
    EXPECT_FALSE(CTrafo::Mean(nullptr, 0));
    EXPECT_NEAR(CTrafo::Mean(nullptr, 0)(0, 0), 1, 0);
}

TEST(CTrafo, LeastSquaresFitRecoversRandomMotions)
{
    std::mt19937 rng(4);
    for (const std::size_t n : {3U, 4U, 10U, 1000U}) {
        for (int k = 0; k < 50; ++k) {
            const CTrafo truth = support::RandomPose(rng, 100);
            std::vector<Vector3> from;
            std::vector<Vector3> to;
            for (std::size_t i = 0; i < n; ++i) {
                from.push_back(support::RandomDirection(rng) * 20.0F);
                to.push_back(truth * from.back());
            }
            EXPECT_THAT(CTrafo::LeastSquaresFit(from.data(), to.data(), n, nullptr), IsNearPose(truth, 1e-3, 0.06));
        }
    }
    const Vector3 from[] = {Vector3(1, 0, 0), Vector3(0, 2, 0), Vector3(0, 0, 3), Vector3(4, 5, 6)};
    const Vector3 to[] = {from[0], from[1], from[2], Vector3(7, 7, 7)};
    const double weights[] = {1, 1, 1, 0};
    const Vector3 centre = (from[0] + from[1] + from[2]) * (1.0F / 3); // weights say which centres meet
    EXPECT_NEAR((CTrafo::LeastSquaresFit(from, to, 4, weights) * centre - centre).Length(), 0, 1e-5);
    EXPECT_GT((CTrafo::LeastSquaresFit(from, to, 4, nullptr) * centre - centre).Length(), 0.1);
    const Vector3 two[] = {Vector3(), Vector3(1, 0, 0)};
    EXPECT_FALSE(CTrafo::LeastSquaresFit(two, two, 2, nullptr));
    EXPECT_FALSE(CTrafo::LeastSquaresFit(nullptr, two, 2, nullptr));
}

} // namespace
