// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "zorvan/scans/e57writer.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Zorvan::Position;

constexpr double dTolerance = 1e-4; // mm; coordinates are floats

void expectNear(const Position& a, const Position& b)
{
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(a[k], b[k], dTolerance);
}

/// Three views of the virtual scanner in one file, with rough poses; a copy of each view beside it.
class ManyScans : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = new WorkFolder;
        ASSERT_EQ(folder->Run("simulate -o . --views 3 --field 28 --points 6000 --seed 4 --quiet").exitCode, 0);
        const Zorvan::PosesFile rough = Zorvan::ReadPoses(*folder / "rough.json");
        Zorvan::PosesFile truth = Zorvan::ReadPoses(*folder / "truth.json");
        std::vector<Zorvan::Scan> scans;
        for (Zorvan::ScanPose& scan : truth.clusters.front().scans) {
            scans.push_back(Zorvan::ReadScanFile(*folder / scan.file));
            scans.back().pose = Zorvan::ExactPoseOf(*rough.Find(scan.file).scan);
            scan.file = "site.e57#" + std::to_string(scans.size());
        }
        Zorvan::WriteE57(*folder / "site.e57", scans);
        Zorvan::WritePoses(*folder / "site_truth.json", truth);
    }
    static void TearDownTestSuite() { delete folder; }

    static WorkFolder* folder;
};

WorkFolder* ManyScans::folder = nullptr;

TEST_F(ManyScans, OfOneFileAreRegisteredAndWrittenBackWithTheirPoses)
{
    const auto outcome = folder->Run("register site.e57 -o out --export e57");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    EXPECT_EQ(folder->Run("evaluate out/poses.json site_truth.json --max-degrees 0.2 --max-mm 0.1").exitCode, 0);
    EXPECT_EQ(folder->Run("apply out/poses.json site.e57 -o moved").exitCode, 0);
    const Zorvan::PosesFile poses = Zorvan::ReadPoses(*folder / "out/poses.json");
    const auto originals = Zorvan::ReadScans(*folder / "site.e57");
    for (const char* file : {"out/scans.e57", "moved/site.e57"}) {
        const auto scans = Zorvan::ReadScans(*folder / file);
        ASSERT_EQ(scans.size(), 3U) << file;
        for (const Zorvan::Scan& scan : scans) {
            const auto name = "site.e57#" + std::to_string(scan.number);
            const Zorvan::FramePose pose = Zorvan::ExactPoseOf(*poses.Find(name).scan);
            EXPECT_EQ(scan.points, originals[scan.number - 1].points);
            for (const Position& p : {Position{0, 0, 0}, Position{30, -20, 40}})
                expectNear(Transform(*scan.pose, p), Transform(pose, p));
        }
    }
    EXPECT_EQ(folder->Run("register site.e57 --session out/session.zdoc -o again").exitCode, 2) << "in it already";
}

TEST_F(ManyScans, AreOneCloudInOtherFormats)
{
    for (const std::string ending : {"ply", "pcd", "las"}) {
        ASSERT_EQ(folder->Run("register view0?.ply -o one --export " + ending).exitCode, 0);
        const Zorvan::PosesFile poses = Zorvan::ReadPoses(*folder / "one/poses.json");
        const Zorvan::Scan cloud = Zorvan::ReadScanFile(*folder / ("one/scans." + ending));
        std::size_t at = 0;
        for (const Zorvan::ScanPose& pose : poses.clusters.front().scans) {
            const Zorvan::Scan scan = Zorvan::ReadScanFile(*folder / pose.file);
            for (std::size_t i = 0; i < scan.points.size(); i += 97) {
                ASSERT_LT(at + i, cloud.points.size());
                EXPECT_LT((cloud.points[at + i] - pose.pose * scan.points[i]).Length(), 1e-3F) << ending;
            }
            at += scan.points.size();
        }
        EXPECT_EQ(at, cloud.points.size());
    }
}

TEST_F(ManyScans, SayWhatWasDoneWithThem)
{
    const auto record = [&](const std::string& more) {
        EXPECT_EQ(folder->Run("register view00.ply view01.ply -o done" + more).exitCode, 0);
        return nlohmann::json::parse(folder->Read("done/run.json"));
    };
    nlohmann::json first = record("");
    nlohmann::json second = record(" --threads 2");
    EXPECT_NE(first["times"], "");
    first.erase("times");
    second.erase("times");
    EXPECT_EQ(first, second);
    ASSERT_EQ(std::system(("cd " + folder->Path().string() + " && sha1sum view01.ply > sum.txt").c_str()), 0);
    EXPECT_EQ(first["inputs"][1]["sha1"], folder->Read("sum.txt").substr(0, 40));
    EXPECT_EQ(first["scans"][1]["verdict"], "registered");
    ASSERT_EQ(first["pairs"].size(), 1U);
    EXPECT_EQ(first["pairs"][0]["standing"], "supports");
    EXPECT_GT(first["pairs"][0]["matched"], 100);
    EXPECT_GT(first["settings"]["dGridSize"], 0.0);
    EXPECT_TRUE(first["covariances"].empty());
    const nlohmann::json optimized = record(" --optimize");
    EXPECT_NE(optimized["options"], first["options"]);
    ASSERT_EQ(optimized["covariances"].size(), 2U);
    EXPECT_EQ(optimized["covariances"][0]["covariance"][5][5], 0.0);
    const double deviation = std::sqrt(optimized["covariances"][1]["covariance"][5][5].get<double>());
    EXPECT_GT(deviation, 1e-5); // mm; the noise is 0.01
    EXPECT_LT(deviation, 1e-2);
}

} // namespace
