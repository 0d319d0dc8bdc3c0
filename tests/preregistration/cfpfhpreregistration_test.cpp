// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cfpfhpreregistration.h"

#include "tests/preregistration/measuredsurface.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numbers>

namespace {

using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;
using prereg::CTrafo;
using prereg::ICPResult;
using support::LogCapture;
using support::Vector3;
using SetPtr = std::shared_ptr<const CFPFHPointSet>;

const SetPtr& fixedSet()
{
    static const SetPtr set = support::Measure(1);
    return set;
}

const CTrafo& truth()
{
    static std::mt19937 rng(7);
    static const CTrafo pose = support::RandomPose(rng, 40);
    return pose;
}

// The left three quarters of another measurement, moved away.
const SetPtr& floatingSet()
{
    static const SetPtr set = [] {
        const auto part = support::Measure(2)->RestrictWithPredicate([](const Vector3& p) { return p.x < 10; });
        return std::make_shared<const CFPFHPointSet>(part.Transform(truth().GetInverse(true)));
    }();
    return set;
}

float distance(const CTrafo& pose, const CTrafo& to, const CFPFHPointSet& flt)
{
    float farthest = 0;
    for (std::size_t i = 0; i < flt.Size(); i += 100) {
        farthest = std::max(farthest, (pose * flt.GetPoint(i) - to * flt.GetPoint(i)).Length());
    }
    return farthest;
}

TEST(CFPFHPreRegistration, FindsThePoseWhicheverSetIsLarger)
{
    CFPFHPreRegistration search(fixedSet(), floatingSet(), support::SearchSettings());
    ASSERT_TRUE(search.Compute({}));
    const ICPResult best = search.PeekBestResult();
    EXPECT_LT(distance(best.GetTrafo(), truth(), *floatingSet()), 0.3F);
    EXPECT_EQ(search.GetAllResults().front().GetTrafo(), best.GetTrafo());
    EXPECT_EQ(search.GetNextResult().GetTrafo(), best.GetTrafo());

    CFPFHPreRegistration swapped(*floatingSet(), *fixedSet(), support::SearchSettings(), true);
    ASSERT_TRUE(swapped.Compute({}));
    EXPECT_LT(distance(swapped.GetNextResult().GetTrafo(), truth().GetInverse(true), *fixedSet()), 0.3F);
    EXPECT_FALSE(CFPFHPreRegistration().PeekBestResult());
}

TEST(CFPFHPreRegistration, GivesTheSameBytesEachTime)
{
    std::vector<std::vector<ICPResult>> results;
    for (int run = 0; run < 2; ++run) {
        CFPFHPreRegistration search(fixedSet(), floatingSet(), support::SearchSettings());
        ASSERT_TRUE(search.Compute({}));
        results.push_back(search.GetAllResults());
    }
    ASSERT_EQ(results[0].size(), results[1].size());
    for (std::size_t i = 0; i < results[0].size(); ++i) {
        EXPECT_EQ(results[0][i].GetTrafo(), results[1][i].GetTrafo());
        EXPECT_EQ(results[0][i].ToString(false), results[1][i].ToString(false));
    }
}

TEST(CFPFHPreRegistration, StopsWhenEnoughProposalsAgree)
{
    unsigned proposed[2] = {};
    for (const unsigned quorum : {0U, 3U}) {
        auto config = support::SearchSettings();
        config.uiNumPolygons = 60;
        config.uiTrafoClusteringQuorum = quorum;
        CFPFHPreRegistration search(fixedSet(), floatingSet(), config);
        const LogCapture log;
        EXPECT_TRUE(search.Compute({}));
        EXPECT_EQ(log.Has(L"top cluster size (3) reached quorum (3)"), quorum == 3);
        proposed[quorum > 0] = search.GetStatistics().proposedTrafos;
        EXPECT_EQ(search.GetStatistics().polygons, 60U);
    }
    EXPECT_LT(proposed[1], proposed[0] / 2);
    EXPECT_GE(proposed[1], 3U);
}

TEST(CFPFHPreRegistration, CanBeAbortedAtAnyMomentAndUsedOn)
{
    auto config = support::SearchSettings();
    config.uiNumPolygons = 25;
    unsigned withResults = 0;
    for (int last = 0; last < 60; last += 7) {
        CFPFHPreRegistration search(fixedSet(), floatingSet(), config);
        int asked = 0;
        const bool isDone = search.Compute([&] { return ++asked > last; });
        if (!isDone) withResults += search.FinalizeAfterAbort() ? 1 : 0;
        EXPECT_EQ(last == 0, asked == 1 && search.GetStatistics().proposedTrafos == 0);
        ASSERT_TRUE(search.Compute({}));
        EXPECT_LT(distance(search.PeekBestResult().GetTrafo(), truth(), *floatingSet()), 0.3F);
    }
    EXPECT_GT(withResults, 0U);
}

TEST(CFPFHPreRegistration, RefinesAndRanksPosesFromElsewhere)
{
    CFPFHPreRegistration search(*floatingSet(), *fixedSet(), support::SearchSettings(), false); // swapped inside
    const CTrafo rough = CTrafo({0, 0, 1}, 0.02F, {0.2F, 0, 0}) * truth().GetInverse(true);
    const ICPResult refined = search.InjectTrafo(rough);
    ASSERT_TRUE(refined);
    EXPECT_LT(distance(refined.GetTrafo(), truth().GetInverse(true), *fixedSet()), 0.3F);
    EXPECT_EQ(search.PeekBestResult().GetTrafo(), refined.GetTrafo());
    EXPECT_FALSE(search.InjectTrafo(CTrafo().Translate({1e4F, 0, 0}) * rough)) << "the boxes do not even touch";
    EXPECT_EQ(search.GetStatistics().proposedTrafos, 1U);

    ICPResult better = refined;
    better.vStop_StdDev = {};
    search.InjectICPResult(better);
    EXPECT_EQ(search.GetNextResult().GetStdDev(), 0.0F);
    EXPECT_TRUE(search.HasMoreResults());
}

TEST(CFPFHPreRegistration, AnOracleRejectsWhatStraysFromIt)
{
    auto config = support::SearchSettings();
    const LogCapture log;
    CFPFHPreRegistration off(fixedSet(), floatingSet(), config);
    EXPECT_FALSE(off.SetOracleTrafo(truth()));
    EXPECT_TRUE(log.Has(L"refusing to set oracle trafo: ineffective due to configuration"));
    config.icpConfig.dMaxMovement = 1.0;
    config.uiNumPolygons = 40;
    CFPFHPreRegistration search(fixedSet(), floatingSet(), config);
    EXPECT_FALSE(search.SetOracleTrafo(CTrafo::Invalid()));
    EXPECT_TRUE(search.SetOracleTrafo(CTrafo().Translate({3, 0, 0}) * truth()));
    EXPECT_FALSE(search.Compute({}));
    EXPECT_NE(search.GetStatistics().ToString().find(" stop/change:"), std::string::npos);

    const CTrafo back = truth().GetInverse(true);
    CFPFHPreRegistration swapped(floatingSet(), fixedSet(), config);
    EXPECT_TRUE(swapped.SetOracleTrafo(back));
    EXPECT_TRUE(swapped.InjectTrafo(back)) << "the oracle is turned as the sets are";
}

TEST(CFPFHPreRegistration, FindsNothingWhereThereIsNothing)
{
    // A sphere has the same features everywhere, and the bumpy surface none of them.
    support::Surface sphere;
    std::mt19937 rng(8);
    for (int i = 0; i < 20000; ++i) {
        sphere.normals.push_back(support::RandomDirection(rng));
        sphere.points.push_back(sphere.normals.back() * 15);
    }
    prereg::CFPFHDataSource source(4.0, 0.4, 0.8, 1, nullptr);
    source.Load(sphere.points, sphere.normals, nullptr);
    CFPFHPreRegistration search(fixedSet(), std::make_shared<const CFPFHPointSet>(source), support::SearchSettings());
    EXPECT_FALSE(search.Compute({}));

    auto config = support::SearchSettings();
    config.icpConfig.uiNumSamples = 1000000;
    const LogCapture log;
    EXPECT_FALSE(CFPFHPreRegistration(fixedSet(), floatingSet(), config).Compute({}));
    EXPECT_TRUE(log.Has(L"too few features in point set 'fix'"));
    EXPECT_FALSE(CFPFHPreRegistration(fixedSet(), nullptr, support::SearchSettings()).Compute({}));
    EXPECT_TRUE(log.Has(L"too few features in point set 'flt'"));
}

TEST(CFPFHPreRegistration, RejectsPosesWhoseFeaturesDoNotAgree)
{
    auto config = support::SearchSettings();
    config.uiNumPolygons = 30;
    config.dVerifyTrafoMaxFeatureDistance = 1e-6; // nothing is that similar
    config.dVerifyTrafoMinConfidence = 0.9;
    CFPFHPreRegistration search(fixedSet(), floatingSet(), config);
    EXPECT_FALSE(search.Compute({}));
    EXPECT_NE(search.GetStatistics().ToString().find(" stop/rejected:"), std::string::npos);
    EXPECT_TRUE(search.InjectTrafo(truth()));
    EXPECT_FALSE(search.HasMoreResults()) << "nor may a pose from elsewhere stay";
}

// Fits itself as it is and after half a turn.
SetPtr saddleSet()
{
    support::Surface saddle;
    std::mt19937 rng(9);
    for (int i = 0; i < 40000; ++i) {
        const Vector3 p = support::RandomDirection(rng) * 10;
        saddle.points.emplace_back(p.x, p.y, 0.03F * (p.x * p.x - p.y * p.y));
        const Vector3 n(-0.06F * p.x, 0.06F * p.y, 1);
        saddle.normals.push_back(n * (1 / n.Length()));
    }
    prereg::CFPFHDataSource source(2.0, 0.3, 0.6, 1, nullptr);
    source.Load(saddle.points, saddle.normals, nullptr);
    return std::make_shared<const CFPFHPointSet>(source);
}

TEST(CFPFHPreRegistration, GroupsTurnsByTheirAngleAndTakesTheBestOfEach)
{
    struct Case
    {
        std::vector<float> angles;
        std::size_t groups;
        float best;
    };
    const auto turn = [](float angle) { return CTrafo({0, 0, 1}, angle, {}); };
    const SetPtr set = saddleSet();
    constexpr float halfTurn = std::numbers::pi_v<float>;
    for (const Case& c : {Case{{0, 0.4F}, 1, 0}, Case{{0.4F, 0}, 1, 0}, Case{{0, 0.7F}, 2, 0},
                          Case{{halfTurn - 0.04F, halfTurn - 0.01F, halfTurn + 0.04F}, 1, halfTurn - 0.01F}}) {
        auto config = support::SearchSettings();
        config.dTrafoOrientationClusteringBandwidth = 0.5;
        config.uiNumPolygons = 0;
        config.icpConfig.uiMaxNumIterations = 0; // poses stay as they are, and all are good enough
        config.icpConfig.dMaxRMSE = 100;
        config.icpConfig.dMinOverlapRatio = 0;
        config.icpConfig.dMinSmallBigRatio = 0;
        config.icpConfig.dMaxStdDev = -1;
        CFPFHPreRegistration search(set, set, config);
        for (const float angle : c.angles) ASSERT_TRUE(search.InjectTrafo(turn(angle))) << angle;
        ASSERT_TRUE(search.FinalizeAfterAbort()) << c.angles[1];
        EXPECT_EQ(search.GetAllResults().size(), c.groups) << c.angles[1];
        EXPECT_EQ(search.PeekBestResult().GetTrafo(), turn(c.best)) << c.angles[1];
    }
}

TEST(CFPFHPreRegistration, KeepsTurnedPosesApart)
{
    // Two poses at one place, half a turn apart, both good.
    const SetPtr set = saddleSet();
    for (const auto& [positions, turns] : {std::pair(2.0, -1.0), {2.0, 0.5}, {0.0, 0.5}}) {
        auto config = support::SearchSettings();
        config.uiNumPolygons = 0;
        config.icpConfig.dMaxStdDev = -1;
        config.dTrafoPositionClusteringBandwidth = positions;
        config.dTrafoOrientationClusteringBandwidth = turns;
        const LogCapture log;
        CFPFHPreRegistration search(set, set, config);
        ASSERT_TRUE(search.InjectTrafo(CTrafo()));
        ASSERT_TRUE(search.InjectTrafo(CTrafo({0, 0, 1}, std::numbers::pi_v<float>, {})));
        ASSERT_TRUE(search.FinalizeAfterAbort());
        EXPECT_EQ(search.GetAllResults().size(), turns > 0 ? 2U : 1U);
        EXPECT_EQ(log.Has(L"(position) clustering failed!"), positions == 0);
        EXPECT_EQ(log.Has(L"#0: cluster size 2"), positions > 0);
        EXPECT_EQ(log.Has(L": cluster size"), positions > 0) << "without positions there are no clusters";
    }
}

TEST(CFPFHPreRegistration, TellsItsStatisticsInWords)
{
    CFPFHPreRegistration::Statistics statistics{20, 9, 2, 7, 0, {{1, 1}, {6, 2}, {11, 3}, {77, 1}, {9, 0}}};
    EXPECT_EQ(statistics.ToString(), "20 polys, 9 proposed trafos (2x ICP/success, 7x ICP/failed, 0x "
                                     "ICP/success/rejected) failure causes: stop/rejected:1x iter/inliers:2x "
                                     "stop/slippery:3x *unknown*:1x");
    EXPECT_EQ(CFPFHPreRegistration().GetStatistics().ToString(),
              "20 polys, 0 proposed trafos (0x ICP/success, 0x ICP/failed, 0x ICP/success/rejected)");
}

} // namespace
