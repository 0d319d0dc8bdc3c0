// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "zorvan/scans/scanwriter.h"

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
