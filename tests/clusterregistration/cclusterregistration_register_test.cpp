// SPDX-License-Identifier: MIT
// How clusters find together.

#include "tests/clusterregistration/scans.h"
#include "tests/support/logcapture.h"
#include "zorvan/preregistration/crefinedpreregistration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

namespace {

using prereg::CClusterRegistration;
using prereg::CRefinedPreRegistration;
using prereg::CTrafo;
using support::Counted;
using support::ExpectRegistered;
using support::ID;
using support::IDs;
using support::IsNearPose;
using support::LogCapture;
using support::Scan;
using support::StripSettings;
using support::Vector3;

const std::vector<Scan>& strips()
{
    static const std::vector<Scan> scans = support::LeftRightMiddle();
    return scans;
}

TEST(RegisterClusters, TwoThatMatchOnlyThroughAThirdGetAnotherChanceAndNoFailureIsRepeated)
{
    const LogCapture log;
    int made = 0;
    CClusterRegistration registration(StripSettings(), nullptr, nullptr);
    registration.SetSearch(Counted(made));
    const auto add = [&](const Scan& scan) { registration.AddPointSet(scan.id, scan.set, nullptr); };
    add(strips()[0]);
    add(strips()[1]);
    EXPECT_FALSE(registration.Run());
    EXPECT_EQ(made, 1);
    add(strips()[2]);
    ASSERT_TRUE(registration.Run());
    EXPECT_EQ(made, 3) << "middle with left, then right with both";
    EXPECT_TRUE(log.Has(L"1 clusters: *ffff[3]{ffff,eeee,dddd}"));
    ExpectRegistered(registration, strips(), 0.1, 0.2);

    const Scan& stranger = support::SixViews()[3];
    add(stranger);
    EXPECT_FALSE(registration.Run() || registration.Run());
    EXPECT_EQ(made, 4);
    registration.ApplyCut(ID(3), [](const Vector3&) { return true; });
    EXPECT_FALSE(registration.Run());
    EXPECT_EQ(made, 4) << "nothing was cut";
    registration.ApplyCut(ID(3), [&](const Vector3& p) { return (stranger.truth * p).x > -3; });
    EXPECT_EQ(made, 5) << "a new shape is worth a new search";
    EXPECT_EQ(support::Journal(registration), "point_set point_set run point_set run point_set run run cut run cut ");
}

TEST(RegisterClusters, ThePrimaryClusterStaysAndTheOthersMove)
{
    const LogCapture log;
    for (const auto& primary : {ID(0), ID(2)}) {
        CClusterRegistration registration(StripSettings(), nullptr, nullptr);
        for (const unsigned k : {0U, 2U}) registration.AddPointSet(ID(k), strips()[k].set, &strips()[k].truth);
        // With the second name, the first scan lies in the later cluster.
        registration.SetPrimaryClusterID(primary);
        registration.GetChanges(false);
        ASSERT_TRUE(registration.Run());
        EXPECT_EQ(registration.GetClusterIDs(), IDs{primary});
        EXPECT_EQ(registration.GetClusterPrimaryID(primary), ID(0));
        EXPECT_EQ(registration.GetTrafo(ID(0)), strips()[0].truth);
        ExpectRegistered(registration, {strips()[0], strips()[2]}, 0.1, 0.2);
        EXPECT_EQ(registration.GetChanges(true), (CClusterRegistration::Trafos{{ID(2), registration.GetTrafo(ID(2))}}));
    }
}

TEST(RegisterClusters, ARightPoseFromTheCallerSavesTheSearchAndAWrongOneCostsIt)
{
    const Scan& left = strips()[0];
    const Scan& middle = strips()[2];
    const CTrafo near = support::Disturbed(middle.truth, 1);
    const CTrafo wrong = CTrafo({0, 0, 1}, 1.0F, {}) * middle.truth;
    struct Case
    {
        const CTrafo* preTrafo;
        double dMaxMovement; // > 0: the caller's pose is an oracle
        bool isMerged;
    };
    for (const Case& c : {Case{&near, -1, true}, Case{&wrong, -1, true}, Case{nullptr, 2, true}, Case{&near, 2, true},
                          Case{&wrong, 2, false}}) {
        auto config = StripSettings();
        config.icpConfig.dMaxMovement = c.dMaxMovement;
        CClusterRegistration registration(config, nullptr, nullptr);
        registration.AddPointSet(left.id, left.set, &left.truth);
        registration.AddPointSet(middle.id, middle.set, c.preTrafo);
        const LogCapture log;
        EXPECT_EQ(registration.Run(), c.isMerged);
        EXPECT_EQ(log.Has(L"computing preregistration ..."), c.preTrafo != &near);
        EXPECT_EQ(log.Has(L"external pre-trafo seems to be wrong"), c.preTrafo == &wrong);
        if (!c.isMerged) continue;
        EXPECT_EQ(registration.GetTrafo(left.id), left.truth);
        EXPECT_THAT(registration.GetTrafo(middle.id), IsNearPose(middle.truth, 0.1, 0.2));
    }
}

TEST(RegisterClusters, GivesTheSameBytesOnAnyNumberOfThreads)
{
    const LogCapture log;
    std::vector<std::string> outcomes;
    for (const unsigned threads : {0U, 1U, 3U}) {
        Zorvan::CJobScheduler scheduler(std::max(1U, threads));
        std::mt19937 rng(threads);
        CClusterRegistration registration(StripSettings(), &rng,
                                          threads > 0 ? CClusterRegistration::Group(scheduler) : nullptr);
        for (const Scan& scan : strips()) registration.AddPointSet(scan.id, scan.set, nullptr);
        registration.Run();
        registration.OptimizeRegistration(true, false, false);
        EXPECT_EQ(rng, std::mt19937(47110815));
        std::string& bytes = outcomes.emplace_back();
        for (const auto& [id, pose] : registration.GetTrafos(ID(0), true))
            bytes.append(reinterpret_cast<const char*>(&pose), sizeof pose);
        const auto points = registration.GetPrimaryClusterPointSet().GetPoints();
        bytes.append(reinterpret_cast<const char*>(points.data()), points.size() * sizeof points[0]);
    }
    EXPECT_TRUE(outcomes[0] == outcomes[1] && outcomes[0] == outcomes[2]);
}

TEST(RegisterClusters, ASearchThatJudgesOnAllPointsIsMoreExact)
{
    const LogCapture log;
    auto onAllPoints = StripSettings().icpConfig;
    onAllPoints.dMinQueryRadius = 0.4;
    onAllPoints.uiNumSamples = 2000;
    for (const unsigned k : {0U, 2U}) { // the smaller set is the fixed one, then the floating one
        const Scan& fix = strips()[k];
        const Scan& flt = strips()[2 - k];
        const CTrafo truth = fix.truth.GetInverse(true) * flt.truth;
        CRefinedPreRegistration search(fix.set, flt.set, StripSettings(), onAllPoints);
        ASSERT_TRUE(search.Compute({}));
        EXPECT_THAT(search.GetNextResult().GetTrafo(), IsNearPose(truth, 0.004, 0.01));
        EXPECT_FALSE(search.HasMoreResults() || search.GetNextResult());
        EXPECT_THAT(search.InjectTrafo(support::Disturbed(truth, 2)).GetTrafo(), IsNearPose(truth, 0.004, 0.01));
        EXPECT_TRUE(search.HasMoreResults());
    }
    onAllPoints.dMaxRMSE = 1e-6; // less than any surface has
    CClusterRegistration registration(StripSettings(), nullptr, nullptr);
    registration.SetSearch([&](const auto& fix, const auto& flt, const auto& config, const CTrafo* oracle) {
        return std::make_unique<CRefinedPreRegistration>(fix, flt, config, onAllPoints, oracle);
    });
    for (const Scan& scan : strips()) registration.AddPointSet(scan.id, scan.set, &scan.truth);
    EXPECT_FALSE(registration.Run());
}

// Every entity is in exactly one cluster, no cluster is empty, and there is a primary name.
void expectSound(const CClusterRegistration& registration)
{
    std::size_t entities = 0;
    for (const auto& clusterID : registration.GetClusterIDs()) {
        const auto poses = registration.GetTrafos(clusterID, false);
        EXPECT_FALSE(poses.empty());
        entities += poses.size();
        for (const auto& [id, pose] : poses) EXPECT_TRUE(pose && registration.GetClusterID(id) == clusterID);
    }
    EXPECT_GE(entities, 3U);
    EXPECT_TRUE(registration.GetPrimaryClusterID());
}

TEST(RegisterClusters, HostThreadsMayAskAndChangeWhileItWorks)
{
    const LogCapture log(Logging::ELogLevel::Fatal);
    const Scan& view = support::SixViews()[0];
    auto config = StripSettings();
    config.uiNumPolygons = 5;
    CClusterRegistration registration(config, nullptr, nullptr);
    for (const Scan& scan : strips()) registration.AddPointSet(scan.id, scan.set, &scan.truth);
    std::atomic<bool> isDone = false;
    std::atomic<std::size_t> told = 0;
    std::vector<std::thread> hosts;
    const auto host = [&](const std::function<void(unsigned)>& work) {
        hosts.emplace_back([&isDone, work] {
            for (unsigned i = 0; !isDone; ++i, std::this_thread::yield()) work(i);
        });
    };
    host([&](unsigned i) {
        EXPECT_EQ(registration.AddPointSet(i < 4 ? ID(4 + i) : ID(i % 3), view.set, &view.truth), i < 4);
    });
    host([&](unsigned i) {
        const Scan& scan = strips()[i % 3];
        registration.UpdateTrafos({{scan.id, support::Disturbed(registration.GetTrafo(scan.id), i)}});
    });
    host([&](unsigned i) { told += registration.GetChanges(i % 2 == 0).size(); });
    // A copy is the state of one moment, which no other thread disturbs.
    host([&](unsigned) { expectSound(CClusterRegistration(registration)); });
    host([&](unsigned i) {
        EXPECT_NE(registration.GetStatusString(4).find('*'), std::string::npos);
        for (const auto& id : registration.GetClusterIDs())
            EXPECT_LE(registration.GetTrafos(id, i % 2 == 0).size(), 7U);
        EXPECT_TRUE(i % 8 != 0 || registration.GetPrimaryClusterPointSet().Size() > 0);
    });
    for (int i = 0; i < 6; ++i) {
        registration.Run();
        registration.OptimizeRegistration(i % 2 == 0, false, false);
        expectSound(CClusterRegistration(registration));
    }
    isDone = true;
    for (std::thread& thread : hosts) thread.join();
    expectSound(registration);
    // How often each thread had its turn is up to the machine, but what moved is told in the end.
    told += registration.GetChanges(false).size();
    EXPECT_GE(told, 3U);
}

} // namespace
