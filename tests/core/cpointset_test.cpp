// SPDX-License-Identifier: MIT
#include "tests/support/clouds.h"
#include "tests/support/logcapture.h"
#include "zorvan/core/bloomfilter.h"
#include "zorvan/core/cpointset.h"
#include "zorvan/core/orientedbox.h"

#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

namespace {

using prereg::BloomFilter;
using prereg::CPointSet;
using prereg::CTrafo;
using prereg::Ellipsoid;
using support::Vector3;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

// Opens the tools for derived classes.
class OpenPointSet : public CPointSet
{
public:
    using CPointSet::CPointSet;
    using CPointSet::estimateLocalVoronoiArea;
    using CPointSet::filterSurfelsWithMask;
    using CPointSet::identifyMatchingIndices;
    using CPointSet::transformSurfels;
    std::vector<unsigned>& Masks() { return m_bitMasks; }
};

// A square of n x n points, `spacing` apart, normals along +z; every other point stands `ripple` higher.
OpenPointSet flatSquare(int n, float spacing, float ripple = 0.0F)
{
    std::vector<Vector3> points;
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            points.emplace_back(static_cast<float>(i) * spacing, static_cast<float>(j) * spacing,
                                (i + j) % 2 == 0 ? 0.0F : ripple);
        }
    }
    const std::vector<Vector3> normals(points.size(), Vector3(0, 0, 1));
    return {points.data(), normals.data(), points.size()};
}

std::string contentOf(const std::filesystem::path& file)
{
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

TEST(CPointSet, SurvivesPointsThatAreNotFinite)
{
    const std::vector<Vector3> normals(100, Vector3(0, 0, 1));
    std::vector<Vector3> points(100, Vector3(nan, 0, 0));
    const support::LogCapture log;
    const CPointSet none(points.data(), normals.data(), 100);
    EXPECT_TRUE(none.Empty());
    EXPECT_EQ(none.GetEllipsoid().DistanceSq(Ellipsoid()), 0);
    EXPECT_EQ(none.GetAABB().first.x, inf);
    EXPECT_EQ(none.GetAABB().second.z, -inf);
    EXPECT_TRUE(std::isnan(none.SignedDistance(Vector3(), 1)));
    ASSERT_EQ(log.Messages().size(), 1U);
    EXPECT_EQ(log.Messages()[0].eLevel, Logging::ELogLevel::Error);
    EXPECT_EQ(log.Messages()[0].text, L"Inf/NaN in point data resulted in empty kD-tree; invalidating point set");

    for (std::size_t i = 0; i < 100; ++i) points[i] = Vector3(static_cast<float>(i), 0, 0);
    points[7].y = inf;
    const CPointSet some(points.data(), normals.data(), 100);
    EXPECT_EQ(some.Size(), 100U);
    EXPECT_EQ(some.GetKdTree().Size(), 99U);
    EXPECT_EQ(some.GetAABB().second.x, 99);
    EXPECT_EQ(some.GetAABB().second.y, 0);
    EXPECT_FALSE(some.GetEllipsoid().tips[2].IsFinite());
    EXPECT_EQ(log.Messages().size(), 1U) << "a partial loss is the caller's to notice";
}

TEST(CPointSet, SignedDistanceIsPositiveOnTheSideOfTheNormal)
{
    const auto square = flatSquare(10, 1);
    EXPECT_FLOAT_EQ(square.SignedDistance(Vector3(3.2F, 4.1F, 0.5F), 1), 0.5F);
    EXPECT_FLOAT_EQ(square.SignedDistance(Vector3(3.2F, 4.1F, -0.5F), 1), -0.5F);
    EXPECT_TRUE(std::isnan(square.SignedDistance(Vector3(3, 4, 2), 1)));
}

TEST(CPointSet, MasksSelectSurfels)
{
    auto square = flatSquare(3, 1);
    EXPECT_EQ(square.GetBitMask(1000), 0U);
    EXPECT_TRUE(std::get<0>(square.filterSurfelsWithMask(1, false)).empty());
    square.InitializeBitMasks(0b100);
    square.Masks()[4] = 0b110;
    EXPECT_THAT([&] { (void)square.GetBitMask(9); },
                testing::ThrowsMessage<std::out_of_range>("invalid vector<T> subscript"));
    const auto [points, normals, masks] = square.filterSurfelsWithMask(0b110, false);
    ASSERT_EQ(points.size(), 1U);
    EXPECT_EQ(points[0], square.GetPoint(4));
    EXPECT_THAT(masks, testing::ElementsAre(0b110U));
    EXPECT_EQ(std::get<0>(square.filterSurfelsWithMask(0b110, true)).size(), 8U);
    EXPECT_TRUE(std::get<0>(square.filterSurfelsWithMask(0, true)).empty());
}

TEST(CPointSet, HalfSpacesIncludeTheirBorder)
{
    const auto square = flatSquare(4, 1);
    const float normals[] = {1, 0, 0, 0, -1, 0};
    const float offsets[] = {1, -3}; // x <= 1 and y >= 3
    EXPECT_THAT(OpenPointSet::identifyMatchingIndices(normals, offsets, 2, square.GetPoints()),
                testing::ElementsAre(3, 7));
}

TEST(CPointSet, SavesSurfelsAsText)
{
    const auto file = std::filesystem::temp_directory_path() / "zorvan_cpointset_test.xyzn";
    const Vector3 point(1.5F, -2, 1e-7F);
    const Vector3 normal(0, 0, 1);
    const CPointSet set(&point, &normal, 1);
    set.SaveXYZN(file.string(), 0x10FF03);
    EXPECT_EQ(contentOf(file), "1.5 -2 1e-07 0 0 1 16 255 3\n");
    set.SaveXYZN(file.string(), 0xFFFFFFFF);
    EXPECT_EQ(contentOf(file), "1.5 -2 1e-07 0 0 1\n");
    Ellipsoid ellipsoid;
    ellipsoid.tips[0] = Vector3(0.2F, 0, 0);
    ellipsoid.SaveXYZNC(file.string());
    EXPECT_EQ(contentOf(file).substr(0, 30).find("0 0 0 "), 0U);
    std::filesystem::remove(file);
    EXPECT_THAT([&] { set.SaveXYZN("", 0); }, testing::ThrowsMessage<std::invalid_argument>("empty file name"));
    EXPECT_THROW(set.SaveXYZN("/no/such/folder/file.xyzn", 0), std::ios_base::failure);
}

TEST(CPointSet, OverlapAreaIsTheSharedPartOfTheSurface)
{
    // Four equal neighbours at right angles, told without their side: the estimate of one point on a square lattice is
    // constant inside, so areas are in proportion to the number of points shared.
    const auto a = flatSquare(41, 0.5F, 0.02F);
    const double cell = a.estimateLocalVoronoiArea(20 * 41 + 20, 4.0F);
    EXPECT_GT(cell, 0.05);
    EXPECT_LT(cell, 0.5);

    const auto shifted = [](float x) { return CTrafo().Translate(Vector3(x, 0, 0.01F)); };
    const float whole = a.EstimateOverlapArea(a, shifted(0), 0.3F, 2.0F, 1e9F);
    const float half = a.EstimateOverlapArea(a, shifted(10), 0.3F, 2.0F, 1e9F);
    EXPECT_NEAR(whole, 41 * 41 * cell, 0.1 * whole);
    EXPECT_NEAR(a.EstimateOverlapArea(a, shifted(0), 0.8F, 2.0F, 1e9F), whole, 0.01 * whole)
        << "each point counts once, however often it is met";
    EXPECT_NEAR(half / whole, 0.5, 0.06);
    EXPECT_EQ(a.EstimateOverlapArea(a, shifted(21), 0.3F, 2.0F, 1e9F), 0.0F);
    EXPECT_EQ(a.EstimateOverlapArea(a, shifted(0), 0.3F, 2.0F, whole / 2), inf);
    EXPECT_EQ(a.EstimateOverlapArea(a, CTrafo::Invalid(), 0.3F, 2.0F, 1e9F), 0.0F);
    EXPECT_EQ(flatSquare(2, 1).estimateLocalVoronoiArea(0, 4.0F), 0.0) << "four points are too few";
}

TEST(OrientedBox, TouchesWhatItsPointsTouch)
{
    using prereg::OrientedBox;
    const OrientedBox unit = OrientedBox::FromCorners({Vector3(-1, -1, -1), Vector3(1, 1, 1)});
    EXPECT_TRUE(Overlap(unit, unit.Moved(CTrafo().Translate(Vector3(1.9F, 0, 0)))));
    EXPECT_FALSE(Overlap(unit, unit.Moved(CTrafo().Translate(Vector3(2.1F, 0, 0)))));
    // Corner to corner and edge to edge, where no face separates.
    const CTrafo tilted(Vector3(0.6F, 0.7F, 0.8F), Vector3(2.0F, 2.0F, 2.0F));
    EXPECT_FALSE(Overlap(unit, unit.Moved(tilted)));
    EXPECT_TRUE(Overlap(unit, unit.Moved(CTrafo(Vector3(0.6F, 0.7F, 0.8F), Vector3(1.2F, 1.2F, 1.2F)))));
}

TEST(BloomFilter, IsSizedByTheFormulaAndForgetsNothing)
{
    BloomFilter filter(1000, 0.001, 0x80000);
    EXPECT_EQ(filter.GetNumProbes(), 10U);
    EXPECT_EQ(filter.GetNumBits(), 14387U); // the first prime from 1000 * 14.378 on
    std::size_t falsePositives = 0;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        falsePositives += filter.Contains(i);
        filter.Insert(i);
        ASSERT_TRUE(filter.Contains(i));
    }
    EXPECT_LT(falsePositives, 5U);
    EXPECT_EQ(BloomFilter(10'000'000, 0.001, 0x80000).GetNumBits(), 524287U) << "the last prime below the limit";
    EXPECT_EQ(BloomFilter(1000, 0.001, 14380).GetNumBits(), 14369U) << "the next prime would pass it";
}

TEST(Ellipsoid, HasTheAxesOfAnIndependentGaussian)
{
    std::mt19937 rng(1);
    std::normal_distribution<float> draw;
    std::vector<Vector3> points;
    for (int i = 0; i < 20000; ++i) {
        const float x = 3 * draw(rng);
        const float y = draw(rng);
        points.emplace_back(x + 10, y, 2 * draw(rng));
    }
    const Ellipsoid ellipsoid(points.data(), points.size());
    const double chi = std::sqrt(7.8147);
    EXPECT_NEAR((ellipsoid[0] - ellipsoid[-1]).Length(), 1 * chi, 0.1) << "shortest axis first";
    EXPECT_NEAR((ellipsoid[2] - ellipsoid[-1]).Length(), 2 * chi, 0.1);
    EXPECT_NEAR((ellipsoid[4] - ellipsoid[-1]).Length(), 3 * chi, 0.1);
    EXPECT_NEAR((ellipsoid[4] + ellipsoid[5] - ellipsoid[-1] * 2.0F).Length(), 0, 1e-4);
    EXPECT_NEAR((ellipsoid.Scale(2)[0] - ellipsoid[-1]).Length(), 2 * chi, 0.2);

    const CTrafo shift = CTrafo().Translate(Vector3(0, 3, 4));
    EXPECT_NEAR(ellipsoid.DistanceSq(ellipsoid.Transform(shift)), 25, 1e-3);
    EXPECT_NEAR((Ellipsoid(Vector3(), {1, 0, 4, 0, 0, 9}, 3.0)[4] - Vector3()).Length(), 3, 1e-6) << "capped";
    EXPECT_THROW((void)ellipsoid[6], std::out_of_range);
}

// Half axes from sums in double about the first point.
std::array<double, 3> halfAxesOf(const std::vector<Vector3>& points)
{
    const auto n = static_cast<double>(points.size());
    std::array<double, 3> sum{};
    std::array<double, 6> covariance{};
    for (const bool isSecond : {false, true}) {
        for (const Vector3& p : points) {
            std::array<double, 3> d{};
            for (unsigned i = 0; i < 3; ++i) d[i] = static_cast<double>(p[i]) - points[0][i] - sum[i] / n * isSecond;
            for (unsigned i = 0, k = 0; i < 3; ++i) {
                if (!isSecond) sum[i] += d[i];
                for (unsigned j = 0; isSecond && j <= i; ++j) covariance[k++] += d[i] * d[j] / (n - 1);
            }
        }
    }
    const Ellipsoid exact(Vector3(), covariance, inf);
    return {exact.tips[0].Length(), exact.tips[1].Length(), exact.tips[2].Length()};
}

TEST(Ellipsoid, IsAsExactFarFromTheOrigin)
{
    std::mt19937 rng(3);
    std::normal_distribution<float> noise(0.0F, 0.02F);
    std::uniform_real_distribution<float> draw(-8.0F, 8.0F);
    for (int patch = 0; patch < 60; ++patch) {
        const CTrafo pose = CTrafo().Translate(support::RandomDirection(rng) * 150) * support::RandomPose(rng, 0);
        std::vector<Vector3> points;
        for (int i = 0; i < 5000; ++i) points.push_back(pose * Vector3(draw(rng), draw(rng), noise(rng)));
        const Ellipsoid ellipsoid(points.data(), points.size());
        const auto exact = halfAxesOf(points);
        EXPECT_NEAR((ellipsoid.center - pose.GetTranslation()).Length(), 0, 0.5);
        // 5000 products added up in single precision: to about a millionth of the largest variance.
        for (std::size_t k = 0; k < 3; ++k)
            EXPECT_NEAR((ellipsoid.tips[k] - ellipsoid.center).Length(), exact[k], 0.06 * exact[k]) << patch;
    }
}

TEST(Ellipsoid, HasNoExtentWhereRoundingLeavesANegativeVariance)
{
    std::mt19937 rng(4);
    int negative = 0;
    for (int round = 0; round < 100; ++round) {
        // Of rank 2: one variance is 0 but for rounding.
        const Vector3 a = support::RandomDirection(rng) * 3;
        const Vector3 b = support::RandomDirection(rng) * 2;
        std::array<double, 6> covariance{};
        for (unsigned i = 0, k = 0; i < 3; ++i) {
            for (unsigned j = 0; j <= i; ++j) covariance[k++] = a[i] * a[j] + b[i] * b[j];
        }
        const float shortest = Ellipsoid(Vector3(), covariance, 50.0).tips[0].Length();
        EXPECT_LT(shortest, 0.01F);
        negative += shortest == 0.0F ? 1 : 0;
    }
    EXPECT_GT(negative, 20);
}

} // namespace
