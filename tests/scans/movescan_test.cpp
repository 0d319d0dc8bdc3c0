// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/e57writer.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/joinscans.h"
#include "zorvan/scans/laswriter.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/movescan.h"
#include "zorvan/scans/pcdwriter.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/stlwriter.h"
#include "zorvan/scans/textnumber.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Zorvan::FramePose;
using Zorvan::Position;
using Zorvan::Scan;

const FramePose turn = *Zorvan::Normalized(FramePose{{12.5, -40, 7}, {4, 1, -2, 3}});
const FramePose toMap{{500000, 5400000, 300}, turn.rotation};

std::string textOf(const Position& p)
{
    return Zorvan::ToText(p[0], 17) + " " + Zorvan::ToText(p[1], 17) + " " + Zorvan::ToText(p[2], 17);
}

/// A file of every format with the points of the scan; those that a writer makes, and texts made here.
std::vector<std::filesystem::path> samples(const TemporaryFolder& folder)
{
    Scan scan = SampleScan();
    scan.faces = {{0, 1, 2}, {2, 1, 3}};
    Zorvan::WritePly(folder / "a.ply", scan);
    Zorvan::WritePcd(folder / "a.pcd", scan);
    Zorvan::WriteLas(folder / "a.las", scan);
    Zorvan::WriteStl(folder / "a.stl", scan);
    Scan posed = scan;
    posed.pose = FramePose{{1, 2, 3}, {0, 1, 0, 0}};
    Zorvan::WriteE57(folder / "a.e57", std::vector{scan, posed});
    std::string xyz = "# x; y; z\n";
    std::string pts = "200\r\n";
    std::string ptx = "20\n10\n1 2 3\n1 0 0\n0 1 0\n0 0 1\n0 1 0 0\n-1 0 0 0\n0 0 1 0\n5 6 7 1\n";
    std::string obj = "mtllib none.mtl\no part\n";
    std::string ply = "ply\r\nformat ascii 1.0\r\ncomment kept\r\nelement vertex 200\r\nproperty uchar label\r\n"
                      "property double x\r\nproperty double y\r\nproperty double z\r\nproperty float nx\r\n"
                      "property float ny\r\nproperty float nz\r\nend_header\r\n";
    std::string pcd = "FIELDS x y z label\nSIZE 4 4 4 2\nTYPE F F F U\nCOUNT 1 1 1 1\nWIDTH 200\nHEIGHT 1\n"
                      "VIEWPOINT 1 2 3 0 1 0 0\nPOINTS 200\nDATA ascii\n";
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        const Zorvan::Vector3& n = scan.normals[i];
        const std::string place = textOf(PlaceOf(scan, i));
        const std::string normal =
            textOf({static_cast<double>(n.x), static_cast<double>(n.y), static_cast<double>(n.z)});
        xyz += place + ";" + normal + " 7\n";
        pts += place + " -12 1 2 3\r\n";
        ptx += place + " 0.5 1 2 3\n";
        obj += "v " + place + "\nvn " + normal + "\n";
        ply += "7 " + place + " " + normal + "\r\n";
        pcd += place + " 7\n";
    }
    return {folder / "a.ply",           folder / "a.pcd",           folder / "a.las",
            folder / "a.stl",           folder / "a.e57",           folder.Write("b.xyz", xyz),
            folder.Write("b.pts", pts), folder.Write("b.ptx", ptx), folder.Write("b.obj", obj + "f 1//1 2//2 3//3\n"),
            folder.Write("b.ply", ply), folder.Write("b.pcd", pcd)};
}

/// All scans of a file in its frame.
std::vector<Scan> readInFileFrame(const std::filesystem::path& file)
{
    std::vector<Scan> scans = Zorvan::ReadScans(file);
    for (Scan& scan : scans) Zorvan::PutInFileFrame(scan);
    return scans;
}

void expectMoved(const std::filesystem::path& from, const std::filesystem::path& to, const FramePose& pose,
                 double tolerance)
{
    const std::vector<Scan> before = readInFileFrame(from);
    const std::vector<Scan> after = readInFileFrame(to);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t k = 0; k < before.size(); ++k) {
        const Scan& a = before[k];
        const Scan& b = after[k];
        ASSERT_EQ(b.points.size(), a.points.size());
        EXPECT_EQ(b.colours, a.colours);
        EXPECT_EQ(b.intensities, a.intensities);
        ASSERT_EQ(b.normals.size(), a.normals.size());
        for (std::size_t i = 0; i < a.points.size(); ++i) {
            if (!std::isfinite(a.points[i].x)) continue;
            ExpectNear(PlaceOf(b, i), Transform(pose, PlaceOf(a, i)), tolerance);
        }
        const auto normal = [](const Scan& scan, std::size_t i) {
            const Zorvan::Vector3& n = scan.normals[i];
            return Position{static_cast<double>(n.x), static_cast<double>(n.y), static_cast<double>(n.z)};
        };
        for (std::size_t i = 0; i < a.normals.size(); ++i)
            if (std::isfinite(a.normals[i].x)) ExpectNear(normal(b, i), Rotate(pose, normal(a, i)), 1e-5);
        if (!a.sensor) continue;
        ASSERT_TRUE(b.sensor);
        const auto place = [](const Scan& scan) {
            const Position& p = scan.sensor->position;
            return Position{p[0] + scan.shift[0], p[1] + scan.shift[1], p[2] + scan.shift[2]};
        };
        ExpectNear(place(b), Transform(pose, place(a)), tolerance);
    }
}

TEST(MoveScan, MovesPointsNormalsAndSensorAndNothingElse)
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "to");
    for (const auto& file : samples(folder)) {
        SCOPED_TRACE(file.string());
        const std::filesystem::path to = folder / ("to/" + file.filename().string());
        const auto result = Zorvan::MoveScanFile(file, to, turn);
        EXPECT_FALSE(result.isStopped);
        EXPECT_EQ(result.words, "");
        expectMoved(file, to, turn, 1e-4);
        for (std::size_t k = 0; k < readInFileFrame(file).size(); ++k)
            EXPECT_EQ(readInFileFrame(to)[k].faces, readInFileFrame(file)[k].faces);
        const std::string ending = file.extension().string();
        EXPECT_EQ(Zorvan::MoveScanFile(file, to, toMap).words.empty(), ending != ".stl");
        expectMoved(file, to, toMap, ending == ".stl" || ending == ".obj" ? 0.5 : 1e-4); // read in single precision
    }
}

// A big-endian file with a list before the vertices, values that nobody knows, and something behind; read here by hand.
TEST(MoveScan, KeepsWhatItDoesNotKnowByteByByte)
{
    const TemporaryFolder folder;
    std::string bytes = "ply\nformat binary_big_endian 1.0\nobj_info of the scanner\nelement strip 1\n"
                        "property list ushort uchar ids\nelement vertex 1\nproperty short flag\nproperty float x\n"
                        "property double y\nproperty int z\nproperty double time\nelement extra 1\n"
                        "property list uchar int far\nend_header\n";
    const std::string header = bytes;
    const auto big = [&](auto value) {
        std::string raw;
        Zorvan::AppendLittle(raw, value);
        return std::string(raw.rbegin(), raw.rend());
    };
    const std::string before = big(std::uint16_t{3}) + "abc";
    const std::string behind = big(1e9) + big(std::uint8_t{1}) + big(std::int32_t{-7});
    bytes += before + big(std::int16_t{-5}) + big(1.5F) + big(2.5) + big(std::int32_t{-3}) + behind;
    Zorvan::MoveScanFile(folder.Write("a.ply", bytes), folder / "b.ply",
                         {{10, 20, 30}, {0, 0, 0, 1}}); // x, y turned over
    std::string expected = header + before + big(std::int16_t{-5}) + big(8.5F) + big(17.5) + big(27.0) + behind;
    expected.replace(expected.find("int z"), 5, "double z");
    EXPECT_EQ(Zorvan::ReadFileBytes(folder / "b.ply"), expected);
}

TEST(MoveScan, KeepsLasPointsAndWhatStandsAroundThem)
{
    const TemporaryFolder folder;
    Zorvan::WriteLas(folder / "a.las", SampleScan());
    std::ofstream(folder / "a.las", std::ios::app | std::ios::binary) << "a record behind the points";
    Zorvan::MoveScanFile(folder / "a.las", folder / "b.las", toMap);
    const std::string a = Zorvan::ReadFileBytes(folder / "a.las");
    const std::string b = Zorvan::ReadFileBytes(folder / "b.las");
    ASSERT_EQ(a.size(), b.size());
    const std::size_t body = Zorvan::LoadLittle<std::uint32_t>(a, 96);
    const std::size_t stride = Zorvan::LoadLittle<std::uint16_t>(a, 105);
    for (std::size_t i = 0; i < 200; ++i)
        EXPECT_EQ(a.substr(body + i * stride + 12, stride - 12), b.substr(body + i * stride + 12, stride - 12));
    EXPECT_EQ(a.substr(0, 131), b.substr(0, 131));
    EXPECT_EQ(a.substr(227, body - 227) + a.substr(body + 200 * stride),
              b.substr(227, body - 227) + b.substr(body + 200 * stride));
    const auto number = [&](std::size_t at) { return Zorvan::LoadLittle<double>(b, at); };
    for (std::size_t k = 0; k < 3; ++k) {
        double low = 1e300;
        double high = -1e300;
        for (std::size_t i = 0; i < 200; ++i) {
            const double c = Zorvan::LoadLittle<std::int32_t>(b, body + i * stride + 4 * k) * number(131 + 8 * k) +
                             number(155 + 8 * k);
            low = std::min(low, c);
            high = std::max(high, c);
        }
        EXPECT_EQ(number(179 + 16 * k), high);
        EXPECT_EQ(number(187 + 16 * k), low);
    }
}

TEST(MoveScan, RefusesDamagedFilesAndLeavesNothing)
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "to");
    std::size_t refused = 0;
    for (const auto& file : samples(folder)) {
        const std::string bytes = Zorvan::ReadFileBytes(file);
        for (std::size_t part = 0; part < 40; ++part) {
            const auto cut = folder.Write("cut" + file.extension().string(), bytes.substr(0, bytes.size() * part / 40));
            try {
                Zorvan::MoveScanFile(cut, folder / ("to/" + cut.filename().string()), turn);
            } catch (const Zorvan::CInputError& error) {
                ++refused;
                EXPECT_EQ(std::string(error.what()).rfind(cut.string() + ": ", 0), 0U) << error.what();
            }
            std::filesystem::remove(folder / ("to/" + cut.filename().string()));
            EXPECT_TRUE(std::filesystem::is_empty(folder / "to")) << file;
        }
    }
    EXPECT_GT(refused, 200U);
    const auto stopped =
        Zorvan::MoveScanFile(folder / "a.ply", folder / "to/a.ply", turn, Zorvan::Hooks([] { return true; }));
    EXPECT_TRUE(stopped.isStopped);
    EXPECT_TRUE(std::filesystem::is_empty(folder / "to"));
}

TEST(MoveScan, MovesFilesOfOtherPrograms)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) GTEST_SKIP() << "ZORVAN_DATA names no folder with scans";
    const TemporaryFolder folder;
    std::size_t moved = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(data) / "formats")) {
        SCOPED_TRACE(entry.path().string());
        try {
            static_cast<void>(Zorvan::ReadScans(entry.path()));
        } catch (const Zorvan::CInputError&) {
            continue;
        }
        const auto to = folder / entry.path().filename().string();
        Zorvan::MoveScanFile(entry.path(), to, turn);
        expectMoved(entry.path(), to, turn, entry.path().extension() == ".las" ? 0.02 : 1e-3);
        ++moved;
    }
    EXPECT_GT(moved, 15U);
}

} // namespace
