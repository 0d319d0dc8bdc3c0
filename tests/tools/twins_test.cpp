// SPDX-License-Identifier: MIT
// Views of a row of teeth and of its twin, which has a hole more: no pair tells them apart.
#include "workfolder.h"

#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/workflow/registerscans.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using prereg::CTrafo;
using Names = std::set<std::string>;
using Session = prereg::CSession;

const kdtree::Vector<3> hole(-4.34F, 2.16F, 3.31F); // on a tooth that all frames show
constexpr float fHoleRadius = 2.0F;

/// Four frames of each, taken in turns: `a0.ply`, `b1.ply`, `a2.ply` ... of which the b have the hole.
class Twins : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = new WorkFolder;
        ASSERT_EQ(folder->Run("simulate -o . --video --views 8 --field 28 --points 8000 --seed 4 --quiet").exitCode, 0);
        const Zorvan::PosesFile truth = Zorvan::ReadPoses(*folder / "truth.json");
        for (int k = 0; k < 8; ++k) {
            const std::string name = "view0" + std::to_string(k) + ".ply";
            Zorvan::Scan scan = Zorvan::ReadScanFile(*folder / name);
            const CTrafo pose = truth.Find(name).scan->pose;
            if (k % 2 == 1)
                std::erase_if(scan.points, [&](const auto& p) { return (pose * p - hole).Length() < fHoleRadius; });
            Zorvan::WritePly(*folder / nameOf(k), {.points = scan.points});
        }
    }
    static void TearDownTestSuite() { delete folder; }

    static std::string nameOf(int view) { return (view % 2 == 0 ? "a" : "b") + std::to_string(view) + ".ply"; }
    static std::string namesOf(const std::vector<int>& views)
    {
        std::string names;
        for (const int view : views) names += nameOf(view) + " ";
        return names;
    }
    static std::vector<Zorvan::SurfelScan> read(const std::vector<int>& views)
    {
        std::vector<Zorvan::SurfelScan> scans;
        for (const int view : views) scans.push_back(Zorvan::ReadScan(*folder / nameOf(view)));
        return scans;
    }

    /// Scans that lie together.
    static std::set<Names> clustersIn(const std::string& poses)
    {
        std::set<Names> clusters;
        for (const Zorvan::PoseCluster& cluster : Zorvan::ReadPoses(*folder / poses).clusters) {
            Names names;
            for (const Zorvan::ScanPose& scan : cluster.scans) names.insert(scan.file);
            clusters.insert(names);
        }
        return clusters;
    }
    static std::set<Names> clustersOf(const prereg::RegistrationTable& table)
    {
        std::map<std::string, Names> clusters;
        for (const prereg::ScanRow& scan : table.scans) clusters[scan.cluster].insert(scan.file);
        std::set<Names> names;
        for (const auto& [cluster, members] : clusters) names.insert(members);
        return names;
    }

    /// What about, where that is, and what each says of it.
    static void expectTheHoleInTheRecord(const std::string& out)
    {
        const nlohmann::json disputes = nlohmann::json::parse(folder->Read(out + "/run.json"))["disputes"];
        ASSERT_EQ(disputes.size(), 1U);
        const nlohmann::json& dispute = disputes[0];
        EXPECT_EQ(dispute["left_out"].size() + dispute["unclear"].size(), 0U);
        EXPECT_NEAR(dispute["width"].get<double>(), 2.0 * fHoleRadius, 0.5);
        EXPECT_EQ(std::set({dispute["showing"].get<Names>(), dispute["lacking"].get<Names>()}), apart);
        const Zorvan::PosesFile poses = Zorvan::ReadPoses(*folder / out / "poses.json");
        const Zorvan::PosesFile truth = Zorvan::ReadPoses(*folder / "truth.json");
        for (const char* side : {"showing", "lacking"}) {
            const std::string scan = dispute[side][0];
            kdtree::Vector<3> at;
            for (unsigned k = 0; k < 3; ++k) at[k] = dispute["at"][side][k].get<float>();
            const CTrafo toObject =
                truth.Find("view0" + scan.substr(1)).scan->pose * poses.Find(scan).scan->pose.GetInverse(true);
            EXPECT_LT((toObject * at - hole).Length(), 0.5F) << side;
        }
        for (const nlohmann::json& sight : dispute["sights"]) {
            const bool isShown = sight["scan"].get<std::string>().front() == 'a';
            EXPECT_GE(sight[isShown ? "surface" : "open"], 0.9 * dispute["samples"].get<double>()) << sight;
            EXPECT_LE(sight[isShown ? "open" : "surface"], 0.1 * dispute["samples"].get<double>()) << sight;
        }
    }

    static const std::set<Names> apart;
    static WorkFolder* folder;
};

const std::set<Names> Twins::apart{{"a0.ply", "a2.ply", "a4.ply", "a6.ply"}, {"b1.ply", "b3.ply", "b5.ply", "b7.ply"}};
WorkFolder* Twins::folder = nullptr;

/// Poses of a run and how well they are known: the deviation of each scan against the first one of its cluster.
struct Outcome
{
    Zorvan::PosesFile poses;
    std::map<std::string, double> deviations; ///< mm, in the middle of the scan
    std::map<std::string, kdtree::Vector<3>> middles;

    Outcome(const WorkFolder& folder, const std::string& out) : poses(Zorvan::ReadPoses(folder / out / "poses.json"))
    {
        const nlohmann::json record = nlohmann::json::parse(folder.Read(out + "/run.json"));
        for (const nlohmann::json& known : record["covariances"]) {
            const auto& rows = known["covariance"];
            const auto variance = [&](std::size_t k) { return rows[k][k].get<double>(); };
            const std::string scan = known["scan"];
            deviations[scan] = std::sqrt(variance(3) + variance(4) + variance(5));
            for (unsigned k = 0; k < 3; ++k) middles[scan][k] = known["centre"][k].get<float>();
        }
    }
    [[nodiscard]] CTrafo PoseOf(const std::string& scan) const { return poses.Find(scan).scan->pose; }
};

/// Four deviations of what lies between them: one in some ten thousand is off by more.
void expectSamePoses(const Outcome& found, const Outcome& expected)
{
    for (const Zorvan::PoseCluster& cluster : expected.poses.clusters) {
        const std::string& first = cluster.scans.front().file;
        const CTrafo toExpected = expected.PoseOf(first) * found.PoseOf(first).GetInverse(true);
        for (const Zorvan::ScanPose& scan : cluster.scans) {
            const kdtree::Vector<3> middle = scan.pose.GetInverse(true) * expected.middles.at(scan.file);
            const CTrafo pose = toExpected * found.PoseOf(scan.file);
            const double off = static_cast<double>((pose * middle - scan.pose * middle).Length());
            const double deviation = std::hypot(expected.deviations.at(scan.file), found.deviations.at(scan.file),
                                                found.deviations.at(first));
            EXPECT_LE(off, 4.0 * deviation) << scan.file;
        }
    }
}

TEST_F(Twins, ComeApartInThreeGoesAndInOtherOrdersAsInOneCall)
{
    const auto outcome = folder->Run("register " + namesOf({0, 1, 2, 3, 4, 5, 6, 7}) + "-o one --optimize");
    ASSERT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(
        outcome.out.ends_with("8 of 8 scans registered, in 2 clusters; scans of objects that differ in a hole were "
                              "put apart\n"))
        << outcome.out;
    ASSERT_EQ(clustersIn("one/poses.json"), apart);
    expectTheHoleInTheRecord("one");
    const std::vector<std::vector<std::vector<int>>> orders{
        {{0, 1, 2}, {3, 4, 5}, {6, 7}}, {{7, 0, 5}, {2, 4}, {1, 6, 3}}, {{0, 2, 4, 6, 1, 3}, {5}, {7}}};
    for (const auto& goes : orders) {
        std::string session;
        for (const std::vector<int>& go : goes) {
            EXPECT_NE(folder->Run("register " + namesOf(go) + session + "-o goes --optimize").exitCode, 2);
            session = "--session goes/session.zdoc ";
        }
        SCOPED_TRACE(namesOf(goes.front()));
        ASSERT_EQ(clustersIn("goes/poses.json"), apart);
        expectSamePoses(Outcome(*folder, "goes"), Outcome(*folder, "one"));
        // Nothing new, nothing changes.
        EXPECT_EQ(folder->Run("register " + session + "-o goes --optimize").exitCode, 1);
        EXPECT_EQ(clustersIn("goes/poses.json"), apart);
        std::filesystem::remove_all(*folder / "goes");
    }
}

/// Stops when a stage begins.
class CStopAt : public Zorvan::AProgressMeter
{
public:
    explicit CStopAt(std::string_view stage) : m_stage(stage) {}
    [[nodiscard]] bool IsReached() const { return m_isReached; }

private:
    void begin(std::string_view stage) override { m_isReached = m_isReached || stage == m_stage; }
    void show(double /*fraction*/) override {}

    std::string_view m_stage;
    bool m_isReached = false;
};

TEST_F(Twins, StayApartInASessionWhoseNextRunIsStoppedAfterMerging)
{
    auto before = prereg::RegisterScans(read({0, 1, 2, 3, 4, 5}), {.isOptimized = true});
    ASSERT_EQ(clustersOf(before.table),
              (std::set<Names>{{"a0.ply", "a2.ply", "a4.ply"}, {"b1.ply", "b3.ply", "b5.ply"}}));
    CStopAt optimizing("optimizing");
    const auto stopped =
        prereg::RegisterScans(before.scheduler, std::move(before.session), read({6, 7}), {.isOptimized = true},
                              Zorvan::Hooks([&] { return optimizing.IsReached(); }, &optimizing));
    EXPECT_TRUE(stopped.isStopped);
    EXPECT_EQ(clustersOf(stopped.table), apart);
}

TEST_F(Twins, ComeApartAgainWhenAHostPutsThemTogether)
{
    auto before = prereg::RegisterScans(read({0, 1, 2, 3, 4, 5, 6, 7}));
    ASSERT_EQ(clustersOf(before.table), apart);
    prereg::CClusterRegistration& registration = before.session.GetRegistration();
    const Zorvan::PosesFile truth = Zorvan::ReadPoses(*folder / "truth.json");
    registration.SetArranger([&](const auto&, const Zorvan::Hooks&) {
        prereg::CClusterRegistration::Trafos all;
        for (const Session::ScanFile& file : before.session.GetFiles())
            all[file.id] = truth.Find("view0" + file.name.substr(1)).scan->pose;
        return std::vector{all};
    });
    ASSERT_TRUE(registration.Run());
    registration.SetArranger({});
    const auto next = prereg::RegisterScans(before.scheduler, std::move(before.session), {}, {});
    EXPECT_EQ(clustersOf(next.table), apart);
}

// One view lacks the spot, and comes four times: that is no four views.
TEST_F(Twins, CountCopiesFromAnEarlierRunOnce)
{
    const std::string session = "--session copies/session.zdoc -o copies";
    EXPECT_EQ(folder->Run("register " + namesOf({0, 2, 3, 4, 6}) + "-o copies").exitCode, 0);
    for (const char* copy : {"copy1.ply", "copy2.ply", "copy3.ply"})
        std::filesystem::copy_file(*folder / "b3.ply", *folder / copy);
    EXPECT_EQ(folder->Run("register copy1.ply copy2.ply copy3.ply " + session).exitCode, 0);
    const auto outcome = folder->Run("register " + session);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
    EXPECT_NE(outcome.out.find("8 of 8 scans registered, in 1 cluster"), std::string::npos) << outcome.out;
    const Outcome copies(*folder, "copies");
    for (const char* copy : {"copy1.ply", "copy2.ply", "copy3.ply"})
        EXPECT_EQ(copies.PoseOf(copy), copies.PoseOf("b3.ply"));
}

} // namespace
