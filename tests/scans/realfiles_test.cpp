// SPDX-License-Identifier: MIT
// Files that other programs have written.
#include "tests/scans/scansamples.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/scanreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using Zorvan::Position;
using Zorvan::Scan;

/// Count and extent as a few lines of Python with the struct module find them, or the XML of an E57 file has them.
struct KnownFile
{
    const char* name;
    std::vector<std::size_t> points; ///< of each scan
    std::size_t finite;              ///< of the first
    Position low;
    Position high;
};

const KnownFile files[] = {
    {"bun0.pcd", {397}, 397, {-0.093938001, 0.037420001, -0.055025999}, {0.059562001, 0.18449999, 0.057803001}},
    {"milk_color.pcd", {13704}, 13704, {-0.140082896, -0.26378, 0.714}, {0.01380667, -0.01172857, 0.891}},
    {"office1.pcd", {307200}, 254456, {-2.6454761, -2.19642901, 1.833}, {1.50435996, 1.58124602, 5.364}},
    {"rops_cloud.pcd", {32087}, 32087, {-0.41984, -0.24034, -1.4022}, {0.40617, 0.24871, -1.0098}},
    {"1.2-with-color.las", {1065}, 1065, {635619.85, 848899.7, 406.59}, {638982.55, 853535.43, 586.38}},
    {"bad_vlr_count.las", {10}, 10, {289814.15, 4320978.61, 170.58}, {289818.5, 4320980.59, 170.76}},
    {"epsg_4326.las", {5380}, 5380, {-94.6834654, 31.0367341, 39.0810002}, {-94.6606311, 31.0473291, 78.1190002}},
    {"gps-time-nan.las", {1}, 1, {0, 0, 0}, {0, 0, 0}},
    {"A_B.e57", {2, 4}, 2, {-42.6422997, 1.87259996, 0.510100007}, {-42.6394997, 2.05780005, 0.666700006}},
    {"pumpAVisualReferenceImage.e57",
     {155201},
     155201,
     {-2.903764, -5.301103, -1.899705},
     {1.721604, -0.792647, 1.843003}},
    {"testWithNormals.e57", {2}, 2, {1, 0, 0}, {2, 0, 0}},
    {"translationWithoutRotation.e57", {4}, 4, {}, {}},
};

void expectExtent(const Scan& scan, const KnownFile& known)
{
    Position low{1e30, 1e30, 1e30};
    Position high{-1e30, -1e30, -1e30};
    std::size_t finite = 0;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        const Position place = PlaceOf(scan, i);
        if (!std::isfinite(place[0] + place[1] + place[2])) continue;
        ++finite;
        for (std::size_t k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], place[k]);
            high[k] = std::max(high[k], place[k]);
        }
    }
    EXPECT_EQ(finite, known.finite);
    if (known.low == known.high && known.points[0] > 1) return;            // not known
    const double tolerance = std::fabs(known.low[0]) > 1000 ? 2e-4 : 4e-6; // a float at 4000 from the shift, or at 100
    ExpectNear(low, known.low, tolerance);
    ExpectNear(high, known.high, tolerance);
}

TEST(RealFiles, AreReadWholeAndInTheirPlace)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) GTEST_SKIP() << "ZORVAN_DATA names no folder with real files";
    const std::filesystem::path folder = std::filesystem::path(data) / "formats";
    for (const KnownFile& known : files) {
        SCOPED_TRACE(known.name);
        const std::vector<Scan> scans = Zorvan::ReadScans(folder / known.name);
        std::vector<std::size_t> points;
        for (const Scan& scan : scans) points.push_back(scan.points.size());
        EXPECT_EQ(points, known.points);
        expectExtent(scans.front(), known);
    }
    const Scan office = Zorvan::ReadScanFile(folder / "office1.pcd");
    EXPECT_GT(office.faces.size(), 300000U);
    EXPECT_TRUE(office.sensor && office.colours.size() == office.points.size());
    EXPECT_EQ(Zorvan::ReadScans(folder / "1.2-with-color.las").front().colours.front(), (Zorvan::Rgb{68, 77, 88}));
    EXPECT_EQ(Zorvan::ReadScanFile(folder / "testWithNormals.e57").normals.size(), 2U);
    const Scan moved = Zorvan::ReadScanFile(folder / "translationWithoutRotation.e57");
    EXPECT_EQ(std::ranges::min(moved.points, {}, [](const auto& p) { return p.x; }).x, 4.0F);
    EXPECT_THROW(static_cast<void>(Zorvan::ReadScans(folder / "garbage_nVariableLength.las")), Zorvan::CInputError);
}

} // namespace
