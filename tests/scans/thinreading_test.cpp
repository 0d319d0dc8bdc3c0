// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"
#include "tests/support/livebytes.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/e57writer.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/joinscans.h"
#include "zorvan/scans/laswriter.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/movescan.h"
#include "zorvan/scans/pcdwriter.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/thinnedcloud.h"
#include "zorvan/scans/thinnedscans.h"
#include "zorvan/scans/thinreading.h"

#include <gtest/gtest.h>

#include <algorithm>
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

/// A scanner and a pose, the same turned and far away.
const std::string ptxHead = "1 2 3\n1 0 0\n0 1 0\n0 0 1\n0 1 0 0\n-1 0 0 0\n0 0 1 0\n5000 6 7 1\n";

std::string ptxOf(const Scan& scan)
{
    std::string ptx = std::to_string(scan.points.size()) + "\n1\n" + ptxHead;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        for (const double c : PlaceOf(scan, i)) ptx += Zorvan::ToText(c, 17) + " ";
        ptx += "7\n";
    }
    return ptx;
}

/// A PCD that says it is compressed, and is written in runs of bytes as they are.
std::string compressed(const Scan& scan)
{
    std::string columns;
    for (std::size_t k = 0; k < 3; ++k)
        for (std::size_t i = 0; i < scan.points.size(); ++i) Zorvan::AppendLittle(columns, PlaceOf(scan, i)[k]);
    std::string block;
    for (std::size_t at = 0; at < columns.size(); at += 32)
        block += static_cast<char>(std::min<std::size_t>(32, columns.size() - at) - 1) + columns.substr(at, 32);
    std::string file = "FIELDS x y z\nSIZE 8 8 8\nTYPE F F F\nWIDTH " + std::to_string(scan.points.size()) +
                       "\nDATA binary_compressed\n";
    Zorvan::AppendLittle(file, static_cast<std::uint32_t>(block.size()));
    Zorvan::AppendLittle(file, static_cast<std::uint32_t>(columns.size()));
    return file + block;
}

/// The same scan in each format that is thinned.
std::vector<std::filesystem::path> samples(const TemporaryFolder& folder, const Scan& scan)
{
    Zorvan::WritePly(folder / "a.ply", scan);
    Zorvan::WritePcd(folder / "a.pcd", scan);
    Zorvan::WriteLas(folder / "a.las", scan);
    Zorvan::WriteE57(folder / "a.e57", std::vector{scan});
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
    return {folder / "a.ply",
            folder / "a.pcd",
            folder / "a.las",
            folder.Write("b.xyz", xyz),
            folder.Write("b.pts", pts),
            folder.Write("b.ply", ply),
            folder / "a.e57",
            folder.Write("b.ptx", ptxOf(scan)),
            folder.Write("c.pcd", compressed(scan))};
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
            const Zorvan::ThinnedScan thinned = ReadEachThinned(file, few).front();
            EXPECT_EQ(thinned.uiRead, 3000U);
            EXPECT_LT(thinned.scan.points.size(), 200U);
            EXPECT_GT(thinned.scan.points.size(), 20U);
            const std::vector<Position> expected = firstInEachCell(whole, thinned.dCell);
            ASSERT_EQ(thinned.scan.points.size(), expected.size());
            for (std::size_t i = 0; i < expected.size(); ++i) ExpectNear(PlaceOf(thinned.scan, i), expected[i], 1e-5);
            EXPECT_EQ(thinned.scan.normals.empty(), whole.normals.empty());

            const Zorvan::ThinnedScan same = ReadEachThinned(file, all).front();
            EXPECT_EQ(same.dCell, 0.0);
            EXPECT_EQ(same.scan.shift, whole.shift);
            EXPECT_EQ(same.scan.points, whole.points);
            EXPECT_EQ(same.scan.normals, whole.normals);
            EXPECT_EQ(same.scan.sensor.has_value(), whole.sensor.has_value());
            if (whole.sensor) ExpectNear(same.scan.sensor->position, whole.sensor->position, 1e-9);
        }
    }
}

TEST(ThinReading, TakesAsManyLinesOfAPcdAsItsHeaderPromises)
{
    const TemporaryFolder folder;
    const std::string header = "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nWIDTH 3\nHEIGHT 1\nDATA ascii\n";
    const auto more = folder.Write("more.pcd", header + "1 2 3\n\n4 5 6\n7 8 9\n10 11 12\nnot a point\n");
    EXPECT_EQ(ReadEachThinned(more, all).front().scan.points, Zorvan::ReadScans(more).front().points);
    Zorvan::MoveScanFile(more, folder / "moved.pcd", Zorvan::FramePose{});
    EXPECT_TRUE(Zorvan::ReadFileBytes(folder / "moved.pcd").ends_with("\n10 11 12\nnot a point\n"));
    const auto fewer = folder.Write("fewer.pcd", header + "1 2 3\n4.0000 5.0000 6.0000\n");
    EXPECT_THROW((void)ReadEachThinned(fewer, all), Zorvan::CInputError);
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

TEST(ThinReading, KeepsTheScansOfAFileApartOrInItsFrame)
{
    const TemporaryFolder folder;
    std::vector<Scan> scans{SampleScan({}, 300), SampleScan({500000, 5400000, 300}, 200)};
    scans[0].pose = Zorvan::Normalized(Zorvan::FramePose{{5, 6, 7}, {1, 2, 3, 4}});
    scans[1].name = "second";
    Zorvan::WriteE57(folder / "two.e57", scans);
    std::string ptx = "1\n1\n" + ptxHead + "0 0 0 1\n"; // no point
    for (const Scan& scan : scans) ptx += ptxOf(scan);
    folder.Write("two.ptx", ptx);
    for (const char* name : {"two.e57", "two.ptx"}) {
        SCOPED_TRACE(name);
        const std::vector<Scan> whole = Zorvan::ReadScans(folder / name);
        const std::vector<Zorvan::ThinnedScan> same = ReadEachThinned(folder / name, all);
        ASSERT_EQ(same.size(), 2U);
        for (std::size_t i = 0; i < 2; ++i) {
            ExpectSameScan(same[i].scan, {whole[i].points, whole[i].normals, {}, {}, {}, whole[i].shift});
            EXPECT_EQ(same[i].scan.number, whole[i].number);
            EXPECT_EQ(same[i].scan.name, whole[i].name);
            const Zorvan::FramePose none;
            EXPECT_EQ(same[i].scan.pose.value_or(none).position, whole[i].pose.value_or(none).position);
        }
        const Scan joined = Zorvan::JoinScans(whole);
        const Scan one = ReadThinned(folder / name, all).scan;
        ASSERT_EQ(one.points.size(), joined.points.size());
        for (std::size_t i = 0; i < one.points.size(); ++i) ExpectNear(PlaceOf(one, i), PlaceOf(joined, i), 1e-3);
        EXPECT_FALSE(one.sensor) << "there were two";
        const auto surfels = Zorvan::ReadEachScan(folder / name, {.sensor = {}, .thin = all});
        ASSERT_EQ(surfels.size(), 2U);
        EXPECT_EQ(surfels[1].file.filename(), Zorvan::NumberedName(name, whole[1].number));
    }
}

// A reader that keeps a whole file needs twice as much for the smallest of these.
TEST(ThinReading, NeedsTheSameMemoryForFilesOfAnySize)
{
    const TemporaryFolder folder;
    for (const std::filesystem::path& file : samples(folder, SampleScan({}, 300000))) {
        if (file.filename() == "c.pcd") continue; // compressed as one block
        livebytes::Watch();
        EXPECT_EQ(Zorvan::ReadEachThinned(file, {0, 2000}).front().uiRead, 300000U);
        EXPECT_LT(livebytes::Peak(), std::size_t{14} << 20U) << file;
    }
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
