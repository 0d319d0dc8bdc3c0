// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/laswriter.h"
#include "zorvan/scans/pcdwriter.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/thinnedcloud.h"
#include "zorvan/scans/thinreading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using Zorvan::Position;
using Zorvan::Scan;

constexpr Zorvan::ThinLimits few{0, 200};
constexpr Zorvan::ThinLimits all{0, 100000};

/// The same scan in each format that is thinned.
std::vector<std::filesystem::path> samples(const TemporaryFolder& folder, const Scan& scan)
{
    Zorvan::WritePly(folder / "a.ply", scan);
    Zorvan::WritePcd(folder / "a.pcd", scan);
    Zorvan::WriteLas(folder / "a.las", scan);
    std::string xyz = "# x y z\n";
    std::string pts = std::to_string(scan.points.size()) + "\n";
    std::string ply = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(scan.points.size()) +
                      "\nproperty double x\nproperty double y\nproperty double z\nend_header\n";
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        std::string line;
        for (const double c : PlaceOf(scan, i)) line += Zorvan::ToText(c, 17) + " ";
        xyz += line + "0 0 1\n";
        pts += line + "7\n";
        ply += line + "\n";
    }
    return {folder / "a.ply",           folder / "a.pcd",           folder / "a.las",
            folder.Write("b.xyz", xyz), folder.Write("b.pts", pts), folder.Write("b.ply", ply)};
}

std::vector<Position> firstInEachCell(const Scan& scan, double cell)
{
    std::set<Position> seen;
    std::vector<Position> places;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        const Position p = PlaceOf(scan, i);
        if (seen.insert({std::floor(p[0] / cell), std::floor(p[1] / cell), std::floor(p[2] / cell)}).second)
            places.push_back(p);
    }
    return places;
}

TEST(ThinReading, KeepsTheFirstPointOfEachCellInEveryFormat)
{
    for (const Position& origin : {Position{}, Position{500000, 5400000, 300}}) {
        const TemporaryFolder folder;
        const Scan sample = SampleScan(origin, 3000);
        for (const std::filesystem::path& file : samples(folder, sample)) {
            SCOPED_TRACE(file);
            const Scan whole = Zorvan::ReadScans(file).front();
            const Zorvan::ThinnedScan thinned = ReadThinned(file, few);
            EXPECT_EQ(thinned.uiRead, 3000U);
            EXPECT_LT(thinned.scan.points.size(), 200U);
            EXPECT_GT(thinned.scan.points.size(), 20U);
            const std::vector<Position> expected = firstInEachCell(whole, thinned.dCell);
            ASSERT_EQ(thinned.scan.points.size(), expected.size());
            for (std::size_t i = 0; i < expected.size(); ++i) ExpectNear(PlaceOf(thinned.scan, i), expected[i], 1e-5);
            EXPECT_EQ(thinned.scan.normals.empty(), whole.normals.empty());

            const Zorvan::ThinnedScan same = ReadThinned(file, all);
            EXPECT_EQ(same.dCell, 0.0);
            EXPECT_EQ(same.scan.shift, whole.shift);
            EXPECT_EQ(same.scan.points, whole.points);
            EXPECT_EQ(same.scan.normals, whole.normals);
            EXPECT_EQ(same.scan.sensor.has_value(), whole.sensor.has_value());
            if (whole.sensor) ExpectNear(same.scan.sensor->position, whole.sensor->position, 1e-9);
        }
    }
}

TEST(ThinReading, IsForLargeFilesOfPoints)
{
    const TemporaryFolder folder;
    Scan scan = SampleScan();
    for (const std::filesystem::path& file : samples(folder, scan)) {
        EXPECT_TRUE(IsReadThinned(file, few)) << file;
        EXPECT_FALSE(Zorvan::IsReadThinned(file)) << file;
        const Zorvan::SurfelScan surfels = Zorvan::ReadScan(file, {.sensor = {}, .thin = {0, 100}});
        EXPECT_EQ(surfels.uiRead, 200U);
        EXPECT_NE(surfels.Warning().find("of 200 points, the first in each cube of "), std::string::npos);
    }
    scan.faces = {{0, 1, 2}};
    Zorvan::WritePly(folder / "mesh.ply", scan);
    EXPECT_FALSE(IsReadThinned(folder / "mesh.ply", few)) << "faces say more than points";
    EXPECT_FALSE(IsReadThinned(folder / "missing.ply", few));
    const Zorvan::Hooks stopped([] { return true; });
    const auto read = [&] { return ReadThinned(folder / "a.las", few, stopped); };
    EXPECT_NE(RefusalOf(read).find("a.las: stopped while it was read"), std::string::npos);
}

// What no file may do: points at one place, on a line, far away, not finite.
TEST(ThinnedCloud, HasRoomForWhateverComes)
{
    std::mt19937 rng(47110815);
    std::uniform_real_distribution<double> any(-1.0, 1.0);
    const auto keptOf = [&](const auto& next) {
        Zorvan::CThinnedCloud cloud(16);
        for (int i = 0; i < 5000; ++i) cloud.TakePoint(next(i), nullptr);
        EXPECT_EQ(cloud.NumTaken(), 5000U);
        return cloud.ToScan().points.size();
    };
    EXPECT_EQ(keptOf([](int) { return Position{5, 5, 5}; }), 1U);
    EXPECT_EQ(keptOf([](int) { return Position{NAN, 0, INFINITY}; }), 0U);
    for (const double scale : {1e-300, 1.0, 1e300}) {
        const std::size_t kept = keptOf([&](int i) {
            return Position{i % 9 == 0 ? scale * 7 : 0, any(rng) * scale, 0};
        });
        EXPECT_GE(kept, 4U) << scale;
        EXPECT_LT(kept, 16U) << scale;
    }
}

} // namespace
