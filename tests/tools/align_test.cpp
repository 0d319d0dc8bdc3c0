#include "workfolder.h"

#include "tools/zorvan/posesfile.h"
#include "tools/zorvan/scanreader.h"
#include "tools/zorvan/scanwriter.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr const char* sLimits = " --max-degrees 0.1 --max-mm 0.05";

/// Two neighbouring views of the virtual scanner, made once.
class AlignedViews : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = new WorkFolder;
        ASSERT_EQ(folder->Run("simulate -o . --views 2 --points 12000 --seed 4 --quiet").exitCode, 0);
    }
    static void TearDownTestSuite() { delete folder; }

    static void ExpectNearTruth(const std::string& poses)
    {
        const auto outcome = folder->Run("evaluate " + poses + " truth.json" + sLimits);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    }

    static WorkFolder* folder;
};

WorkFolder* AlignedViews::folder = nullptr;

TEST_F(AlignedViews, ComeNearTheTruthFromARoughStart)
{
    EXPECT_EQ(folder->Run(std::string("evaluate rough.json truth.json") + sLimits).exitCode, 1)
        << "the start is too good";
    const auto outcome = folder->Run("align view00.ply view01.ply --initial rough.json -o poses.json");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    ExpectNearTruth("poses.json");
    const std::string first = folder->Read("poses.json");
    EXPECT_EQ(folder->Run("align view00.ply view01.ply --initial rough.json -o poses.json --quiet").err, "");
    EXPECT_EQ(folder->Read("poses.json"), first);
}

TEST_F(AlignedViews, ComeNearTheTruthTheOtherWayRound)
{
    EXPECT_EQ(folder->Run("align view01.ply view00.ply --initial rough.json -o back.json").exitCode, 0);
    ExpectNearTruth("back.json");
}

TEST_F(AlignedViews, ComeNearTheTruthWithoutFacesAndInMetres)
{
    for (const char* name : {"view00.ply", "view01.ply"}) {
        tools::Scan scan = tools::ReadScan(*folder / name);
        scan.faces.clear();
        std::filesystem::create_directory(*folder / "m");
        tools::WritePly(*folder / ("m/" + std::string(name)), scan, 0.001);
    }
    const auto outcome = folder->Run("align m/view00.ply m/view01.ply --scale 1000 --initial rough.json -o m.json");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    EXPECT_EQ(tools::ReadPoses(*folder / "m.json").dMmPerUnit, 1000.0);
    ExpectNearTruth("m.json");
}

TEST_F(AlignedViews, ThatDoNotMeetGiveNoPose)
{
    tools::PosesFile poses = tools::ReadPoses(*folder / "rough.json");
    poses.clusters[0].scans[1].pose = prereg::CTrafo::Identity().Translate({0, 0, 500});
    tools::WritePoses(*folder / "far.json", poses);
    EXPECT_EQ(folder->Run("align view00.ply view01.ply --initial far.json -o none.json").exitCode, 1);
    EXPECT_FALSE(tools::ReadPoses(*folder / "none.json").Find("view01.ply").scan->pose);
    EXPECT_EQ(folder->Run("evaluate none.json truth.json").exitCode, 1);
}

} // namespace
