// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using Zorvan::Position;

constexpr double dTolerance = 2e-3; ///< mm: poses rest where steps are far below the noise of 0.02
const Position utm{500000e3, 5400000e3, 300e3};
const Position kilometre{0, 1e6, 0};

/// Three views of the virtual scanner in metres, near the origin, on a map, and a kilometre away.
class FarScans : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = new WorkFolder;
        ASSERT_EQ(folder->Run("simulate -o . --views 3 --field 28 --points 6000 --seed 4 --quiet").exitCode, 0);
        for (const auto& [name, shift] : {std::pair{"near", Position{}}, {"utm", utm}, {"km", kilometre}}) {
            std::filesystem::create_directory(*folder / name);
            for (const std::string view : {"view00.ply", "view01.ply", "view02.ply"}) {
                Zorvan::Scan scan = Zorvan::ReadScanFile(*folder / view);
                scan.shift = shift;
                Zorvan::WritePly(*folder / (name + ("/" + view)), scan, 0.001);
            }
        }
    }
    static void TearDownTestSuite() { delete folder; }

    /// Runs a command on the scans of each place and compares the poses that it writes to DIR.json.
    /// @param command  with @ for the name of the place
    static void ExpectSamePoses(const std::string& command, const std::string& poses)
    {
        const auto run = [&](const std::string& place) {
            std::string text = command;
            for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@'))
                text.replace(at, 1, place);
            const auto outcome = folder->Run(text + " --scale 1000");
            EXPECT_EQ(outcome.exitCode, 0) << text << outcome.out << outcome.err;
            EXPECT_EQ(outcome.err.find("far from the origin: ") != std::string::npos, place != "near") << outcome.err;
            return Zorvan::ReadPoses(*folder / (place + poses));
        };
        const Zorvan::PosesFile near = run("near");
        for (const auto& [name, shift] : {std::pair{"utm", utm}, {"km", kilometre}}) {
            const Zorvan::PosesFile far = run(name);
            for (const Zorvan::ScanPose& scan : near.clusters.front().scans) {
                const Zorvan::ScanPose& other = *far.Find(scan.file).scan;
                ASSERT_TRUE(other.pose) << command;
                for (const Position& p : {Position{0, 0, 0}, Position{30, -20, 40}}) {
                    const Position there = Transform(Zorvan::ExactPoseOf(other), plus(p, shift));
                    const Position here = plus(Transform(Zorvan::ExactPoseOf(scan), p), shift);
                    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(there[k], here[k], dTolerance) << name << command;
                }
            }
        }
    }

    static Position plus(const Position& a, const Position& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }

    static WorkFolder* folder;
};

WorkFolder* FarScans::folder = nullptr;

TEST_F(FarScans, HaveThePosesOfNearOnesButForTheShift)
{
    ExpectSamePoses("align @/view00.ply @/view01.ply -o @.json", ".json");
    ExpectSamePoses("align @/view00.ply @/view01.ply --initial @.json -o @2.json", "2.json");
    ExpectSamePoses("judge @/view00.ply @/view01.ply @.json -o @3.json", "3.json");
    ExpectSamePoses("register @/view00.ply @/view01.ply -o @4 --initial @.json", "4/poses.json");
    ExpectSamePoses("register @/view02.ply --session @4/session.zdoc -o @5 --optimize", "5/poses.json");
    ExpectSamePoses("register @/view01.ply @/view02.ply @/view00.ply -o @6 --weighed", "6/poses.json");
    const auto outcome = folder->Run("evaluate utm5/poses.json utm6/poses.json --max-mm 0.05");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
}

// Scans in frames of their own, with start poses on a map.
TEST_F(FarScans, AreThoseThatStartPosesPutThere)
{
    ASSERT_EQ(folder->Run("align near/view00.ply near/view01.ply -o n.json --scale 1000").exitCode, 0);
    Zorvan::PosesFile poses = Zorvan::ReadPoses(*folder / "n.json");
    poses.shift = utm;
    for (Zorvan::ScanPose& scan : poses.clusters.front().scans) SetPoseAbout(scan, scan.pose, {}, utm);
    Zorvan::WritePoses(*folder / "map.json", poses);
    EXPECT_EQ(folder->Run("register near/view00.ply near/view01.ply -o map --scale 1000 --initial map.json").exitCode,
              0);
    const Zorvan::PosesFile found = Zorvan::ReadPoses(*folder / "map/poses.json");
    EXPECT_EQ(found.shift, utm);
    const auto place = Transform(Zorvan::ExactPoseOf(*found.Find("view00.ply").scan), {1, 2, 3});
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(place[k], utm[k] + static_cast<double>(k) + 1, dTolerance);
    EXPECT_EQ(folder->Run("evaluate map/poses.json n.json --max-mm 0.05").exitCode, 0);
}

// Real scans, whose numbers have as many digits as a file of floats gives.
TEST(FarBunny, HasThePosesOfTheOneAtTheOrigin)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) GTEST_SKIP() << "set ZORVAN_DATA to the folder with the sub-folder bunny";
    const WorkFolder folder;
    const auto posesAt = [&](const std::string& place, const Position& shift) {
        std::filesystem::create_directory(folder / place);
        for (const std::string view : {"bun000.ply", "bun045.ply"}) {
            Zorvan::Scan scan = Zorvan::ReadScanFile(std::filesystem::path(data) / "bunny" / view);
            scan.shift = shift;
            Zorvan::WritePly(folder / (place + ("/" + view)), scan);
        }
        const std::string output = place + "/poses.json";
        const auto outcome =
            folder.Run("align " + place + "/bun000.ply " + place + "/bun045.ply --scale 1000 -o " + output);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
        return Zorvan::ReadPoses(folder / output);
    };
    const Zorvan::PosesFile near = posesAt("near", {});
    for (const Position& metres : {Position{500000, 5400000, 300}, Position{0, 1000, 0}}) {
        const Zorvan::PosesFile far = posesAt("far", metres);
        for (const Position& p : {Position{-17, 110, 5}, Position{40, 160, -30}}) {
            Position moved = p;
            for (std::size_t k = 0; k < 3; ++k) moved[k] += 1000 * metres[k];
            const auto there = Transform(Zorvan::ExactPoseOf(*far.Find("bun045.ply").scan), moved);
            const auto here = Transform(Zorvan::ExactPoseOf(*near.Find("bun045.ply").scan), p);
            for (std::size_t k = 0; k < 3; ++k)
                EXPECT_NEAR(there[k] - 1000 * metres[k], here[k], dTolerance) << metres[1];
        }
    }
}

} // namespace
