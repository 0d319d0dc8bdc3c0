// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "zorvan/scans/posesfile.h"
#include "zorvan/util/version.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/documentfile.h"
#include "zorvan/workflow/sessioncheck.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <string>

namespace {

using bson::element;
using bson::object;
using prereg::CClusterRegistration;
using prereg::CTrafo;

object with(const object& document, const element& part) { return document.erase(part.name()) + part; }

object inside(const char* name, const element& e) { return object(element(name, object(e))); }

/// `change` is given each surface with its number.
element withSurfaces(const object& document, const std::function<object(std::size_t, const object&)>& change)
{
    object surfaces;
    for (const element& e : document.child("point_sets").as_object()) {
        const object surface = e.as_object();
        const element set("fpfh_point_set",
                          change(surfaces.num_elements(), surface.child("fpfh_point_set").as_object()));
        surfaces += element("point_set", with(surface, set));
    }
    return {"point_sets", surfaces};
}

object setOf(const object& document, std::size_t k)
{
    const object surfaces = document.child("point_sets").as_object();
    return (surfaces.begin() + static_cast<std::ptrdiff_t>(k))->as_object().child("fpfh_point_set").as_object();
}

struct Damage
{
    const char* words; ///< of the refusal
    object document;
};

std::vector<Damage> damagesOf(const object& document)
{
    const auto ofFirst = [&](const std::function<object(const object&)>& change) {
        return with(document, withSurfaces(document, [&](std::size_t k, const object& set) {
                        return k == 0 ? change(set) : set;
                    }));
    };
    const auto exchanged = [&](std::size_t k, const object& set) { return k < 2 ? setOf(document, 1 - k) : set; };
    const auto misspelt = [](const object& set) {
        const auto [bytes, size, type] = set.child("FeaturePoints").as_binary();
        return set.erase("FeaturePoints") + element("FeaturePoint", bytes, size);
    };
    const auto farAway = [](const object& set) {
        const std::vector<float> far(std::get<1>(set.child("Points").as_binary()) / sizeof(float), 1e38F);
        return with(set, element("Points", far.data(), far.size() * sizeof(float)));
    };
    const auto atX = [&](float x) {
        const object entity = inside("trafo", element("Translation", object(element("x", x))));
        return document.update(inside("clustering", element("cluster", inside("entities", element("entity", entity)))));
    };
    const auto setTo = [&](const element& setting) { return document.update(inside("configuration", setting)); };
    const auto setIcp = [&](const element& setting) { return setTo(element("icpConfig", object(setting))); };
    const UniversalUniqueID other("12345678-1234-1234-1234-123456789abc");
    const object files = document.child("files").as_object();
    const char* const apart = "its scans and its clusters do not fit each other";
    return {{"does not lie on the scans that it is registered with", with(document, withSurfaces(document, exchanged))},
            {"does not lie on the scans that it is registered with", atX(5.0F)},
            {"a pose scales, or is not finite or beyond", atX(1e38F)},
            {".ply is empty", ofFirst(misspelt)},
            {".ply is empty", ofFirst([](const object&) { return object(); })},
            {"has points that are not finite or beyond 1e9 mm", ofFirst(farAway)},
            {"uiNumSamples needs a whole number from 0 to 1000000", setIcp({"uiNumSamples", 4294967295U})},
            {"dMaxRMSE needs a finite number", setIcp({"dMaxRMSE", std::numeric_limits<double>::infinity()})},
            {"uiNumNeighbors needs a whole number from 0 to 100", setTo({"uiNumNeighbors", 1000000U})},
            {apart, with(document, element::make_uuid("primary_cluster_id", &other))},
            {apart, document.update(inside(
                        "clustering", element("cluster", object(element::make_uuid("primary_entity_id", &other)))))},
            {apart, with(document, element("files", files + *files.begin()))},
            {apart, document.update(inside("files", element("file", object(element("name", "../a.ply")))))}};
}

TEST(Session, IsRefusedWhenItsContentsDoNotHold)
{
    const WorkFolder folder;
    ASSERT_EQ(folder.Run("simulate -o . --views 3 --field 28 --points 6000 --seed 4 --quiet").exitCode, 0);
    ASSERT_EQ(folder.Run("register view0?.ply -o three").exitCode, 0);
    const object document = prereg::ReadDocumentFile(folder / "three/session.zdoc");
    for (const Damage& damage : damagesOf(document)) {
        prereg::WriteDocumentFile(folder / "damaged.zdoc", damage.document);
        const auto outcome = folder.Run("register --session damaged.zdoc -o x --optimize");
        EXPECT_EQ(outcome.exitCode, 2) << damage.words << '\n' << outcome.out;
        EXPECT_NE(outcome.err.find(damage.words), std::string::npos) << outcome.err << "not " << damage.words;
        EXPECT_EQ(outcome.err.rfind("zorvan: damaged.zdoc: damaged: ", 0), 0U) << outcome.err;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "x/session.zdoc"));
}

/// A part of a bumpy surface, a point every half millimetre.
std::shared_ptr<const prereg::CFPFHPointSet> bumps(float fromX, float toX, float fromY, float toY)
{
    prereg::Vectors points;
    prereg::Vectors normals;
    for (float y = fromY; y <= toY; y += 0.5F) {
        for (float x = fromX; x <= toX; x += 0.5F) {
            points.emplace_back(x, y, std::sin(x) + std::cos(y));
            const kdtree::Vector<3> n(-std::cos(x), std::sin(y), 1.0F);
            normals.push_back(n * (1.0F / n.Length()));
        }
    }
    const std::vector<prereg::CPointFeatureHistogram> features(points.size(), prereg::CPointFeatureHistogram(0.1F));
    return std::make_shared<const prereg::CFPFHPointSet>(points, normals, points, normals, features);
}

/// Eight strips, each on the next one, and a scan across all of them with a quarter of its points near each.
TEST(Session, HoldsAScanThatLiesOnSeveralWithTooLittleOnEach)
{
    prereg::ConfigurationFPFH config = prereg::AllSettingsForGrid(0.5);
    config.icpConfig.dMinOverlapRatio = 0.6;
    std::vector<prereg::CSession::ScanFile> files;
    std::vector<CClusterRegistration::EntityTuple> entities;
    const auto add = [&](const auto& set, const CTrafo& pose) {
        const std::string digit = std::to_string(files.size() + 1);
        files.push_back({UniversalUniqueID("12345678-1234-1234-1234-12345678000" + digit), digit + ".ply"});
        entities.emplace_back(files.back().id, pose, CTrafo::Invalid(), set);
    };
    for (int k = 0; k < 8; ++k) {
        const auto y = static_cast<float>(5 * k);
        add(bumps(0.0F, 40.0F, y - 1.0F, y + 6.0F), CTrafo::Identity());
    }
    add(bumps(18.0F, 22.0F, 0.0F, 40.0F), CTrafo::Identity());
    const auto words = [&] {
        CClusterRegistration registration(config, nullptr, nullptr);
        EXPECT_TRUE(registration.CreateCluster(files[0].id, files[0].id, CTrafo::Invalid(), entities));
        registration.SetPrimaryClusterID(files[0].id);
        return prereg::WhatIsWrongWith(registration, files);
    };
    EXPECT_EQ(words(), "");
    std::get<1>(entities.back()) = CTrafo::Identity().Translate({0.0F, 0.0F, 3.0F});
    EXPECT_EQ(words(), "9.ply does not lie on the scans that it is registered with");
}

TEST(Session, LosesAScanOnRequestWhileTheOthersStay)
{
    const WorkFolder folder;
    ASSERT_EQ(folder.Run("simulate -o . --views 3 --field 28 --points 6000 --seed 4 --quiet").exitCode, 0);
    ASSERT_EQ(folder.Run("register view0?.ply -o out").exitCode, 0);
    const auto poseOf = [&](const std::string& folderName, const std::string& file) {
        const Zorvan::PosesFile poses = Zorvan::ReadPoses(folder / (folderName + "/poses.json"));
        const Zorvan::ScanPose* scan = poses.Find(file).scan;
        return scan == nullptr ? CTrafo::Invalid() : scan->pose;
    };
    EXPECT_NE(folder.Run("session list out/session.zdoc").out.find("3 of 3 scans registered, in 1 cluster"),
              std::string::npos);
    const auto apart = folder.Run("session split out/session.zdoc view00.ply");
    EXPECT_EQ(apart.exitCode, 0) << apart.err;
    EXPECT_NE(apart.out.find("2 of 3 scans registered, in 1 cluster; 1 found no place"), std::string::npos)
        << apart.out;
    EXPECT_EQ(folder.Run("register --session out/session.zdoc -o again").exitCode, 0) << "it finds its place anew";
    EXPECT_EQ(folder.Run("session remove again/session.zdoc view01.ply").exitCode, 0);
    EXPECT_EQ(folder.Run("register --session again/session.zdoc -o less").exitCode, 0);
    EXPECT_FALSE(poseOf("less", "view01.ply"));
    for (const char* file : {"view00.ply", "view02.ply"}) {
        const CTrafo step = poseOf("less", file) * poseOf("again", file).GetInverse(true);
        EXPECT_LT(step.GetRotationDistance(CTrafo::Identity()), 1e-5F) << file;
        EXPECT_LT(step.GetTranslation().Length(), 1e-4F) << file;
    }
    const auto unknown = folder.Run("session remove again/session.zdoc view01.ply");
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.err,
              "zorvan: again/session.zdoc: view01.ply: no scan of this name; zorvan session list shows its "
              "scans\n");
    EXPECT_EQ(folder.Run("session remove again/session.zdoc view00.ply").exitCode, 0);
    EXPECT_EQ(folder.Run("session remove again/session.zdoc view02.ply").exitCode, 2) << "it is the only scan";
    EXPECT_EQ(folder.Run("register view00.ply --session again/session.zdoc -o more").exitCode, 0);
}

using NamedPoses = std::map<std::string, CTrafo>;

/// Of the first cluster.
NamedPoses posesOf(const WorkFolder& folder, const std::string& session)
{
    EXPECT_EQ(folder.Run("register --session " + session + " -o look --quiet").exitCode, 0);
    const Zorvan::PosesFile file = Zorvan::ReadPoses(folder / "look/poses.json");
    NamedPoses poses;
    for (const Zorvan::ScanPose& scan : file.clusters.at(0).scans) poses[scan.file] = scan.pose;
    return poses;
}

/// But for the last digits, which builds by another compiler round otherwise.
void expectSame(const NamedPoses& found, const NamedPoses& expected, const std::string& what)
{
    ASSERT_EQ(found.size(), expected.size()) << what;
    for (const auto& [name, pose] : expected) {
        ASSERT_TRUE(found.contains(name)) << what << ": " << name;
        const CTrafo step = found.at(name) * pose.GetInverse(true);
        EXPECT_LT(step.GetRotationDistance(CTrafo::Identity()), 1e-5F) << what << ": " << name;
        EXPECT_LT(step.GetTranslation().Length(), 1e-4F) << what << ": " << name;
    }
}

/// Poses as they are stored, bit for bit.
element clustersIn(const WorkFolder& folder, const std::string& session)
{
    return prereg::ReadDocumentFile(folder / session).child("clustering");
}

TEST(Session, SaysWhatWasDoneTakesItBackAndMovesWithItsFolder)
{
    const WorkFolder folder;
    const std::string noon = "SOURCE_DATE_EPOCH=1795694400 ";
    ASSERT_EQ(folder.Run("simulate -o job --views 3 --field 28 --points 6000 --seed 4 --quiet").exitCode, 0);
    ASSERT_EQ(folder.Run("register job/view00.ply job/view01.ply -o job/out", ">o", noon).exitCode, 0);
    const NamedPoses two = posesOf(folder, "job/out/session.zdoc");
    const element storedTwo = clustersIn(folder, "job/out/session.zdoc");
    ASSERT_EQ(folder.Run("register job/view02.ply --session job/out/session.zdoc -o job/out", ">o", noon).exitCode, 0);
    const NamedPoses three = posesOf(folder, "job/out/session.zdoc");

    std::filesystem::rename(folder / "job", folder / "moved");
    const std::string session = "moved/out/session.zdoc";
    auto listed = folder.Run("session list " + session);
    EXPECT_EQ(listed.err, "") << "all files are where the session says";
    const std::string by = "2026-11-26T12:00:00Z  zorvan register " + std::string(Zorvan::Version()) + "  ";
    for (const std::string line : {"added view00.ply, view01.ply\n", "added view02.ply\n",
                                   "merged view01.ply: view01.ply lies on view00.ply, overlap 0.",
                                   "merged view02.ply: view02.ply lies on view0"})
        EXPECT_NE(listed.out.find(by + line), std::string::npos) << listed.out << "not " << line;
    const auto outcome = folder.Run("register --session " + session + " -o exported --export ply");
    EXPECT_NE(outcome.err.find("exported/scans.ply holds 3 of the 3 scans"), std::string::npos) << outcome.err;

    // Of another last digit than reading and writing it makes.
    const object document = prereg::ReadDocumentFile(folder / session);
    const auto first = [](const element& e) { return e.as_object().begin()->as_object(); };
    const object trafo = first(first(document.child("clustering")).child("entities")).child("trafo").as_object();
    const float w = trafo.child("Rotation").as_object().child("w").as_float() + 4e-7F;
    const object turned = inside("trafo", element("Rotation", object(element("w", w))));
    prereg::WriteDocumentFile(
        folder / session,
        document.update(inside("clustering", element("cluster", inside("entities", element("entity", turned))))));

    const element stored = clustersIn(folder, session);
    ASSERT_EQ(folder.Run("session remove " + session + " view00.ply", ">o", noon).exitCode, 0);
    EXPECT_NE(clustersIn(folder, session), stored);
    EXPECT_EQ(folder.Run("session undo " + session).exitCode, 0);
    EXPECT_EQ(clustersIn(folder, session), stored) << "poses are the same bytes";
    expectSame(posesOf(folder, session), three, "with the surface of the scan that was removed");
    EXPECT_EQ(folder.Run("session undo " + session).exitCode, 0);
    EXPECT_EQ(clustersIn(folder, session), storedTwo) << "poses are the same bytes";
    expectSame(posesOf(folder, session), two, "taken back twice");
    ExpectRefused(folder.Run("session undo " + session), session + ": nothing to take back; zorvan session list");
    EXPECT_EQ(folder.Run("register moved/view02.ply --session " + session + " -o again").exitCode, 0);
    expectSame(posesOf(folder, "again/session.zdoc"), three, "added again");

    std::filesystem::remove(folder / "moved/view01.ply");
    listed = folder.Run("session list again/session.zdoc");
    EXPECT_NE(listed.err.find("view01.ply is not at "), std::string::npos) << listed.err;
    // As earlier versions wrote it.
    const object again = prereg::ReadDocumentFile(folder / "again/session.zdoc");
    object files;
    for (const element& e : again.child("files").as_object()) files += element("file", e.as_object().erase("path"));
    prereg::WriteDocumentFile(folder / "old.zdoc", with(again.erase("journal").erase("past"), element("files", files)));
    expectSame(posesOf(folder, "old.zdoc"), three, "as earlier versions wrote it");
    ExpectRefused(folder.Run("session undo old.zdoc"), "nothing to take back");
}

TEST(Session, KeepsWhatSearchesOfPairsHaveFound)
{
    const WorkFolder folder;
    ASSERT_EQ(folder.Run("simulate -o . --object bracket --views 4 --spacing 0.8 --seed 5 --quiet").exitCode, 0);
    const auto known = [&](const std::string& name) {
        const object document = prereg::ReadDocumentFile(folder / name);
        for (const element& e : document)
            if (e.name() == std::string("known_pairs")) return e;
        return element();
    };
    EXPECT_NE(folder.Run("register view00.ply view01.ply view02.ply -o three").exitCode, 2);
    const object three = known("three/session.zdoc").as_object();
    EXPECT_EQ(three.child("pairs").as_object().num_elements(), 3U);
    auto outcome = folder.Run("register view03.ply --session three/session.zdoc -o four");
    EXPECT_NE(outcome.err.find("6 of 6 pairs searched, 3 of these in earlier runs; "), std::string::npos)
        << outcome.err;
    outcome = folder.Run("session pairs four/session.zdoc");
    EXPECT_NE(outcome.out.find("6 pairs were searched: "), std::string::npos) << outcome.out;
    outcome = folder.Run("session pairs four/session.zdoc view03.ply");
    EXPECT_NE(outcome.out.find("3 pairs were searched: "), std::string::npos) << outcome.out;
    ExpectRefused(folder.Run("session pairs four/session.zdoc view04.ply"), "view04.ply: no scan of this name; zorvan");

    const element four = known("four/session.zdoc");
    ASSERT_EQ(folder.Run("session remove four/session.zdoc view00.ply").exitCode, 0);
    EXPECT_NE(folder.Run("session pairs four/session.zdoc").out.find("3 pairs were searched: "), std::string::npos);
    ASSERT_EQ(folder.Run("session undo four/session.zdoc").exitCode, 0);
    EXPECT_EQ(known("four/session.zdoc"), four) << "with those of the scan that was removed";

    const object document = prereg::ReadDocumentFile(folder / "three/session.zdoc");
    const object old = three.update(element("version", "0.0.0"));
    prereg::WriteDocumentFile(folder / "old.zdoc", with(document, element("known_pairs", old)));
    outcome = folder.Run("register --session old.zdoc -o again");
    EXPECT_NE(outcome.err.find("3 of 3 pairs searched; "), std::string::npos) << outcome.err;

    EXPECT_NE(folder.Run("register view00.ply view01.ply view02.ply --initial truth.json -o given").exitCode, 2);
    EXPECT_EQ(known("given/session.zdoc").type(), element().type()) << "poses that were given may be others tomorrow";
}

} // namespace
