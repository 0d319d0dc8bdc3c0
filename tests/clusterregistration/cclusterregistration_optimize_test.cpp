// SPDX-License-Identifier: MIT
// Refining clusters, and taking them apart.

#include "tests/clusterregistration/scans.h"
#include "tests/support/logcapture.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/runtime/sharedflag.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

using prereg::CClusterRegistration;
using prereg::CTrafo;
using support::CreateCluster;
using support::ExpectRegistered;
using support::ID;
using support::IDs;
using support::IsNearPose;
using support::Journal;
using support::LogCapture;
using support::Scan;
using support::Vector3;

const std::vector<Scan>& views = support::SixViews();

CTrafo toWorld() { return views[4].truth; }

std::vector<CTrafo> disturbed(const std::vector<Scan>& scans)
{
    std::vector<CTrafo> poses;
    std::uint32_t seed = 0;
    for (const Scan& scan : scans) poses.push_back(support::Disturbed(scan.truth, seed++));
    return poses;
}

TEST(OptimizeClusters, BringsAllToThePrimaryEntityWhichStays)
{
    const std::vector<Scan> scans{views[2], views[1], views[0], views[3], views[4], views[5]};
    const auto poses = disturbed(scans);
    for (const bool computeStatistics : {true, false}) {
        CClusterRegistration registration({}, nullptr, nullptr);
        registration.SetFitToPrimary(true);
        ASSERT_TRUE(CreateCluster(registration, ID(9), scans, poses, toWorld()));
        EXPECT_EQ(registration.OptimizeRegistration(computeStatistics, false, false), IDs{ID(9)});
        EXPECT_EQ(registration.GetTrafo(ID(2)), toWorld() * poses[0]);
        ExpectRegistered(registration, scans, 0.02, 0.05);
        EXPECT_EQ(registration.GetChanges(false), registration.GetTrafos(ID(9), false));
        EXPECT_EQ(Journal(registration), "optimize ");
    }
    CClusterRegistration headless({}, nullptr, nullptr); // its primary entity is not in it: the first one stays
    headless.SetFitToPrimary(true);
    ASSERT_TRUE(
        headless.CreateCluster(ID(9), ID(8), CTrafo(),
                               {{ID(0), poses[2], CTrafo(), views[0].set}, {ID(2), poses[0], CTrafo(), views[2].set}}));
    EXPECT_EQ(headless.OptimizeRegistration(true, false, false), IDs{ID(9)});
    EXPECT_EQ(headless.GetTrafo(ID(0)), poses[2]);
    ExpectRegistered(headless, {views[0], views[2]}, 0.05, 0.15);
}

TEST(OptimizeClusters, OfItselfLeavesTheWholeWhereItIsNearestToItsOldPlace)
{
    const auto poses = disturbed(views);
    prereg::ICPPointSetsWithPoses sets;
    for (std::size_t k = 0; k < views.size(); ++k)
        sets.emplace_back(std::make_shared<const prereg::ICPPointSet>(views[k].set), poses[k]);
    std::mt19937 rng(47110815);
    const auto [results, classes] =
        ComputeICPRegistration(prereg::ConfigurationICP(), rng, sets, nullptr, 3, true, false, false);
    CClusterRegistration registration({}, nullptr, nullptr);
    ASSERT_TRUE(CreateCluster(registration, ID(9), views, poses));
    EXPECT_EQ(registration.OptimizeRegistration(true, false, false), IDs{ID(9)});
    EXPECT_EQ(registration.GetTrafo(ID(0)), poses[0]);
    for (unsigned k = 1; k < views.size(); ++k) EXPECT_EQ(registration.GetTrafo(ID(k)), results[k].GetTrafo());
    ExpectRegistered(registration, {views.begin() + 1, views.end()}, 0.05, 0.15);
}

TEST(OptimizeClusters, LeavesAloneWhatItMayNotOrCannotRefine)
{
    const auto poses = disturbed(views);
    CClusterRegistration registration({}, nullptr, nullptr);
    ASSERT_TRUE(CreateCluster(registration, ID(9), views, poses));
    const LogCapture log;
    EXPECT_EQ(registration.OptimizeRegistration(ID(9), true, false, true), IDs{ID(9)});
    EXPECT_TRUE(registration.OptimizeRegistration(ID(8), true, false, false).empty());
    EXPECT_EQ(Journal(registration), "");
    // Told to stop in the midst of the work, by the message that it begins.
    bool abort = false;
    Logging::SetLogSink([&](const Logging::LogRecord& record) {
        if (record.text.find(L"Running (MO)ICP") != std::wstring_view::npos) Zorvan::WriteSharedFlag(abort, true);
    });
    EXPECT_EQ(registration.OptimizeRegistration(ID(9), true, false, abort), IDs{ID(9)});
    EXPECT_TRUE(abort);
    for (std::size_t k = 0; k < views.size(); ++k) EXPECT_EQ(registration.GetTrafo(views[k].id), poses[k]);

    CClusterRegistration alone({}, nullptr, nullptr);
    alone.AddPointSet(ID(0), views[0].set, &poses[0]);
    EXPECT_EQ(alone.OptimizeRegistration(ID(0), true, false, false), IDs{ID(0)});
    EXPECT_EQ(alone.GetTrafo(ID(0)), poses[0]);
}

TEST(OptimizeClusters, PartsThatDoNotTouchAreNamedAfterTheirFirstEntitiesAndTheLargestKeepsTheName)
{
    auto poses = disturbed(views);
    for (const std::size_t k : {0U, 2U}) poses[k] = poses[k].Translate({500, 0, 0});
    // In the second case the cluster's name is that of its first entity, which then cannot name its part as well.
    for (const auto& name : {ID(9), ID(0)}) {
        CClusterRegistration registration({}, nullptr, nullptr);
        registration.SetFitToPrimary(true);
        ASSERT_TRUE(CreateCluster(registration, name, views, poses, toWorld()));
        registration.SetPrimaryClusterID(name);
        const LogCapture log;
        const IDs parts = registration.OptimizeRegistration(name, true, false, false);
        ASSERT_EQ(parts.size(), 2U);
        EXPECT_EQ(registration.GetEntityIDs(name), (IDs{ID(1), ID(3), ID(4), ID(5)}));
        EXPECT_EQ(registration.GetClusterPrimaryID(name), ID(1));
        const UniversalUniqueID other = parts[parts[0] == name];
        EXPECT_EQ(other == ID(0), name == ID(9));
        EXPECT_EQ(registration.GetEntityIDs(other), (IDs{ID(0), ID(2)}));
        // The frame of a part is that of its first entity.
        EXPECT_THAT(registration.GetTrafos(name, true).at(ID(1)), IsNearPose(CTrafo(), 1e-5, 0.03));

        ExpectRegistered(registration, {views[0], views[2]}, 0.05, 0.15);
        ExpectRegistered(registration, {views[1], views[3], views[4], views[5]}, 0.05, 0.15);
        const auto changes = registration.GetChanges(false); // of before the split, which moves nothing
        ASSERT_EQ(changes.size(), 6U);
        for (std::size_t k = 0; k < views.size(); ++k) {
            EXPECT_THAT(registration.GetTrafo(views[k].id), IsNearPose(changes.at(views[k].id), 1e-4, 0.05));
            EXPECT_THAT(registration.GetTrafo(views[k].id), IsNearPose(toWorld() * poses[k], 0.5, 1.0));
        }
        const auto [low, high] = registration.GetPrimaryClusterPointSet().GetAABB();
        EXPECT_LT((high - low).Length(), 80) << "the model is the part that kept the name";
    }
}

TEST(OptimizeClusters, ADamagedSurfaceLeavesAndTheOthersStayUnharmed)
{
    // Half of the points lie 0.04 mm off, to either side: still within the limit, but no other scan is that bad.
    auto scans = views;
    const auto& s = *views[3].set;
    auto points = s.GetPoints();
    for (std::size_t i = 1; i < points.size(); i += 2)
        points[i] = points[i] + s.GetNormals()[i] * (i % 4 == 1 ? 0.04F : -0.04F);
    scans[3].set = std::make_shared<const prereg::CFPFHPointSet>(points, s.GetNormals(), s.GetFeaturePoints(),
                                                                 s.GetFeatureNormals(), s.GetFeatures());
    const auto poses = disturbed(scans);
    prereg::ConfigurationFPFH config;
    config.icpConfig.dMaxRMSE = 0.016; // the damaged scan has 0.0147 mm, the others at most 0.0076
    CClusterRegistration registration(config, nullptr, nullptr);
    registration.SetFitToPrimary(true);
    ASSERT_TRUE(CreateCluster(registration, ID(9), scans, poses));
    const LogCapture log;
    EXPECT_EQ(registration.OptimizeRegistration(ID(9), true, false, false).size(), 2U);
    EXPECT_EQ(registration.GetEntityIDs(ID(3)), IDs{ID(3)});
    EXPECT_THAT(registration.GetTrafo(ID(3)), IsNearPose(poses[3], 1e-5, 0.03));
    ExpectRegistered(registration, {views[0], views[1], views[2], views[4], views[5]}, 0.02, 0.05);
}

TEST(OptimizeClusters, ASurfaceMovedByAMillimetreIsBroughtBackOrLeavesWhenItMayNotMove)
{
    std::vector<CTrafo> poses;
    for (const Scan& scan : views) poses.push_back(scan.truth);
    poses[3] = CTrafo().Translate({0.6F, -0.5F, 0.62F}) * poses[3];
    for (const bool mayMove : {true, false}) {
        SCOPED_TRACE(mayMove);
        prereg::ConfigurationFPFH config;
        if (!mayMove) config.icpConfig.uiMaxNumIterations = 0; // the residuals are then those of the given poses
        CClusterRegistration registration(config, nullptr, nullptr);
        registration.SetFitToPrimary(true);
        ASSERT_TRUE(CreateCluster(registration, ID(9), views, poses));
        const LogCapture log;
        EXPECT_EQ(registration.OptimizeRegistration(ID(9), true, false, false).size(), mayMove ? 1U : 2U);
        if (mayMove) {
            ExpectRegistered(registration, views, 0.04, 0.12);
            continue;
        }
        EXPECT_EQ(registration.GetEntityIDs(ID(3)), IDs{ID(3)});
        EXPECT_THAT(registration.GetTrafo(ID(3)), IsNearPose(poses[3], 1e-5, 0.03));
        ExpectRegistered(registration, {views[0], views[1], views[2], views[4], views[5]}, 0.02, 0.05);
    }
}

// The left part of the surface twice, its right part and its middle, all at their places.
const std::vector<Scan>& strips()
{
    static const std::vector<Scan> scans{support::Strip(3, -20, 0), support::Strip(0, -20, -1),
                                         support::Strip(1, 1, 20), support::Strip(2, -11, 11)};
    return scans;
}

CClusterRegistration registeredStrips(const UniversalUniqueID& name, int& made)
{
    auto config = support::StripSettings();
    config.icpConfig.dMinOverlapRatio = 0.35; // the middle shares some 0.6 with either side
    CClusterRegistration registration(config, nullptr, nullptr);
    registration.SetSearch(support::Counted(made));
    std::vector<CTrafo> poses;
    for (const Scan& scan : strips()) poses.push_back(scan.truth);
    EXPECT_TRUE(CreateCluster(registration, name, strips(), poses, toWorld()));
    return registration;
}

// The coordinate along the surface.
float along(const Vector3& p) { return (toWorld().GetInverse(true) * p).x; }

TEST(CutClusters, WhatLosesItsMiddleFallsInTwoAndOnlyThePrimaryClusterKeepsItsName)
{
    const LogCapture log;
    const auto keep = [](const Vector3& p) { return std::abs(along(p)) > 12; };
    for (const bool isPrimary : {true, false}) {
        for (const auto& name : {ID(9), ID(1)}) { // the second is also the name of the smaller part
            int made = 0;
            CClusterRegistration registration = registeredStrips(name, made);
            registration.SetPrimaryClusterID(isPrimary ? name : ID(8));
            const auto before = registration.GetTrafos(name, false);
            registration.ApplyCut(name, keep);

            const UniversalUniqueID larger = isPrimary ? name : ID(3);
            EXPECT_EQ(registration.GetEntityIDs(larger), (IDs{ID(0), ID(3)}));
            EXPECT_EQ(registration.GetClusterPrimaryID(larger), ID(3));
            EXPECT_THAT(registration.GetTrafos(larger, true).at(ID(0)), IsNearPose(CTrafo(), 1e-5, 0.03));
            const UniversalUniqueID smaller = registration.GetClusterID(ID(1));
            EXPECT_EQ(smaller == ID(1), !isPrimary || name == ID(9));
            EXPECT_EQ(registration.GetEntityIDs(smaller), IDs{ID(1)});
            EXPECT_EQ(registration.GetClusterIDs().size(), 2U) << "nothing is left of the middle";
            EXPECT_EQ(registration.GetPrimaryClusterID(), isPrimary ? name : ID(8));
            for (const auto& id : {ID(0), ID(1), ID(3)}) {
                const auto [set, pose] = registration.GetPointSetAndTransform(id);
                EXPECT_THAT(pose, IsNearPose(before.at(id), 1e-4, 0.05));
                ASSERT_TRUE(set != nullptr && set->Size() > 1000);
                for (const Vector3& p : set->GetPoints()) EXPECT_GT(std::abs(along(pose * p)), 11.999F);
            }
            EXPECT_EQ(registration.GetChanges(false), before) << "where they were when their surface changed";
            EXPECT_EQ(made, 1) << "the parts are tried with each other";
        }
    }
}

TEST(CutClusters, WhatHoldsTogetherKeepsItsNameAndWhatIsUntouchedIsLeftAlone)
{
    const LogCapture log;
    int made = 0;
    CClusterRegistration registration = registeredStrips(ID(9), made);
    registration.SetPrimaryClusterID(ID(9));
    const auto before = registration.GetTrafos(ID(9), false);
    const auto whole = registration.GetPrimaryClusterPointSet();
    registration.ApplyCut(ID(9), [](const Vector3&) { return true; });
    registration.ApplyCut(ID(8), [](const Vector3&) { return false; });
    EXPECT_TRUE(registration.GetChanges(false).empty());
    for (const Scan& scan : strips()) EXPECT_EQ(registration.GetPointSetAndTransform(scan.id).first, scan.set);
    EXPECT_FALSE(log.Has(L" cluster(s):")) << "no split was tried";

    const auto keep = [](const Vector3& p) { return along(p) < 11; }; // of the right part only
    registration.ApplyCut(ID(9), keep);
    EXPECT_EQ(registration.GetTrafos(ID(9), false), before);
    EXPECT_EQ(registration.GetChanges(true), (CClusterRegistration::Trafos{{ID(1), before.at(ID(1))}}));
    const auto expected = static_cast<double>(whole.RestrictWithPredicate(keep).Size());
    EXPECT_NEAR(static_cast<double>(registration.GetPrimaryClusterPointSet().Size()), expected, 20) << "edge cells";
    EXPECT_EQ(Journal(registration), "primary_cluster_id cut cut cut ");
}

// A search that finds nothing; counts how often one is made.
CClusterRegistration::SearchFactory vain(int& made)
{
    return [&made](const auto& fix, const auto& flt, auto config, const auto*) {
        ++made;
        config.uiNumPolygons = 0;
        return std::make_unique<prereg::CFPFHPreRegistration>(fix, flt, config);
    };
}

TEST(CutClusters, APartIsTriedAnewUnderANameThatFailedBefore)
{
    const LogCapture log;
    int made = 0;
    CClusterRegistration registration({}, nullptr, nullptr);
    registration.SetSearch(vain(made));
    CreateCluster(registration, ID(0), {views[2]}, {CTrafo()});
    CreateCluster(registration, ID(5), {views[5]}, {CTrafo()});
    EXPECT_FALSE(registration.Run());
    registration.SetPrimaryClusterID(ID(0));
    for (const auto& other : {ID(5), ID(0)}) { // the names are swapped, and swapped back
        registration.SetPrimaryClusterID(other);
        EXPECT_FALSE(registration.Run() || registration.Run());
    }
    EXPECT_EQ(made, 3) << "once under each name";
    registration.SetPrimaryClusterID(ID(8)); // renamed; the failure stays under the old name
    CreateCluster(registration, ID(9), {views[0], views[1]}, {views[0].truth, views[1].truth});
    registration.ApplyCut(ID(9), [](const Vector3& p) { return p.y < 12; });
    EXPECT_EQ(registration.GetClusterIDs(), (IDs{ID(0), ID(1), ID(5), ID(8)}));
    EXPECT_EQ(made, 3 + 6) << "all pairs of the four";
}

TEST(CutClusters, WhatLosesAllIsGoneAndThePrimaryNameGoesToTheLargestThatIsLeft)
{
    const LogCapture log;
    CClusterRegistration registration({}, nullptr, nullptr);
    for (const unsigned k : {0U, 1U}) registration.AddPointSet(ID(k), views[k].set, nullptr);
    for (const unsigned k : {2U, 4U})
        CreateCluster(registration, ID(5 + k), {views[k], views[k + 1]}, {views[k].truth, views[k + 1].truth});
    const auto cutAll = [&](const UniversalUniqueID& id) {
        registration.ApplyCut(id, [](const Vector3&) { return false; });
        return registration.GetStatusString(1);
    };
    EXPECT_EQ(cutAll(ID(1)), "3 clusters: *f[1]{f} 8[2]{d,c} 6[2]{b,a}");
    EXPECT_EQ(cutAll(ID(0)), "2 clusters: *f[2]{d,c} 6[2]{b,a}") << "the first of two that are as large";
    EXPECT_EQ(cutAll(ID(0)), "1 clusters: *f[2]{b,a}");
    EXPECT_EQ(cutAll(ID(0)), "empty (no clusters / point sets)");
    ASSERT_TRUE(registration.AddPointSet(ID(2), views[2].set, nullptr)) << "the name is free again";
    EXPECT_EQ(registration.GetStatusString(1), "1 clusters: *f[1]{d}");
}

} // namespace
