// SPDX-License-Identifier: MIT
#include "tests/support/clouds.h"
#include "tests/support/logcapture.h"
#include "tests/support/matchers.h"
#include "zorvan/core/icpregistration.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/numerics/symsolvers.h"
#include "zorvan/runtime/sharedflag.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <cwchar>
#include <limits>
#include <numbers>

namespace {

using prereg::ConfigurationICP;
using prereg::CTrafo;
using prereg::EDraws;
using prereg::ICPPointSet;
using prereg::ICPPointSetsWithPoses;
using prereg::ICPResult;
using support::IsNearPose;
using support::Surface;
using support::Vector3;
using Zorvan::symsolvers::PackedSize;
using Outcome = std::pair<std::vector<ICPResult>, Zorvan::CDisjointSets>;

constexpr float pi = std::numbers::pi_v<float>;
constexpr float inf = std::numeric_limits<float>::infinity();

std::shared_ptr<const ICPPointSet> toSet(const Surface& surface, const float* weights = nullptr)
{
    return std::make_shared<ICPPointSet>(
        std::make_shared<prereg::CPointSet>(surface.points.data(), surface.normals.data(), surface.points.size()),
        weights);
}

Surface moved(Surface surface, const CTrafo& pose)
{
    for (auto& p : surface.points) p = pose * p;
    for (auto& n : surface.normals) n = pose.Rotate(n);
    return surface;
}

// Views of a bumpy ball from six sides, each in a frame of its own.
struct Views
{
    std::vector<Surface> surfaces;
    std::vector<CTrafo> truth;

    Views()
    {
        std::mt19937 rng(3);
        for (unsigned k = 0; k < 6; ++k) {
            Vector3 direction;
            direction[k / 2] = k % 2 == 0 ? 1.0F : -1.0F;
            truth.push_back(support::RandomPose(rng, 20.0F));
            surfaces.push_back(
                moved(support::BumpyBall(direction, 1.2F, 4000, k, 0.005F), truth.back().GetInverse(true)));
        }
    }

    // The given poses: about 0.3 degrees and 0.1 mm off.
    [[nodiscard]] ICPPointSetsWithPoses Disturbed() const
    {
        std::mt19937 rng(4);
        ICPPointSetsWithPoses sets;
        for (std::size_t k = 0; k < truth.size(); ++k) {
            const CTrafo off(support::RandomDirection(rng), 0.005F, support::RandomDirection(rng) * 0.1F);
            sets.emplace_back(toSet(surfaces[k]), off * truth[k]);
        }
        return sets;
    }
};

Outcome optimize(const ICPPointSetsWithPoses& sets, const ConfigurationICP& config = {},
                 const std::shared_ptr<Zorvan::CJobScheduler::Group>& group = nullptr, bool computeStatistics = true,
                 double zScoreLimit = 3.0)
{
    std::mt19937 rng(1);
    const bool abort = false;
    return ComputeICPRegistration(config, rng, sets, group, zScoreLimit, computeStatistics, false, abort);
}

std::string classesOf(const Outcome& outcome) { return outcome.second; }

std::vector<float> valuesOf(const Outcome& outcome)
{
    std::vector<float> values;
    for (const ICPResult& r : outcome.first) {
        for (const auto& row : r.trafo.GetMatrix()) values.insert(values.end(), row.begin(), row.end());
        const Vector3& slip = r.vStop_StdDev;
        values.insert(values.end(), {slip.x, slip.y, slip.z, r.fStart_RMSE, r.fStop_RMSE, r.fStop_MOICP_ZScore});
    }
    return values;
}

TEST(MultiObjectICP, RecoversPosesAndTellsTheirSlip)
{
    const Views views;
    const auto given = views.Disturbed();
    for (const bool computeStatistics : {true, false}) {
        const auto [results, classes] = optimize(given, {}, nullptr, computeStatistics);
        ASSERT_EQ(classes.GetNumClasses(), 1U);
        Vector3 drift;
        for (std::size_t k = 0; k < results.size(); ++k) {
            const ICPResult& r = results[k];
            const CTrafo toFirst = results[0].trafo.GetInverse(true) * r.trafo;
            const CTrafo truth = views.truth[0].GetInverse(true) * views.truth[k];
            EXPECT_THAT(toFirst, IsNearPose(truth, 0.02, 0.05)) << k;
            const Vector3 centre = given[k].first->GetEllipsoid().center;
            EXPECT_LE((toFirst * centre - truth * centre).Length(), 3 * r.GetStdDev() + 1e-5F) << k;
            EXPECT_LT(r.GetStdDev(), 0.06F);
            EXPECT_EQ(r.eICPResult, -1);
            EXPECT_LT(r.fStop_RMSE, 0.01F);
            EXPECT_GT(r.fStart_RMSE, 0.03F);
            EXPECT_GT(r.iStop_Iterations, 0);
            EXPECT_GT(r.iStop_NumberOfInliers, 50);
            EXPECT_NEAR(r.fStop_OverlapRatio * 500, r.iStop_NumberOfInliers, 0.501);
            EXPECT_EQ(r.ellipsoid.tips[0], r.trafo * given[k].first->GetEllipsoid().tips[0]);
            for (const Vector3& tip : given[k].first->GetEllipsoid().tips) {
                drift = drift + r.trafo * tip - given[k].second * tip;
            }
        }
        EXPECT_LT(drift.Length(), 1e-3F) << "the group as a whole stays where it was";
    }
}

// The first step once more: one dense design matrix, a row for each point and plane, and a plain regression.
struct Regression
{
    std::vector<double> design;
    std::vector<double> rhs;
    float maxErrorSq = 0.0F;
};

void addPair(Regression& system, const ICPPointSetsWithPoses& sets, const ConfigurationICP& config, std::size_t i,
             std::size_t j)
{
    const auto add = [&](std::size_t a, std::size_t b, const Vector3& p, const Vector3& q, const Vector3& n, double w) {
        const Vector3 turn = kdtree::Cross(p, n);
        std::vector<double> row(6 * sets.size());
        for (unsigned k = 0; k < 6; ++k) {
            row[6 * a + k] = std::sqrt(w) * (k < 3 ? turn[k] : n[k - 3]);
            row[6 * b + k] = -row[6 * a + k];
        }
        system.design.insert(system.design.end(), row.begin() + 6, row.end()); // the first set stays
        system.rhs.push_back(std::sqrt(w) * kdtree::Dot(q - p, n));
    };
    const auto& fix = *sets[i].first;
    const auto& flt = *sets[j].first;
    std::mt19937 rng(1);
    std::uniform_int_distribution<int> draw(0, static_cast<int>(flt.Size()) - 1);
    std::vector<prereg::PairWithError> pairs;
    prereg::SamplePairs(
        config, 64.0F, fix.GetPoints(), fix.GetNormals(), fix.GetKdTree(), flt.GetPoints(), flt.GetNormals(),
        flt.GetKdTree(), sets[i].second.GetInverse(false) * sets[j].second, [&] { return draw(rng); }, &pairs, nullptr,
        true);
    const std::size_t inliers = std::get<0>(prereg::ComputeNumberOfInliers(pairs, config.dInlierScaling));
    float running = 0.0F;
    for (std::size_t k = 0; k < inliers && inliers >= 6; ++k) {
        if (pairs[k].distSq > running) running = pairs[k].errorSq;
        const auto a = static_cast<std::size_t>(pairs[k].fixIndex);
        const auto b = static_cast<std::size_t>(pairs[k].fltIndex);
        const auto [p, n] = sets[i].second.Transform(*fix.GetPoint(a), *fix.GetNormal(a));
        const auto [q, o] = sets[j].second.Transform(*flt.GetPoint(b), *flt.GetNormal(b));
        const bool isWeighted = fix.HasWeights() && flt.HasWeights();
        const double weight = isWeighted ? std::min(fix.GetWeight(a), flt.GetWeight(b)) : 1.0;
        add(i, j, p, q, o, weight);
        add(j, i, q, p, n, weight);
    }
    system.maxErrorSq = std::max(system.maxErrorSq, running);
}

// Poses after that step, and the length of each slip.
std::vector<std::pair<CTrafo, double>> solve(const Regression& system, const ICPPointSetsWithPoses& sets,
                                             const ConfigurationICP& config)
{
    std::vector<double> x(6 * (sets.size() - 1));
    std::vector<double> covariance(PackedSize(x.size()));
    std::vector<double> work(covariance.size() + x.size());
    EXPECT_TRUE(Zorvan::symsolvers::LinearRegression(system.design.data(), system.rhs.data(),
                                                     static_cast<int>(system.rhs.size()), static_cast<int>(x.size()),
                                                     x.data(), covariance.data(), work.data()));

    std::vector<std::pair<CTrafo, double>> result{{sets[0].second, 0.0}};
    for (std::size_t k = 1; k < sets.size(); ++k) {
        const std::size_t first = 6 * (k - 1);
        const auto f = [&](std::size_t i) { return static_cast<float>(x[first + i]); };
        const CTrafo pose = CTrafo(Vector3(f(0), f(1), f(2)), Vector3(f(3), f(4), f(5))) * sets[k].second;
        std::vector<double> block;
        for (std::size_t r = first; r < first + 6; ++r) {
            for (std::size_t c = first; c <= r; ++c) block.push_back(covariance[PackedSize(r) + c]);
        }
        const Vector3 c = pose * sets[k].first->GetEllipsoid().center;
        const Vector3 e = pose.GetEulerAngles();
        const double values[] = {
            config.dPointAccuracy, config.dPointAccuracy, config.dPointAccuracy, c.x, c.y, c.z, e.x, e.y, e.z};
        double v[3];
        Zorvan::symsolvers::PropagateTrafoErrors(false, v, values, block.data(), values + 3, values + 6);
        result.emplace_back(pose, std::sqrt(v[0] + v[1] + v[2]));
    }
    return result;
}

TEST(MultiObjectICP, OneStepAgreesWithARegressionOnAllRows)
{
    const Views views;
    std::vector<float> weights(4000);
    for (std::size_t i = 0; i < weights.size(); ++i) weights[i] = static_cast<float>(i % 7) * 0.5F;
    ConfigurationICP config;
    config.uiMaxNumIterations = 0;
    config.uiNumSamples = 100;
    config.dMaxRMSE = 10;
    for (const std::size_t numWeighted : {0U, 1U, 6U}) {
        auto sets = views.Disturbed();
        for (std::size_t k = 0; k < numWeighted; ++k) sets[k].first = toSet(views.surfaces[k], weights.data());
        Regression system;
        for (std::size_t i = 1; i < sets.size(); ++i) {
            for (std::size_t j = 0; j < i; ++j) addPair(system, sets, config, i, j);
        }
        const auto dense = solve(system, sets, config);
        const support::LogCapture log;
        const auto [results, classes] = optimize(sets, config, nullptr, true, 1e9);
        wchar_t text[40];
        std::swprintf(text, std::size(text), L"max.PtP %.3f mm", std::sqrt(static_cast<double>(system.maxErrorSq)));
        EXPECT_TRUE(log.Has(text)) << "the next radius";
        const CTrafo gauge = dense[0].first * results[0].trafo.GetInverse(true);
        for (std::size_t k = 0; k < sets.size(); ++k) {
            EXPECT_THAT(gauge * results[k].trafo, IsNearPose(dense[k].first, 1e-4, 1e-3)) << k;
            // The residuals that the slip rests on are those without weights.
            if (numWeighted == 6) continue;
            EXPECT_NEAR(results[k].GetStdDev(), dense[k].second, 1e-4 * dense[k].second) << k;
        }
    }
}

TEST(MultiObjectICP, GivesTheSameBytesOnAnyNumberOfThreads)
{
    const auto sets = Views().Disturbed();
    for (const bool computeStatistics : {true, false}) {
        const auto alone = valuesOf(optimize(sets, {}, nullptr, computeStatistics));
        for (const unsigned threads : {1U, 2U, 4U}) {
            Zorvan::CJobScheduler scheduler(threads);
            EXPECT_EQ(valuesOf(optimize(sets, {}, scheduler, computeStatistics)), alone) << threads;
        }
    }
}

/// Views of a bumpy ball, all of its top: each overlaps all others.
ICPPointSetsWithPoses manyViewsOfOnePlace()
{
    std::mt19937 rng(5);
    ICPPointSetsWithPoses sets;
    for (unsigned k = 0; k < 34; ++k) {
        const CTrafo off(support::RandomDirection(rng), 0.002F, support::RandomDirection(rng) * 0.05F);
        sets.emplace_back(toSet(support::BumpyBall(Vector3(0, 0, 1), 0.9F, 4000, k, 0.005F)), off);
    }
    return sets;
}

// 561 pairs of 500 draws each would draw each of the 4,000 points twice.
TEST(MultiObjectICP, SharedDrawsFindPosesAsNearToTheTruth)
{
    const auto sets = manyViewsOfOnePlace();
    ConfigurationICP config;
    config.dPointAccuracy = 0.0; // what the draws say, and no more
    const auto run = [&](EDraws eDraws, const std::shared_ptr<Zorvan::CJobScheduler::Group>& group) {
        std::mt19937 rng(1);
        return ComputeICPRegistration(config, rng, sets, group, 3.0, true, Zorvan::Hooks::None(), eDraws);
    };
    const Outcome all = run(EDraws::OfEachPair, nullptr);
    const Outcome shared = run(EDraws::Shared, nullptr);
    ASSERT_EQ(shared.second.GetNumClasses(), 1U);
    double errorOfAll = 0.0;
    double errorOfShared = 0.0;
    for (std::size_t k = 1; k < sets.size(); ++k) {
        const Vector3 centre = sets[k].first->GetEllipsoid().center;
        const auto errorSq = [&](const Outcome& outcome) {
            return (outcome.first[0].trafo.GetInverse(true) * outcome.first[k].trafo * centre - centre).LengthSq();
        };
        errorOfAll += static_cast<double>(errorSq(all));
        errorOfShared += static_cast<double>(errorSq(shared));
        // 243 draws a pair instead of 500: they know the pose less well, and say so.
        EXPECT_NEAR(shared.first[k].GetStdDev(), std::sqrt(500.0 / 243.0) * all.first[k].GetStdDev(),
                    0.2 * all.first[k].GetStdDev());
        // Counted as if all had been drawn.
        EXPECT_NEAR(shared.first[k].fStop_OverlapRatio, all.first[k].fStop_OverlapRatio, 0.03) << k;
    }
    EXPECT_LT(errorOfShared, 1.5 * errorOfAll);
    Zorvan::CJobScheduler scheduler(3);
    EXPECT_EQ(valuesOf(run(EDraws::Shared, scheduler)), valuesOf(shared));
}

// Two heaps of scans whose only link is a narrow strip: of so few draws none would meet there.
TEST(MultiObjectICP, SharedDrawsKeepWhatHardlyOverlaps)
{
    ICPPointSetsWithPoses sets;
    for (unsigned k = 0; k < 40; ++k) {
        const float lean = k % 2 == 0 ? 0.61F : -0.61F;
        sets.emplace_back(toSet(support::BumpyBall(Vector3(std::sin(lean), 0, std::cos(lean)), 0.65F, 1500, k, 0.005F)),
                          CTrafo());
    }
    std::mt19937 rng(1);
    const auto [results, classes] =
        ComputeICPRegistration({}, rng, sets, nullptr, 3.0, true, Zorvan::Hooks::None(), EDraws::Shared);
    EXPECT_EQ(classes.GetNumClasses(), 1U);
}

TEST(MultiObjectICP, OptimisesEachPartByItselfAndLeavesLoneSetsAlone)
{
    Views views;
    views.surfaces[4].points[7].x = inf; // takes the set its ellipsoid, and so its slip, but not its place
    auto sets = views.Disturbed();
    const CTrafo away = CTrafo().Translate(Vector3(500, 0, 0));
    for (const std::size_t k : {1U, 3U}) sets[k].second = away * sets[k].second;
    sets[5].second = away * away * sets[5].second;
    // Nor can these have a partner.
    const Surface five{{5, Vector3(1, 2, 3)}, {5, Vector3(0, 0, 1)}};
    sets.emplace_back(toSet({}), CTrafo());
    sets.emplace_back(toSet(five), views.truth[0]);
    sets.emplace_back(sets[0].first, CTrafo::Invalid());
    sets.emplace_back(sets[0].first, CTrafo().Translate(Vector3(inf, 0, 0)));

    // Sides 1 and 3 of the ball touch, as do 0, 2 and 4.
    const Outcome outcome = optimize(sets);
    EXPECT_EQ(outcome.second.GetNumClasses(), 7U);
    for (unsigned k = 0; k < 10; ++k) {
        const unsigned size = k >= 5 ? 1 : k % 2 == 0 ? 3 : 2;
        EXPECT_EQ(outcome.second.GetClassSize(k), size) << classesOf(outcome);
        EXPECT_EQ(outcome.first[k].eICPResult, size == 1 ? 9 : -1) << k;
        const bool isUntouched = std::memcmp(&outcome.first[k].trafo, &sets[k].second, sizeof(CTrafo)) == 0;
        EXPECT_EQ(isUntouched, size == 1) << k;
        EXPECT_EQ(std::isfinite(outcome.first[k].GetStdDev()), k != 4) << k;
    }
    for (const unsigned k : {3U, 4U}) {
        const unsigned partner = k % 2;
        EXPECT_THAT(outcome.first[partner].trafo.GetInverse(true) * outcome.first[k].trafo,
                    IsNearPose(views.truth[partner].GetInverse(true) * views.truth[k], 0.05, 0.15));
    }

    const Outcome one = optimize({sets[0]});
    EXPECT_EQ(one.first[0].eICPResult, 2);
    EXPECT_EQ(one.first[0].trafo, sets[0].second);
    EXPECT_TRUE(optimize({}).first.empty());
    EXPECT_THROW(optimize({sets[0], {nullptr, CTrafo()}}), std::invalid_argument);
    EXPECT_THROW(ICPPointSet(nullptr), std::invalid_argument);
}

TEST(MultiObjectICP, ASineThatRoundsAboveOneStillGivesASlip)
{
    const CTrafo turned(Vector3(0, 0, 1), Vector3(0, 1, 0), Vector3(-1.0000001F, 0, 0), Vector3());
    ASSERT_TRUE(std::isnan(turned.GetEulerAngles().y));
    const auto whole = [](unsigned seed) { return toSet(support::BumpyBall(Vector3(0, 0, 1), pi, 4000, seed)); };
    EXPECT_LT(optimize({{whole(1), turned}, {whole(2), turned}}).first[1].GetStdDev(), 0.1F);
}

TEST(MultiObjectICP, SixInliersHoldTwoSetsTogether)
{
    const auto whole = toSet(support::BumpyBall(Vector3(0, 0, 1), pi, 4000, 1));
    for (const unsigned samples : {6U, 7U}) { // the worst of so few goes
        ConfigurationICP config;
        config.uiNumSamples = samples;
        EXPECT_EQ(optimize({{whole, CTrafo()}, {whole, CTrafo()}}, config).second.GetNumClasses(), 8 - samples);
    }
}

TEST(MultiObjectICP, ASetThatOnlyTheWideSearchReachesSplitsOff)
{
    // A larger ball around the other two: no rigid motion brings it nearer.
    ICPPointSetsWithPoses sets;
    for (const unsigned seed : {1U, 2U, 3U}) {
        Surface ball = support::BumpyBall(Vector3(0, 0, 1), pi, 4000, seed);
        for (auto& p : ball.points) p = p * (seed == 3 ? 1.25F : 1.0F);
        sets.emplace_back(toSet(ball), CTrafo());
    }
    const support::LogCapture log;
    EXPECT_EQ(classesOf(optimize(sets)), "{{0, 1}, {2}}");
    EXPECT_TRUE(log.Has(L"ICP# iter"));
}

TEST(MultiObjectICP, ASetWhoseResidualStandsOutLeaves)
{
    Views views;
    auto& rough = views.surfaces[3];
    for (std::size_t i = 0; i < rough.points.size(); ++i) {
        rough.points[i] = rough.points[i] + rough.normals[i] * (i % 2 == 0 ? 0.04F : -0.04F);
    }
    auto sets = views.Disturbed();
    ConfigurationICP config;
    config.dMaxRMSE = 10;
    const Outcome kept = optimize(sets, config);
    const double rmse = kept.first[3].fStop_RMSE;
    ASSERT_EQ(kept.second.GetNumClasses(), 1U) << "no z-score counts far below the limit";
    ASSERT_GT(kept.first[3].fStop_MOICP_ZScore, 3.0F);

    const auto classesWith = [&](double maxRMSE, double zScoreLimit) {
        config.dMaxRMSE = maxRMSE;
        return classesOf(optimize(sets, config, nullptr, true, zScoreLimit));
    };
    const std::string without = "{{0, 1, 2, 4, 5}, {3}}";
    const std::string all = "{{0, 1, 2, 3, 4, 5}}";
    EXPECT_EQ(classesWith(rmse * 1.01, 3.0), without);
    EXPECT_EQ(classesWith(rmse * 1.01, 1e9), all);
    EXPECT_EQ(classesWith(rmse * 0.99, 1e9), without);
    EXPECT_EQ(classesWith(rmse / 0.84, 3.0), all);
    EXPECT_EQ(classesWith(1e-9, 3.0), "{{0}, {1}, {2}, {3}, {4}, {5}}");
    sets[5].second = sets[5].second.Translate(Vector3(500, 0, 0));
    EXPECT_EQ(classesWith(rmse * 0.7, 3.0), "{{0, 1, 2, 4}, {3}, {5}}") << "a part that falls apart again";
}

TEST(MultiObjectICP, StopsWhenTold)
{
    const auto sets = Views().Disturbed();
    std::mt19937 rng(1);
    const support::LogCapture log;
    bool abort = true;
    const auto [results, classes] = ComputeICPRegistration({}, rng, sets, nullptr, 3.0, true, false, abort);
    EXPECT_EQ(classes.GetNumClasses(), 6U);
    for (const ICPResult& result : results) EXPECT_TRUE(result) << "the given pose, as it came";
    EXPECT_TRUE(log.Has(L"ICP: computation aborted; results are unreliable"));

    // From a log message, so in the midst of the work and from the thread that does it.
    ConfigurationICP strict;
    strict.dMaxRMSE = 1e-9;
    for (const std::wstring_view step : {L"UpdatePairs took", L"SamplePairs took"}) {
        int seen = 0;
        int stepsAfter = 0;
        abort = false;
        Logging::SetLogSink([&](const Logging::LogRecord& record) {
            if (abort && record.text.find(L"Pairs took") != std::wstring_view::npos) ++stepsAfter;
            if (record.text.starts_with(step) && ++seen == 2) Zorvan::WriteSharedFlag(abort, true);
        });
        const auto stopped = ComputeICPRegistration(strict, rng, sets, nullptr, 3.0, true, false, abort);
        EXPECT_EQ(seen, 2);
        EXPECT_EQ(stepsAfter, 0);
        EXPECT_EQ(stopped.first[1].trafo, sets[1].second) << "alone, so where it was";
    }
    EXPECT_EQ(rng, std::mt19937(1)) << "the caller's engine stays where it was";
}

TEST(MultiObjectICP, PlatesThatSlideKeepTheirPoses)
{
    Surface plate = support::BumpySurface(3000, 3);
    for (auto& p : plate.points) p.z = 0;
    for (auto& n : plate.normals) n = Vector3(0, 0, 1);
    // Side by side: the wide search still reaches over 6 mm, but not over 9.
    for (const float shift : {46.0F, 49.0F}) {
        const CTrafo beside(Vector3(0, -1, 0), Vector3(1, 0, 0), Vector3(0, 0, 1), Vector3(0, shift, 0));
        const support::LogCapture log;
        const auto [results, classes] = optimize({{toSet(plate), CTrafo()}, {toSet(plate), beside}});
        EXPECT_EQ(classes.GetNumClasses(), shift < 48 ? 1U : 2U);
        EXPECT_EQ(log.Has(L"ICP: aborting - UpdateTrafos failed (0)"), shift < 48);
        EXPECT_THAT(results[1].trafo, IsNearPose(beside, 1e-4, 1e-4));
    }
}

} // namespace
