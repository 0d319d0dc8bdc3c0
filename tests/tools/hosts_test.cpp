// SPDX-License-Identifier: MIT
// What a host gets from the library is what the program writes.
#include "workfolder.h"

#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/util/version.h"
#include "zorvan/workflow/align.h"
#include "zorvan/workflow/lookatposes.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/registerscans.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

class Hosts : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = new WorkFolder;
        ASSERT_EQ(folder->Run("simulate -o . --views 3 --points 8000 --seed 4 --quiet").exitCode, 0);
    }
    static void TearDownTestSuite() { delete folder; }

    static std::vector<Zorvan::SurfelScan> ReadViews()
    {
        std::vector<Zorvan::SurfelScan> scans;
        for (const char* name : {"view00.ply", "view01.ply", "view02.ply"})
            scans.push_back(Zorvan::ReadScan(*folder / name));
        return scans;
    }

    static WorkFolder* folder;
};

WorkFolder* Hosts::folder = nullptr;

/// Remembers the stages, and how far the last one came.
class CListener : public Zorvan::AProgressMeter
{
public:
    [[nodiscard]] const std::vector<std::string>& Stages() const { return m_stages; }
    [[nodiscard]] bool IsDone() const { return m_last == 1.0; }

private:
    void begin(std::string_view stage) override { m_stages.emplace_back(stage); }
    void show(double fraction) override { m_last = fraction; }

    std::vector<std::string> m_stages;
    double m_last = 0.0;
};

TEST_F(Hosts, GetThePosesOfAlign)
{
    ASSERT_EQ(folder->Run("align view00.ply view01.ply --all -o program.json").exitCode, 0);
    const auto scans = ReadViews();
    CListener listener;
    const auto result = prereg::Align(scans[0], scans[1], {}, Zorvan::Hooks({}, &listener));
    ASSERT_TRUE(result);
    Zorvan::WritePoses(*folder / "library.json", prereg::ToPoses(result, scans[0], scans[1], 1.0, true));
    EXPECT_EQ(folder->Read("library.json"), folder->Read("program.json"));
    EXPECT_EQ(listener.Stages(), std::vector<std::string>{"searching"});
    EXPECT_TRUE(listener.IsDone());
}

TEST_F(Hosts, HearOfACopyWhatIsSaidOfItsOriginal)
{
    auto scans = ReadViews();
    scans = {scans[0], scans[0]};
    scans[1].file = "copy.ply";
    const auto result = prereg::RegisterScans(scans);
    prereg::Placing placing = prereg::Placing::Apart(2);
    placing.places[0] = {prereg::EPlace::Ambiguous, 2};
    placing.places[1] = {prereg::EPlace::Placed};
    const auto table = prereg::LookAtPoses(result.session, &placing, result.scheduler->CreateJobGroup({}, {}));
    for (const prereg::ScanRow& scan : table.scans) {
        EXPECT_FALSE(scan.isPlaced);
        EXPECT_EQ(scan.ePlace, prereg::EPlace::Ambiguous);
        EXPECT_EQ(scan.verdict, "ambiguous: fits equally well in two places");
    }
    EXPECT_TRUE(prereg::ToText(table).ends_with("\n2 copies of one scan, nothing to register it with\n"));
}

TEST_F(Hosts, GetTheFilesOfRegister)
{
    const std::string call = "register view00.ply view01.ply view02.ply --optimize -o program";
    ASSERT_EQ(folder->Run(call, ">stdout.txt", "SOURCE_DATE_EPOCH=0 ").exitCode, 0);
    CListener listener;
    const auto result = prereg::RegisterScans(
        ReadViews(),
        {.isOptimized = true, .stamp = {std::string("zorvan register ") + Zorvan::Version(), "1970-01-01T00:00:00Z"}},
        Zorvan::Hooks({}, &listener));
    EXPECT_TRUE(result.IsOneCluster());
    std::filesystem::create_directory(*folder / "library");
    prereg::WriteRegistration(*folder / "library", result.session, result.table);
    for (const std::string name : prereg::resultFiles)
        EXPECT_EQ(folder->Read("library/" + name), folder->Read("program/" + name)) << name;
    EXPECT_EQ(listener.Stages(), (std::vector<std::string>{"features", "registering", "optimizing"}));
}

TEST_F(Hosts, StopARegistrationAndGoOnFromThere)
{
    auto stopped = prereg::RegisterScans(ReadViews(), {.isOptimized = true}, Zorvan::Hooks([] { return true; }));
    EXPECT_TRUE(stopped.isStopped && stopped.table.isStopped);
    EXPECT_TRUE(stopped.isComplete);
    EXPECT_EQ(stopped.session.GetRegistration().GetClusterIDs().size(), 3U);
    const auto done = prereg::RegisterScans(stopped.scheduler, std::move(stopped.session), {}, {.isOptimized = true});
    EXPECT_FALSE(done.isStopped || done.table.isStopped);
    EXPECT_TRUE(done.IsOneCluster());
}

/// Puts the first two scans together at a pose that is not theirs, as a host may.
void ForceTogether(prereg::CSession& session, const prereg::CTrafo& wrong)
{
    const auto& files = session.GetFiles();
    prereg::CClusterRegistration& registration = session.GetRegistration();
    registration.SetArranger([&](const auto&, const Zorvan::Hooks&) {
        return std::vector<prereg::CClusterRegistration::Trafos>{
            {{files[0].id, prereg::CTrafo::Identity()}, {files[1].id, wrong}}};
    });
    ASSERT_TRUE(registration.Run());
    registration.SetArranger({});
}

/// A scan in the frame of another one.
prereg::CTrafo Between(const prereg::RegisterResult& result, std::size_t a, std::size_t b)
{
    return result.table.scans[a].pose.GetInverse(true) * result.table.scans[b].pose;
}

TEST_F(Hosts, ForceAWrongMergeThatTheNextRunPutsRight)
{
    const auto right = prereg::RegisterScans(ReadViews());
    ASSERT_TRUE(right.IsOneCluster());
    const prereg::CTrafo truth = Between(right, 0, 1);
    const prereg::CTrafo turned = truth * prereg::CTrafo({0, 0, 1}, 1.6F, {});
    const prereg::CTrafo shifted = truth.Translate({0, 7, 0});
    for (const std::size_t count : {std::size_t{2}, std::size_t{3}}) {
        for (const auto& [wrong, isOptimized] :
             {std::pair{turned, true}, {shifted, true}, {turned, false}, {shifted, false}}) {
            auto scans = ReadViews();
            scans.resize(count);
            auto forced = prereg::RegisterScans(scans);
            ForceTogether(forced.session, wrong);
            const auto next =
                prereg::RegisterScans(forced.scheduler, std::move(forced.session), {}, {.isOptimized = isOptimized});
            EXPECT_TRUE(next.IsOneCluster()) << count << isOptimized;
            for (std::size_t scan = 1; scan < count; ++scan) {
                const prereg::CTrafo off = Between(right, 0, scan).GetInverse(true) * Between(next, 0, scan);
                EXPECT_LT(off.GetTranslation().Length(), 0.3F) << scan << " of " << count;
                EXPECT_LT(off.GetRotationDistance({}), 0.01F) << scan << " of " << count;
            }
        }
    }
}

TEST_F(Hosts, MoveAScanOrPutAStrangerInAndTheNextRunPutsItRight)
{
    const auto right = prereg::RegisterScans(ReadViews());
    ASSERT_EQ(folder->Run("simulate -o other --views 1 --points 8000 --seed 9 --quiet").exitCode, 0);
    for (const bool isOptimized : {true, false}) {
        auto before = prereg::RegisterScans(ReadViews());
        prereg::CClusterRegistration& registration = before.session.GetRegistration();
        const UniversalUniqueID moved = before.session.GetFiles()[1].id;
        ASSERT_TRUE(registration.UpdateTrafos({{moved, registration.GetTrafo(moved).Translate({0, 7, 0})}}));
        auto next = prereg::RegisterScans(before.scheduler, std::move(before.session),
                                          std::vector{Zorvan::ReadScan(*folder / "other/view00.ply")},
                                          {.isOptimized = isOptimized});
        for (const std::size_t scan : {1U, 2U}) {
            const prereg::CTrafo off = Between(right, 0, scan).GetInverse(true) * Between(next, 0, scan);
            EXPECT_LT(off.GetTranslation().Length(), 0.3F) << scan << isOptimized;
        }
        EXPECT_FALSE(next.table.scans[3].isPlaced);

        next.session.GetRegistration().SetArranger([&](const auto& clusters, const Zorvan::Hooks&) {
            prereg::CClusterRegistration::Trafos all;
            for (const auto& [id, entities] : clusters)
                for (const auto& [entity, pose, start, set] : entities) all[entity] = pose;
            return std::vector{all};
        });
        ASSERT_TRUE(next.session.GetRegistration().Run());
        next.session.GetRegistration().SetArranger({});
        const auto last =
            prereg::RegisterScans(next.scheduler, std::move(next.session), {}, {.isOptimized = isOptimized});
        EXPECT_FALSE(last.table.scans[3].isPlaced) << isOptimized;
        for (const std::size_t scan : {1U, 2U}) {
            const prereg::CTrafo off = Between(right, 0, scan).GetInverse(true) * Between(last, 0, scan);
            EXPECT_LT(off.GetTranslation().Length(), 0.3F) << scan << isOptimized;
        }
    }
}

TEST_F(Hosts, NameEveryStartPoseOrNone)
{
    EXPECT_THROW(static_cast<void>(prereg::RegisterScans({})), std::invalid_argument);
    prereg::RegisterOptions options;
    options.startPoses = {prereg::CTrafo::Identity()};
    EXPECT_THROW(static_cast<void>(prereg::RegisterScans(ReadViews(), options)), std::invalid_argument);
}

} // namespace
