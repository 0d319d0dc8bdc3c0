// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "zorvan/scans/scanwriter.h"
#include "zorvan/workflow/fileinfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <limits>
#include <random>

namespace {

// A lattice of 0.5 with a noise of 0.01 across it, far away, with a point that is not finite and one that comes twice.
Zorvan::Scan farPlane()
{
    std::mt19937 rng(47110815);
    std::normal_distribution<float> noise(0.0F, 0.01F);
    Zorvan::Scan scan;
    for (int i = 0; i < 3600; ++i)
        scan.points.emplace_back(0.5F * static_cast<float>(i % 60), 0.5F * static_cast<float>(i / 60), noise(rng));
    scan.points.push_back(scan.points.front());
    scan.points.emplace_back(0.0F, std::numeric_limits<float>::quiet_NaN(), 0.0F);
    scan.intensities.assign(scan.points.size(), 1.0F);
    scan.shift = {500000, 5.4e6, 0};
    return scan;
}

TEST(Info, SaysWhatIsInAFileAndWhatIsOdd)
{
    const WorkFolder folder;
    Zorvan::WritePly(folder / "far.ply", farPlane());
    folder.Write("cut.las", "LASF");
    const auto [code, out, err] = folder.Run("info --json cut.las far.ply");
    EXPECT_EQ(code, 2) << "one cannot be read";
    EXPECT_THAT(err, testing::HasSubstr("zorvan: cut.las: truncated"));
    const auto files = nlohmann::json::parse(out);
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0]["file"], "far.ply");
    const auto& scan = files[0]["scans"][0];
    EXPECT_EQ(scan["points"], 3602);
    EXPECT_EQ(scan["fields"], nlohmann::json({"intensities"}));
    EXPECT_NEAR(scan["low"][0].get<double>(), 500000.0, 1e-3);
    EXPECT_NEAR(scan["high"][1].get<double>(), 5400029.5, 1e-3);
    EXPECT_NEAR(scan["spacing"].get<double>(), 0.5, 0.01);
    EXPECT_NEAR(scan["noise"].get<double>(), 0.01, 0.003);
    EXPECT_TRUE(scan["sensor"].is_null());
    EXPECT_EQ(scan["notes"].size(), 3U) << scan["notes"];
}

TEST(Info, OfALargeFileIsThatOfASmallOne)
{
    const WorkFolder folder;
    Zorvan::Scan mesh = farPlane();
    mesh.faces = {{0, 1, 60}, {1, 61, 60}};
    mesh.normals.assign(mesh.points.size(), {0, 0, 1});
    Zorvan::WritePly(folder / "mesh.ply", mesh);
    folder.Write("odd.ply",
                 "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\nproperty float z\n"
                 "end_header\n0 0 0 1\n1 1\n"); // two vertices on lines of their own making
    folder.Write("seen.ptx", "2\n2\n0 0 9\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n"
                             "0 0 -9 0.5\n1 0 -9 0.5\n0 1 -9 0.5\n1 1 -9 0.5\n");
    for (const char* name : {"mesh.ply", "odd.ply", "seen.ptx"}) {
        SCOPED_TRACE(name);
        const auto small = prereg::DescribeFile(folder / name);
        const auto large = prereg::DescribeFile(folder / name, {.uiMostBytes = 0, .uiMostPoints = 4000});
        ASSERT_EQ(large.scans.size(), small.scans.size());
        const prereg::ScanInfo& a = small.scans.front();
        const prereg::ScanInfo& b = large.scans.front();
        EXPECT_EQ(b.points, a.points);
        for (unsigned k = 0; k < 3; ++k) {
            EXPECT_NEAR(b.low[k], a.low[k], 1e-3);
            EXPECT_NEAR(b.high[k], a.high[k], 1e-3);
        }
        EXPECT_NEAR(b.sampling.dSpacing, a.sampling.dSpacing, 1e-3);
        EXPECT_EQ(b.sensor.has_value(), a.sensor.has_value());
        EXPECT_EQ(b.pose.has_value(), a.pose.has_value());
        if (std::string(name) != "mesh.ply") continue;
        EXPECT_EQ(b.faces, a.faces);
        EXPECT_EQ(b.fields, a.fields);
        EXPECT_THAT(b.oddities, testing::Contains(testing::HasSubstr("walked through for its size; not looked for")));
        const auto part = prereg::DescribeFile(folder / name, {.uiMostBytes = 0, .uiMostPoints = 600}).scans.front();
        EXPECT_EQ(part.points, a.points) << "all, whatever the spacing is measured on";
        EXPECT_THAT(part.oddities, testing::Contains(testing::HasSubstr("those of the first 600 points")));
    }
}

TEST(Info, ReadsAsText)
{
    const WorkFolder folder;
    folder.Write("a.pcd", "FIELDS x y z\nWIDTH 4\nVIEWPOINT 0 0 9 1 0 0 0\nDATA ascii\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n");
    const auto [code, out, err] = folder.Run("info a.pcd");
    EXPECT_EQ(code, 0) << err;
    EXPECT_EQ(out, "a.pcd: 80 bytes, 1 scan\nscan 1: 4 points\n  extent  1 1 0, from 0 0 0\n"
                   "  spacing 1, noise 0\n  sensor  at 0 0 9\n");
}

} // namespace
