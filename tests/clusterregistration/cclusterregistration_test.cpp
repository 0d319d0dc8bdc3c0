// SPDX-License-Identifier: MIT
#include "zorvan/clusterregistration/cclusterregistration.h"

#include "tests/clusterregistration/scans.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <numbers>
#include <tuple>

namespace {

using prereg::CClusterRegistration;
using prereg::CFPFHPointSet;
using prereg::CTrafo;
using support::CreateCluster;
using support::ID;
using support::IDs;
using support::IsNearPose;
using support::Journal;
using support::LogCapture;
using support::Vector3;

const std::vector<support::Scan>& views = support::SixViews();

const CTrafo place = CTrafo().Translate({5, 0, 0});

// Two scans at their places, a third one that floats.
CClusterRegistration threeScans()
{
    CClusterRegistration registration({}, nullptr, nullptr);
    for (unsigned k = 0; k < 3; ++k) registration.AddPointSet(ID(k), views[k].set, k < 2 ? &views[k].truth : nullptr);
    return registration;
}

float distance(const CFPFHPointSet& a, const CFPFHPointSet& b)
{
    return (a.GetAABB().first - b.GetAABB().first).Length() + (a.GetAABB().second - b.GetAABB().second).Length();
}

TEST(ClusterRegistration, TakesEachEntityOnceAndTellsWhereItIs)
{
    const LogCapture log;
    CClusterRegistration registration({}, nullptr, nullptr);
    EXPECT_EQ(registration.GetStatusString(4), "empty (no clusters / point sets)");
    EXPECT_EQ(registration.GetPrimaryClusterPointSet().Size(), 0U);
    const auto set = views[0].set;
    const auto isNear = [&](const Vector3& p) { return (p - set->GetPoint(0)).Length() < 2; };
    const auto lean = std::make_shared<const CFPFHPointSet>(set->RestrictWithPredicate(isNear));
    EXPECT_FALSE(registration.AddPointSet({}, set, nullptr) || registration.AddPointSet(ID(1), nullptr, nullptr));
    EXPECT_FALSE(registration.AddPointSet(ID(1), lean, nullptr));
    EXPECT_TRUE(registration.GetChanges(false).empty());
    EXPECT_FALSE(registration.GetPrimaryClusterID());

    EXPECT_TRUE(registration.AddPointSet(ID(1), set, nullptr));
    EXPECT_FALSE(registration.AddPointSet(ID(1), views[1].set, &views[1].truth));
    EXPECT_TRUE(registration.AddPointSet(ID(0), views[1].set, &views[1].truth));
    for (const unsigned k : {0U, 1U}) EXPECT_FALSE(registration.AddPointSet(ID(k), set, nullptr));
    EXPECT_EQ(Journal(registration), "point_set point_set ") << "what was refused is not told";
    EXPECT_EQ(registration.GetStatusString(2), "2 clusters: ff[1]{ff} *ee[1]{ee}");
    EXPECT_EQ(registration.GetPointSetAndTransform(ID(1)), std::pair(set, CTrafo()));
    EXPECT_EQ(registration.GetTrafo(ID(0)), views[1].truth);
    EXPECT_FALSE(registration.GetTrafo(ID(2)) || registration.GetPointSetAndTransform(ID(2)).first);
    EXPECT_FALSE(registration.GetClusterTrafo(ID(1))) << "it floats";
}

TEST(ClusterRegistration, TheFirstClusterTakesThePrimaryNameAndMayChangeIt)
{
    const LogCapture log;
    CClusterRegistration registration({}, nullptr, nullptr);
    registration.SetPrimaryClusterID(ID(7));
    registration.AddPointSet(ID(0), views[0].set, nullptr);
    EXPECT_EQ(registration.GetClusterIDs(), IDs{ID(7)});
    // The name of the cluster is also one that an entity may have.
    ASSERT_TRUE(registration.AddPointSet(ID(7), views[1].set, nullptr));
    const UniversalUniqueID fresh = registration.GetClusterID(ID(7));
    EXPECT_TRUE(fresh && !(fresh == ID(7)));
    EXPECT_EQ(registration.GetClusterID(ID(0)), ID(7));

    registration.SetPrimaryClusterID(ID(5));
    EXPECT_EQ(registration.GetClusterID(ID(0)), ID(5));
    for (int i = 0; i < 2; ++i) registration.SetPrimaryClusterID(fresh); // swapped once
    EXPECT_EQ(registration.GetClusterID(ID(0)), fresh);
    EXPECT_EQ(registration.GetClusterID(ID(7)), ID(5));
    EXPECT_EQ(registration.GetPrimaryClusterID(), fresh);
    EXPECT_EQ(Journal(registration), "primary_cluster_id point_set point_set primary_cluster_id primary_cluster_id "
                                     "primary_cluster_id ");
}

TEST(ClusterRegistration, AMoveCountsFromAHundredthOfAMillimetreOrHalfADegree)
{
    using Move = std::tuple<float, float, bool>;
    for (const auto& [shift, turn, counts] :
         {Move(0.0095F, 0.49F, false), Move(0.0105F, 0, true), Move(0, 0.51F, true)}) {
        for (const CTrafo* preTrafo : {&views[0].truth, static_cast<const CTrafo*>(nullptr)}) {
            CClusterRegistration registration({}, nullptr, nullptr);
            registration.AddPointSet(ID(0), views[0].set, preTrafo);
            const CTrafo old = registration.GetChanges(false).at(ID(0));
            const CTrafo turned = old * CTrafo({0, 0, 1}, turn * std::numbers::pi_v<float> / 180, {});
            const CTrafo pose = turned.Translate({0, shift, 0});
            EXPECT_EQ(registration.UpdateTrafo(ID(0), pose), counts) << shift << ' ' << turn;
            EXPECT_THAT(registration.GetTrafo(ID(0)), IsNearPose(counts ? pose : old, 1e-5, 0.03));
            const auto changes = registration.GetChanges(true);
            EXPECT_TRUE(counts ? changes.at(ID(0)) == pose : changes.empty());
            EXPECT_EQ(Journal(registration), "point_set trafo_update ");
        }
    }
}

TEST(ClusterRegistration, TellsEachChangeOnce)
{
    CClusterRegistration registration = threeScans();
    EXPECT_EQ(registration.GetChanges(false).at(ID(0)), views[0].truth) << "the first has a place by itself";
    EXPECT_FALSE(registration.UpdateTrafos({}));
    EXPECT_FALSE(registration.UpdateTrafos({{ID(7), place}, {ID(0), views[0].truth}}));
    EXPECT_EQ(Journal(registration), "point_set point_set point_set trafo_update trafo_update ") << "though refused";
    EXPECT_TRUE(registration.UpdateTrafos({{ID(1), place}, {ID(0), place}, {ID(7), place}}));
    EXPECT_TRUE(registration.UpdateTrafos({{ID(2), place}, {ID(2), place}}));
    EXPECT_EQ(registration.GetTrafo(ID(2)), place);
    EXPECT_EQ(registration.GetChanges(true), (CClusterRegistration::Trafos{{ID(0), place}}));
    EXPECT_TRUE(registration.GetChanges(true).empty());
    EXPECT_EQ(registration.GetChanges(false).size(), 2U);
    EXPECT_TRUE(registration.GetChanges(false).empty());
}

TEST(ClusterRegistration, CopiesGoTheirOwnWaysAndWhatWasMovedFromIsEmpty)
{
    const LogCapture log;
    CClusterRegistration first = threeScans();
    CClusterRegistration second(first);
    ASSERT_TRUE(second.UpdateTrafo(ID(0), place));
    second.ApplyCut(ID(1), [](const Vector3&) { return false; });
    EXPECT_EQ(first.GetTrafo(ID(0)), views[0].truth);
    EXPECT_EQ(first.GetClusterIDs().size(), 3U);
    EXPECT_EQ(Journal(first), "point_set point_set point_set ");

    CClusterRegistration third(std::move(second));
    first = third;
    third = std::move(first);
    EXPECT_EQ(third.GetStatusString(1), "2 clusters: *f[1]{f} d[1]{d}");
    EXPECT_THAT(third.GetTrafo(ID(0)), IsNearPose(place, 1e-5, 0.03));
    for (CClusterRegistration* empty : {&first, &second}) { // NOLINT(bugprone-use-after-move): but usable
        EXPECT_EQ(empty->GetStatusString(1) + Journal(*empty), "empty (no clusters / point sets)");
        EXPECT_TRUE(empty->GetChanges(false).empty() && !empty->GetPrimaryClusterID());
        ASSERT_TRUE(empty->AddPointSet(ID(4), views[4].set, &views[4].truth));
        EXPECT_TRUE(empty->UpdateTrafos({{ID(4), place}}));
        EXPECT_LT(distance(empty->GetPrimaryClusterPointSet(), views[4].set->Transform(place)), 0.5F);
    }
}

TEST(ClusterRegistration, TheModelIsTheUnionOfItsSurfacesInTheWorld)
{
    for (const CTrafo& clusterTrafo : {views[4].truth, CTrafo::Invalid()}) {
        const LogCapture log;
        CClusterRegistration registration({}, nullptr, nullptr);
        const std::vector<CTrafo> poses{views[1].truth, views[0].truth};
        ASSERT_TRUE(CreateCluster(registration, ID(9), {views[1], views[0]}, poses, clusterTrafo));
        EXPECT_FALSE(CreateCluster(registration, ID(9), {views[3], views[4]}, poses)) << "the name is taken";
        EXPECT_FALSE(CreateCluster(registration, ID(8), {views[3], {ID(4), {}, nullptr}}, poses)) << "no surface";
        EXPECT_THROW(static_cast<void>(registration.GetPrimaryClusterPointSet()), std::runtime_error);
        registration.SetPrimaryClusterID(ID(9));
        const CFPFHPointSet model = registration.GetPrimaryClusterPointSet();
        EXPECT_EQ(registration.GetPrimaryClusterPointSet().GetPoints(), model.GetPoints());
        EXPECT_EQ(log.Has(L"CACHE HIT!"), static_cast<bool>(clusterTrafo));
        const CTrafo toCommon = poses[1] * registration.GetTrafo(ID(0)).GetInverse(true);
        int sides[2] = {};
        for (const Vector3& p : model.GetPoints()) {
            ++sides[(toCommon * p).x > 0];
            EXPECT_NEAR((toCommon * p).Length(), 20, 2.1F);
        }
        EXPECT_GT(std::min(sides[0], sides[1]), 2000);
    }
    EXPECT_EQ(threeScans().GetPrimaryClusterPointSet().GetPoints(),
              views[0].set->Transform(views[0].truth).GetPoints());
}

TEST(ClusterRegistration, TheModelFollowsItsScansWhileCopiesAndWaitingJobsHoldItsOldSurface)
{
    Zorvan::CJobScheduler scheduler(1);
    std::promise<void> release;
    scheduler.Schedule([&] { release.get_future().wait(); });
    CClusterRegistration registration({}, nullptr, scheduler);
    registration.AddPointSet(ID(0), views[0].set, &views[0].truth);
    std::vector<CClusterRegistration> copies;
    for (const float x : {10.0F, 20.0F, 30.0F}) {
        const CTrafo pose = views[0].truth.Translate({x, 0, 0});
        EXPECT_TRUE(registration.UpdateTrafos({{ID(0), pose}}));
        EXPECT_LT(distance(registration.GetPrimaryClusterPointSet(), views[0].set->Transform(pose)), 0.5F) << x;
        copies.push_back(registration);
    }
    release.set_value();
    scheduler.Wait();
}

} // namespace
