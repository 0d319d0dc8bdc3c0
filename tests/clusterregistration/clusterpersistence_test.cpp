// SPDX-License-Identifier: MIT
#include "zorvan/clusterregistration/clusterpersistence.h"

#include "tests/clusterregistration/scans.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

namespace {

using bson::element;
using bson::object;
using prereg::CClusterRegistration;
using prereg::CTrafo;
using support::ID;
using support::IsNearPose;
using support::LogCapture;

CClusterRegistration load(const object& document) { return bson::from_object<CClusterRegistration>(document); }

object with(const object& document, const element& part) { return document.erase(part.name()) + part; }

TEST(ClusterPersistence, BringsBackWhatIsThereAndForgetsWhatWas)
{
    const LogCapture log;
    const auto scans = support::LeftRightMiddle();
    CClusterRegistration saved(support::StripSettings(), nullptr, nullptr);
    saved.AddPointSet(ID(0), scans[0].set, &scans[0].truth);
    saved.AddPointSet(ID(1), scans[1].set, nullptr);
    saved.SetPrimaryClusterID(ID(9));
    EXPECT_FALSE(saved.Run());
    const object document = bson::to_object(saved);
    const auto [bytes, size] = document.freeze();
    CClusterRegistration again = load(object::unfreeze(bytes.get(), size));

    EXPECT_EQ(again.GetStatusString(36), saved.GetStatusString(36));
    EXPECT_EQ(again.GetRegistrationConfig(), saved.GetRegistrationConfig());
    for (const unsigned k : {0U, 1U}) {
        EXPECT_THAT(again.GetTrafo(ID(k)), IsNearPose(saved.GetTrafo(ID(k)), 1e-4, 0.05));
        EXPECT_EQ(static_cast<bool>(again.GetClusterTrafo(again.GetClusterID(ID(k)))), k == 0);
        const auto set = again.GetPointSetAndTransform(ID(k)).first;
        EXPECT_TRUE(set->GetPoints() == scans[k].set->GetPoints() && set->GetFeatures() == scans[k].set->GetFeatures());
    }
    EXPECT_EQ(support::Journal(again), "primary_cluster_id ");
    EXPECT_TRUE(again.GetChanges(false).empty());
    // The caller's poses, in the order of the cluster names.
    const object surfaces = bson::to_object(again).child("point_sets").as_object();
    ASSERT_EQ(surfaces.num_elements(), 2U);
    EXPECT_EQ(surfaces.begin()->child("pre_trafo").type(), element::eNull);
    const auto given = bson::from_object<CTrafo>((surfaces.begin() + 1)->child("pre_trafo").as_object());
    EXPECT_THAT(given, IsNearPose(scans[0].truth, 1e-4, 0.05));

    int made = 0;
    again.SetSearch(support::Counted(made));
    EXPECT_FALSE(again.Run() || again.Run());
    EXPECT_EQ(made, 1) << "what had failed is tried again";
    again.AddPointSet(ID(2), scans[2].set, nullptr);
    EXPECT_TRUE(again.Run());
    support::ExpectRegistered(again, scans, 0.1, 0.2);
    EXPECT_EQ(load(bson::to_object(CClusterRegistration({}, nullptr, nullptr))).GetPrimaryClusterID(),
              UniversalUniqueID());
}

TEST(ClusterPersistence, BringsBackAClusterThatIsNamedByNoIdentifier)
{
    const auto& views = support::SixViews();
    CClusterRegistration saved({}, nullptr, nullptr);
    ASSERT_TRUE(support::CreateCluster(saved, ID(9), {views[0], views[2]}, {views[0].truth, views[2].truth}));
    saved.SetPrimaryClusterID(ID(9));
    saved.SetPrimaryClusterID({});
    ASSERT_EQ(saved.GetClusterIDs(), support::IDs{UniversalUniqueID()});

    const LogCapture log;
    CClusterRegistration again = load(bson::to_object(saved));
    EXPECT_EQ(again.GetStatusString(36), saved.GetStatusString(36));
    EXPECT_EQ(again.GetPrimaryClusterPointSet().Size(), saved.GetPrimaryClusterPointSet().Size());
    EXPECT_FALSE(log.Has(L"left out"));
    // Beside a primary one that came later.
    ASSERT_TRUE(support::CreateCluster(saved, ID(8), {views[4]}, {views[4].truth}));
    const object document = bson::to_object(saved).erase("primary_cluster_id");
    const UniversalUniqueID later = ID(8);
    EXPECT_EQ(load(document + element::make_uuid("primary_cluster_id", &later)).GetStatusString(1),
              "2 clusters: *7[1]{b} 0[2]{f,d}");
    again.SetPrimaryClusterID(ID(9));
    EXPECT_EQ(again.GetStatusString(1), "1 clusters: *6[2]{f,d}");
    EXPECT_FALSE(support::CreateCluster(again, {}, {views[4]}, {views[4].truth})) << "not by a caller";
}

TEST(ClusterPersistence, SurfacesThatAreDamagedAreEmptyAndNothingTripsOverThem)
{
    const auto& views = support::SixViews();
    CClusterRegistration saved({}, nullptr, nullptr);
    for (const unsigned k : {0U, 2U})
        ASSERT_TRUE(
            support::CreateCluster(saved, ID(7 + k), {views[k], views[k + 1]}, {views[k].truth, views[k + 1].truth}));
    object surfaces;
    for (const element& e : bson::to_object(saved).child("point_sets").as_object()) {
        const object surface = e.as_object();
        const object set = surface.child("fpfh_point_set").as_object();
        const object misspelt = set.erase("FeaturePoints") + element("FeaturePoint", 1);
        surfaces += element("point_set", with(surface, element("fpfh_point_set", misspelt)));
    }
    const LogCapture log;
    CClusterRegistration again = load(with(bson::to_object(saved), element("point_sets", surfaces)));
    EXPECT_TRUE(again.GetPointSetAndTransform(ID(0)).first->Empty());
    EXPECT_FALSE(again.Run());
    const bool abort = false;
    EXPECT_EQ(again.OptimizeRegistration(true, false, abort).size(), 4U) << "nothing holds empty surfaces together";
    for (const UniversalUniqueID& id : again.GetClusterIDs()) again.ApplyCut(id, [](const auto&) { return false; });
    EXPECT_EQ(again.GetClusterIDs().size(), 4U) << "nothing is cut from nothing";
}

TEST(ClusterPersistence, DamagedDocumentsThrowOrLoseWhatIsDamaged)
{
    const auto& views = support::SixViews();
    CClusterRegistration saved({}, nullptr, nullptr);
    const CTrafo poses[] = {views[0].truth, views[1].truth};
    ASSERT_TRUE(support::CreateCluster(saved, ID(9), {views[1], views[0]}, {poses[1], poses[0]}, views[2].truth));
    const object document = bson::to_object(saved);
    const CClusterRegistration again = load(document.erase("events")); // nobody reads the journal
    EXPECT_EQ(again.GetClusterPrimaryID(ID(9)), ID(1));
    EXPECT_THAT(again.GetClusterTrafo(ID(9)), IsNearPose(views[2].truth, 1e-4, 0.05));
    for (const unsigned k : {0U, 1U})
        EXPECT_THAT(again.GetTrafos(ID(9), true).at(ID(k)), IsNearPose(poses[k], 1e-4, 0.05));

    for (const char* key : {"configuration", "clustering", "primary_cluster_id", "point_sets"}) {
        EXPECT_THROW(load(document.erase(key)), std::bad_cast) << key;
        EXPECT_THROW(load(with(document, element(key, 1.0))), std::bad_cast) << key;
    }
    const object cluster = document.query("clustering/cluster").as_object();
    const auto withClusters = [&](const object& a, const object& b) {
        const object clustering{element("note", "by hand"), element("cluster", a), element("cluster", b)};
        return with(document, element("clustering", clustering));
    };
    for (const element& part : cluster)
        EXPECT_THROW(load(withClusters(cluster.erase(part.name()), {})), std::bad_cast) << part.name();
    const object surface = document.query("point_sets/point_set").as_object();
    const auto withSurface = [&](const object& s) {
        return with(document, element("point_sets", element("point_set", s)));
    };
    for (const element& part : surface)
        EXPECT_THROW(load(withSurface(surface.erase(part.name()))), std::bad_cast) << part.name();
    const object set = surface.child("fpfh_point_set").as_object();
    for (const element& array : set) {
        const object damaged = with(set, element(array.name_string(), 1.0));
        EXPECT_THROW(load(withSurface(with(surface, element("fpfh_point_set", damaged)))), std::bad_cast)
            << array.name() << " is looked at before it is needed";
    }
    EXPECT_THROW(load(withSurface(surface)), std::out_of_range) << "the second entity has no surface";

    // The same entities under another name, or the same name once more.
    const LogCapture log;
    for (const object& twin : {with(cluster, element::make_uuid("cluster_id", &views[0].id)), cluster})
        EXPECT_EQ(load(withClusters(cluster, twin)).GetStatusString(1), "1 clusters: 6[2]{f,e}");
    EXPECT_TRUE(log.Has(L"left out"));
}

} // namespace
