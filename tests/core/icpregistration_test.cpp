// SPDX-License-Identifier: MIT
#include "tests/support/clouds.h"
#include "tests/support/logcapture.h"
#include "tests/support/matchers.h"
#include "zorvan/core/cpointset.h"
#include "zorvan/core/icpregistration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

using prereg::ConfigurationICP;
using prereg::CPointSet;
using prereg::CTrafo;
using prereg::ICPResult;
using prereg::PairWithError;
using support::IsNearPose;
using support::Vector3;

CPointSet toSet(const support::Surface& surface)
{
    return {surface.points.data(), surface.normals.data(), surface.points.size()};
}

// A surface in another frame: `truth` brings it back.
support::Surface movedAway(support::Surface surface, const CTrafo& truth)
{
    const CTrafo away = truth.GetInverse(true);
    for (auto& p : surface.points) p = away * p;
    for (auto& n : surface.normals) n = away.Rotate(n);
    return surface;
}

// Two samplings of one surface; the second in a frame of its own.
struct Scans
{
    static constexpr float noise = 0.005F;

    CTrafo truth{Vector3(0.4F, -0.3F, 1.0F), Vector3(30, -20, 10)};
    CPointSet fix = toSet(support::BumpySurface(20000, 1, noise));
    CPointSet flt = toSet(movedAway(support::BumpySurface(20000, 2, noise), truth));

    [[nodiscard]] ICPResult Align(const ConfigurationICP& config, const CTrafo& start, const CTrafo* oracle = nullptr,
                                  unsigned seed = 1) const
    {
        std::mt19937 rng(seed);
        return fix.ComputeICPRegistration(config, rng, flt, start, oracle, false);
    }
};

const Scans& scans()
{
    static const Scans pair;
    return pair;
}

CTrafo off(float angle, float shift)
{
    return CTrafo(Vector3(angle, -angle, angle), Vector3(shift, shift, -shift)) * scans().truth;
}

TEST(PairwiseICP, FindsThePoseFromManyStarts)
{
    int found = 0;
    for (unsigned seed = 0; seed < 20; ++seed) {
        const float side = seed % 2 == 0 ? 1.0F : -1.0F;
        const ICPResult result = scans().Align({}, off(0.03F * side, 0.6F * side), nullptr, seed);
        if (!result) continue;
        ++found;
        EXPECT_THAT(result.GetTrafo(), IsNearPose(scans().truth, 0.1, 0.15)) << result.ToString(false);
        EXPECT_GT(result.fStop_OverlapRatio, 0.7F);
        EXPECT_LT(result.GetStdDev(), 0.02F);
    }
    EXPECT_GE(found, 18);
}

TEST(PairwiseICP, EqualEngineStatesGiveEqualResultsAndStayUntouched)
{
    std::mt19937 rng(5);
    const std::mt19937 before = rng;
    const auto run = [&] {
        return scans().fix.ComputeICPRegistration({}, rng, scans().flt, off(0.03F, 0.5F), nullptr, true);
    };
    const ICPResult first = run();
    EXPECT_EQ(rng, before);
    const ICPResult second = run();
    EXPECT_EQ(first.GetTrafo(), second.GetTrafo());
    EXPECT_EQ(first.ToString(false), second.ToString(false));
    rng.seed(6);
    EXPECT_FALSE(run().GetTrafo() == first.GetTrafo()) << "other samples, other rounding";
}

TEST(PairwiseICP, EveryAcceptanceTestHasItsOutcome)
{
    struct Case
    {
        const char* name;
        int outcome;
        std::function<void(ConfigurationICP&)> change;
    };
    const Case cases[] = {
        {"slip", 11, [](ConfigurationICP& c) { c.dMaxStdDev = 1e-4; }},
        {"small/big", 8, [](ConfigurationICP& c) { c.dMinSmallBigRatio = 1.1; }},
        {"RMSE", 10, [](ConfigurationICP& c) { c.dMaxRMSE = 1e-5; }},
        {"overlap", 9, [](ConfigurationICP& c) { c.dMinOverlapRatio = 1.1; }},
        {"oracle", 7, [](ConfigurationICP& c) { c.dMaxMovement = 0.1; }},
        {"no oracle check", 0, [](ConfigurationICP& c) { c.dMaxMovement = -1; }},
        {"no slip check", 0, [](ConfigurationICP& c) { c.dMaxStdDev = 0; }},
    };
    const CTrafo oracle = off(0.0F, 1.0F);
    for (const auto& [name, outcome, change] : cases) {
        ConfigurationICP config;
        change(config);
        const ICPResult result = scans().Align(config, off(0.01F, 0.1F), &oracle);
        EXPECT_EQ(result.eICPResult, outcome) << name;
        EXPECT_THAT(result.GetTrafo(), IsNearPose(scans().truth, 0.2, 0.3)) << name << ": the rejected pose is told";
    }
    ConfigurationICP config;
    config.dMinSmallBigRatio = 0;
    EXPECT_EQ(scans().Align(config, off(0.01F, 0.1F)).fStop_SmallBigRatio, -1.0F);
}

TEST(PairwiseICP, FailsWithoutAPoseWhereThereIsNothingToMatch)
{
    const ICPResult far = scans().Align({}, off(0, 500));
    EXPECT_EQ(far.eICPResult, 2);
    EXPECT_EQ(far.fStart_OverlapRatio, 0.0F);
    EXPECT_FALSE(far.GetTrafo());

    const CPointSet five(scans().fix.GetPoints().data(), scans().fix.GetNormals().data(), 5);
    std::mt19937 rng(1);
    const ICPResult tooFew = scans().fix.ComputeICPRegistration({}, rng, five, CTrafo(), nullptr, false);
    EXPECT_EQ(tooFew.eICPResult, 2);
    EXPECT_EQ(tooFew.fStart_OverlapRatio, 0.0F);

    EXPECT_EQ(scans().Align({}, CTrafo::Invalid()).eICPResult, 2);
    ConfigurationICP noSamples;
    noSamples.uiNumSamples = 0;
    EXPECT_EQ(scans().Align(noSamples, scans().truth).eICPResult, 2);
}

TEST(PairwiseICP, PlanesEndWithoutSuccess)
{
    // A flat plate slides along itself: its normal equations are singular.
    support::Surface plate = support::BumpySurface(5000, 3);
    for (auto& p : plate.points) p.z = 0;
    for (auto& n : plate.normals) n = Vector3(0, 0, 1);
    const CPointSet set = toSet(plate);
    const support::LogCapture log;
    std::mt19937 rng(1);
    const ICPResult result =
        set.ComputeICPRegistration({}, rng, set, CTrafo().Translate(Vector3(0.1F, 0, 0)), nullptr, false);
    EXPECT_EQ(result.eICPResult, 5);
    EXPECT_FALSE(result.GetTrafo());
    EXPECT_TRUE(log.Has(L"computation of PtP covariances failed"));
}

TEST(PairwiseICP, StopsWhereTheSlipStagnates)
{
    const support::LogCapture log;
    std::mt19937 rng(1);
    const ICPResult same = scans().fix.ComputeICPRegistration({}, rng, scans().fix, CTrafo(), nullptr, false);
    EXPECT_TRUE(same) << same.ToString(false);
    EXPECT_EQ(same.fStart_OverlapRatio, 1.0F);
    EXPECT_TRUE(log.Has(L"(iter.: 4) convergence detected (stagnating sigma)"));

    ConfigurationICP still;
    still.uiMaxNumIterations = 0;
    EXPECT_EQ(scans().Align(still, off(0.001F, 0.01F)).GetTrafo(), off(0.001F, 0.01F)) << "no update is applied";
}

TEST(PairwiseICP, GivesUpFourIterationsAfterItsBestPose)
{
    int numGivenUp = 0;
    for (unsigned seed = 0; seed < 20; ++seed) {
        ConfigurationICP config;
        config.uiNumSamples = 40; // the slip then changes from sample to sample
        const support::LogCapture log;
        const ICPResult result = scans().Align(config, off(0.001F, 0.01F), nullptr, seed);
        if (!log.Has(L"lack of progress")) continue;
        ++numGivenUp;
        const std::wstring last = std::to_wstring(result.iStop_Iterations + 4);
        EXPECT_TRUE(log.Has(L"(iter.: " + last + L") divergence detected")) << result.ToString(false);
    }
    EXPECT_GT(numGivenUp, 3);
}

TEST(PairwiseICP, ASurfaceOfTheOtherSideCountsAsAMismatch)
{
    const auto& points = scans().fix.GetPoints();
    auto normals = scans().fix.GetNormals();
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (points[i].x > 0) normals[i] = -normals[i];
    }
    const CPointSet halfTurned(points.data(), normals.data(), points.size());
    std::mt19937 rng(1);
    const ICPResult result =
        halfTurned.ComputeICPRegistration({}, rng, scans().flt, off(0.001F, 0.01F), nullptr, false);
    EXPECT_NEAR(result.fStop_SmallBigRatio, 0.5, 0.1) << result.ToString(false);
}

TEST(SamplePairs, GivesTheWorseOfTwoPlaneErrorsSorted)
{
    const auto& fix = scans().fix;
    const auto& flt = scans().flt;
    std::vector<int> indices(300);
    std::iota(indices.begin(), indices.end(), 0);
    std::vector<PairWithError> pairs;
    const CTrafo pose = off(0.002F, 0.05F);
    const float rmse = prereg::SamplePairs({}, 1.0F, fix.GetPoints().data(), fix.GetNormals().data(), fix.GetKdTree(),
                                           flt.GetPoints().data(), flt.GetNormals().data(), flt.GetKdTree(), pose,
                                           nullptr, &pairs, &indices, true);
    ASSERT_GT(pairs.size(), 250U);
    EXPECT_TRUE(std::is_sorted(pairs.begin(), pairs.end()));
    double sum = 0;
    for (const auto& pair : pairs) {
        const auto i = static_cast<std::size_t>(pair.fltIndex);
        const auto j = static_cast<std::size_t>(pair.fixIndex);
        const auto [p, n] = pose.Transform(flt.GetPoint(i), flt.GetNormal(i));
        const Vector3 d = p - fix.GetPoint(j);
        const float worse = std::max(std::abs(Dot(d, fix.GetNormal(j))), std::abs(Dot(d, n)));
        EXPECT_NEAR(pair.errorSq, worse * worse, 1e-5);
        EXPECT_FLOAT_EQ(pair.distSq, d.LengthSq());
        sum += pair.errorSq;
    }
    EXPECT_FLOAT_EQ(rmse, static_cast<float>(std::sqrt(sum / static_cast<double>(pairs.size()))));
}

std::vector<PairWithError> pairsWithErrors(const std::vector<float>& errors)
{
    std::vector<PairWithError> pairs;
    for (const float e : errors) pairs.push_back({0, 0, 0.0F, e * e});
    return pairs;
}

TEST(ComputeNumberOfInliers, DropsTheWorstOfFewAndTheTailOfMany)
{
    const auto count = [](std::size_t n) {
        return std::get<0>(prereg::ComputeNumberOfInliers(pairsWithErrors(std::vector<float>(n, 1.0F)), 0.675));
    };
    EXPECT_EQ(count(0), 0U);
    EXPECT_EQ(count(2), 2U);
    EXPECT_EQ(count(3), 2U);
    EXPECT_EQ(count(15), 14U);
    EXPECT_EQ(count(16), 16U);
    EXPECT_EQ(std::get<1>(prereg::ComputeNumberOfInliers({}, 1)), std::numeric_limits<float>::infinity());

    // Errors 1 .. 20: median 10.5, MAD 5, so the limit is 10.5 + 1.4826 * 5 * scaling.
    std::vector<float> errors(20);
    std::iota(errors.begin(), errors.end(), 1.0F);
    EXPECT_EQ(std::get<0>(prereg::ComputeNumberOfInliers(pairsWithErrors(errors), 0.675)), 15U);
    EXPECT_EQ(std::get<0>(prereg::ComputeNumberOfInliers(pairsWithErrors(errors), 0.5)), 14U);
    const auto [inliers, rmse] = prereg::ComputeNumberOfInliers(pairsWithErrors(errors), 0.0);
    EXPECT_EQ(inliers, 10U) << "at least everything up to the median";
    EXPECT_FLOAT_EQ(rmse, std::sqrt(38.5F));
}

TEST(ComputeTrafoUpdate, ReducesTheErrorAndTellsTheSlip)
{
    const auto& fix = scans().fix;
    const auto& flt = scans().flt;
    std::vector<int> indices(2000);
    std::iota(indices.begin(), indices.end(), 0);
    std::vector<PairWithError> pairs;
    const auto sample = [&](const CTrafo& pose) {
        return prereg::SamplePairs({}, 4.0F, fix.GetPoints().data(), fix.GetNormals().data(), fix.GetKdTree(),
                                   flt.GetPoints().data(), flt.GetNormals().data(), flt.GetKdTree(), pose, nullptr,
                                   &pairs, &indices, true);
    };
    const CTrafo start = off(0.004F, 0.1F);
    const float before = sample(start);
    const auto updateBy = [&](std::size_t inliers, Vector3* slip) {
        return prereg::ComputeTrafoUpdate({}, fix.GetPoints().data(), fix.GetNormals().data(), flt.GetPoints().data(),
                                          flt.GetNormals().data(), pairs, start, inliers, slip);
    };
    Vector3 slip;
    const CTrafo update = updateBy(pairs.size(), &slip);
    EXPECT_THAT(update, IsNearPose(updateBy(pairs.size(), nullptr), 1e-4, 0.05));
    EXPECT_GE(slip.Length(), std::sqrt(3.0F) * 0.005F) << "never below the point accuracy";
    EXPECT_LT(slip.Length(), 0.05F);

    Vector3 none;
    EXPECT_FALSE(updateBy(0, &none));
    EXPECT_EQ(none.x, std::numeric_limits<float>::infinity());
    EXPECT_EQ(updateBy(0, nullptr), CTrafo());
    EXPECT_LT(sample(update * start), 0.3F * before);
}

TEST(ComputeTrafoUpdate, TellsTheSlipAtTheMiddleOfTheFirstThird)
{
    const auto& fix = scans().fix;
    const auto slipOf = [&fix](const std::array<int, 7>& order) {
        std::vector<PairWithError> pairs;
        for (const int i : order) pairs.push_back({i + 1, i, 0.0F, 0.0F}); // what does not fit has a slip
        Vector3 slip;
        static_cast<void>(prereg::ComputeTrafoUpdate({}, fix.GetPoints().data(), fix.GetNormals().data(),
                                                     fix.GetPoints().data(), fix.GetNormals().data(), pairs, CTrafo(),
                                                     pairs.size(), &slip));
        return slip.Length();
    };
    const float slip = slipOf({0, 100, 200, 300, 400, 500, 600}); // the first third of seven has three
    EXPECT_NEAR(slipOf({200, 0, 100, 300, 400, 500, 600}), slip, 1e-3F * slip);
    EXPECT_GT(std::abs(slipOf({0, 100, 300, 200, 400, 500, 600}) - slip), 1e-2F * slip);
}

} // namespace
