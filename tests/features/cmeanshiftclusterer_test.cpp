// SPDX-License-Identifier: MIT
#include "zorvan/features/cmeanshiftclusterer.h"

#include "zorvan/features/cmeanshiftclusterer3d.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Zorvan::CMeanShiftClusterer;
using Zorvan::CMeanShiftClusterer3D;
using Distance = CMeanShiftClusterer::DistanceFunction;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

// Rows scattered around some places; the wider the scatter, the more the clusters run into each other.
std::vector<float> blobs(std::size_t count, std::size_t dimension, float scatter, std::uint32_t seed)
{
    std::mt19937 rng(seed);
    std::vector<float> rows;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t place = rng() % 7;
        for (std::size_t d = 0; d < dimension; ++d) {
            const auto at = static_cast<float>((place * (d + 3)) % 7) * 3.0F - 9.0F;
            rows.push_back(at + scatter * (static_cast<float>(rng() >> 8) * 0x1p-24F - 0.5F));
        }
    }
    return rows;
}

using Rows = std::vector<std::vector<float>>;
using Result = std::pair<Rows, std::vector<unsigned>>; // centres, and for each row its cluster

// The same search, written down plainly: full tables of votes, and every round is gone through.
Result plainMeanShift(const Rows& rows, float h, Distance norm, int& limitReached)
{
    const std::size_t n = rows.size();
    const std::size_t dim = rows[0].size();
    const auto distanceSq = [&](const auto& a, const auto& b) { return norm(dim, a.data(), b.data()); };
    Rows centres;
    std::vector<std::vector<unsigned>> votes;
    std::vector<bool> visited(n);

    const auto addCluster = [&](const std::vector<float>& mean, const std::vector<unsigned>& counts) {
        std::size_t k = 0;
        while (k < centres.size() && !(distanceSq(mean, centres[k]) < h * h * 0.25F)) ++k;
        if (k == centres.size()) {
            centres.push_back(mean);
            votes.push_back(counts);
            return;
        }
        for (std::size_t d = 0; d < dim; ++d) centres[k][d] = (centres[k][d] + mean[d]) * 0.5F;
        for (std::size_t i = 0; i < n; ++i) votes[k][i] += counts[i];
    };
    const auto climb = [&](std::vector<float> mean, std::size_t pick) {
        std::vector<unsigned> counts(n);
        for (std::size_t round = 0; round < 2 * n * dim; ++round) {
            const std::vector<float> old = std::exchange(mean, std::vector<float>(dim));
            float taken = 0;
            for (std::size_t i = 0; i < n; ++i) {
                if (distanceSq(rows[i], old) > h * h) continue;
                ++taken;
                ++counts[i];
                visited[i] = true;
                for (std::size_t d = 0; d < dim; ++d) mean[d] += rows[i][d];
            }
            for (float& value : mean) value /= taken;
            if (distanceSq(mean, old) < h * 0.001F * (h * 0.001F)) return addCluster(mean, counts);
        }
        ++limitReached;
        visited[pick] = false;
    };

    std::mt19937 rng(47110815);
    for (std::size_t tries = 0; tries < 4 * n; ++tries) {
        std::vector<std::size_t> unvisited;
        for (std::size_t i = 0; i < n; ++i) {
            if (!visited[i]) unvisited.push_back(i);
        }
        if (unvisited.empty()) break;
        const auto pick =
            static_cast<std::size_t>(static_cast<float>(rng() >> 8) * 0x1p-24F * static_cast<float>(unvisited.size()));
        climb(rows[unvisited[pick]], pick);
    }

    Result result{{}, std::vector<unsigned>(n, ~0U)};
    for (std::size_t k = 0; k < centres.size(); ++k) {
        bool used = false;
        for (std::size_t i = 0; i < n; ++i) {
            const auto most =
                std::max_element(votes.begin(), votes.end(), [i](const auto& a, const auto& b) { return a[i] < b[i]; });
            if (most - votes.begin() != static_cast<std::ptrdiff_t>(k) || (*most)[i] == 0) continue;
            result.second[i] = static_cast<unsigned>(result.first.size());
            used = true;
        }
        if (used) result.first.push_back(centres[k]);
    }
    return result;
}

template <typename Clusterer>
Result resultOf(const Clusterer& clusterer, std::size_t n, std::size_t dimension)
{
    Result result{{}, std::vector<unsigned>(n, ~0U)};
    for (unsigned k = 0; k < clusterer.GetNumClusters(); ++k) {
        const float* centre = clusterer.GetClusterCenter(k);
        result.first.emplace_back(centre, centre + dimension);
        for (const unsigned i : clusterer.GetClusterIterator(k)) result.second[i] = k;
        EXPECT_EQ(clusterer.GetClusterHistogram()[k], std::count(result.second.begin(), result.second.end(), k));
    }
    return result;
}

// Means to the right of 4 never settle.
float restless(std::size_t dimension, const float* a, const float* b)
{
    const float d = CMeanShiftClusterer::euclideanNormSq(dimension, a, b);
    return a[0] > 4 && b[0] > 4 ? std::max(d, 0.01F) : d;
}

TEST(CMeanShiftClusterer, AgreesWithThePlainSearch)
{
    constexpr std::size_t n = 60;
    int lost = 0;
    unsigned mostClusters = 0;
    for (std::size_t c = 0; c < 36; ++c) {
        const Distance distance = c % 2 == 0 ? CMeanShiftClusterer::euclideanNormSq : restless;
        const float scatter = c / 2 % 2 == 0 ? 1.0F : 8.0F;
        const float bandwidth = std::array{0.3F, 2.0F, 5.0F}[c / 4 % 3];
        const std::size_t dimension = std::array{1U, 2U, 5U}[c / 12];
        const auto data = blobs(n, dimension, scatter, static_cast<unsigned>(c));
        Rows rows;
        for (std::size_t i = 0; i < n; ++i) rows.emplace_back(&data[i * dimension], &data[i * dimension] + dimension);
        CMeanShiftClusterer clusterer(data.data(), n, dimension, bandwidth);
        ASSERT_TRUE(clusterer.Run(distance));
        EXPECT_EQ(resultOf(clusterer, n, dimension), plainMeanShift(rows, bandwidth, distance, lost)) << "case " << c;
        mostClusters = std::max(mostClusters, clusterer.GetNumClusters());
    }
    EXPECT_GT(lost, 100);
    EXPECT_GT(mostClusters, 30U);
}

TEST(CMeanShiftClusterer3D, GivesTheClustersOfTheGeneralForm)
{
    for (const float scatter : {1.0F, 8.0F}) {
        const auto rows = blobs(300, 3, scatter, 6);
        CMeanShiftClusterer general(rows.data(), 300, 3, 2.0F);
        CMeanShiftClusterer3D special(rows.data(), 300, 2.0F);
        ASSERT_TRUE(general.Run());
        ASSERT_TRUE(special.Run());
        const Result result = resultOf(special, 300, 3);
        EXPECT_EQ(result, resultOf(general, 300, 3));
        EXPECT_EQ(special.ComputeDunnIndex(), general.ComputeDunnIndex());
        for (unsigned i = 0; i < 300; ++i) EXPECT_EQ(special.GetCluster(i), static_cast<int>(result.second[i]));
    }
}

TEST(CMeanShiftClusterer, FindsWhatIsPlainToSee)
{
    const float near[] = {0, 0, 1, 0};
    CMeanShiftClusterer one(near, 2, 2, 1.5F);
    ASSERT_TRUE(one.Run());
    EXPECT_EQ(one.ComputeDunnIndex(), inf);
    const double far[] = {0, 0, 0, 1, 0, 0, 9, 0, 0};
    const double bandwidth = 2.0;
    CMeanShiftClusterer3D two{far, 3, bandwidth}; // nothing is narrowed
    ASSERT_TRUE(two.Run());
    EXPECT_EQ(two.ComputeDunnIndex(), 8.0F);
    EXPECT_EQ(two.GetCluster(3), -1);
    EXPECT_EQ(two.GetClusterCenter(2), nullptr);
    EXPECT_FALSE(two.GetClusterIterator(2));

    // Chords on the unit sphere.
    EXPECT_FLOAT_EQ(two.ComputeBandwidthFromAngleForNormalClustering(std::numbers::pi_v<float> / 3), 1.0F);
    EXPECT_FLOAT_EQ(two.ComputeAngleFromBandwidthForNormalClustering(0.5F), 2 * std::asin(0.25F));
}

TEST(CMeanShiftClusterer, RatesAModel)
{
    // Clusters {0, 1, 5} around 2 (one of them is nearest) and {100}, so the variance is (4 + 1 + 9) / 2.
    const float rows[] = {0, 1, 5, 100};
    CMeanShiftClusterer clusterer(rows, 4, 1, 20.0F);
    ASSERT_TRUE(clusterer.Run());
    const unsigned large = clusterer.GetClusterSize(0) == 3 ? 0 : 1;
    EXPECT_EQ(clusterer.GetClusterRepresentative(large), 1);
    EXPECT_EQ(clusterer.ComputeDunnIndex(), 19.0F);
    const double expected =
        3 * std::log(3.0 / 4) - std::log(4.0) - 2 * std::log(2 * std::numbers::pi * 7) - 1 - 2 * std::log(4.0);
    EXPECT_NEAR(clusterer.ComputeBIC(), expected, 1e-5);
}

TEST(CMeanShiftClusterer, SurvivesDataThatCannotBeClustered)
{
    const float rows[] = {0, 1, 2, nan};
    CMeanShiftClusterer bad(rows, 4, 1, 1.0F);
    EXPECT_FALSE(bad.Run());
    EXPECT_FALSE(CMeanShiftClusterer3D(rows + 1, 1, 1.0F).Run());

    // No seed lies in its own kernel, and each is tried only once.
    static int calls = 0;
    CMeanShiftClusterer lost(rows, 3, 1, 1.0F);
    EXPECT_TRUE(lost.Run([](std::size_t, const float*, const float*) { return ++calls, nan; }));
    EXPECT_EQ(calls, 9);
    // Every seed stays where it is, but that is not a shift below nothing.
    CMeanShiftClusterer tiny(rows, 3, 1, 1e-21F);
    EXPECT_TRUE(tiny.Run());
    EXPECT_EQ(tiny.GetNumClusters(), 0U);

    const CMeanShiftClusterer moved(std::move(bad));
    EXPECT_FALSE(bad.Run()); // NOLINT(bugprone-use-after-move)
    EXPECT_FALSE(CMeanShiftClusterer3D().Run());
}

TEST(CMeanShiftClusterer, RejectsMisuse)
{
    constexpr std::size_t huge = std::numeric_limits<std::size_t>::max() / 2;
    const float row[] = {1, 2, 3};
    const auto expect = [](const std::string& text, const float* data, std::size_t n, std::size_t dim, float h) {
        const auto throwsText = testing::ThrowsMessage<std::invalid_argument>("mean shift clustering: " + text);
        EXPECT_THAT(([=] { CMeanShiftClusterer(data, n, dim, h); }), throwsText);
        if (dim != 3) return;
        EXPECT_THAT(([=] { CMeanShiftClusterer3D(data, n, h); }), throwsText);
    };
    expect("missing input data", nullptr, 1, 3, 1);
    expect("missing input data", row, 1, 0, 1);
    expect("invalid bandwidth", row, 1, 3, 0);
    expect("invalid bandwidth", row, 1, 3, nan);
    expect("memory allocation error", row, huge, 3, 1);
    expect("memory allocation error", row, 3, huge, 1);
}

} // namespace
