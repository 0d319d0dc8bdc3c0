// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

namespace {

using Zorvan::Scan;
using Zorvan::Vector3;

// Every value is a small whole number, so that each scalar type of PLY holds it exactly.
const Scan sample{{{1, 2, 3}, {-4, 5, 6}, {7, -8, 9}, {0, 0, 1}},
                  {{1, 0, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}},
                  {{0, 1, 2}, {0, 2, 3}}};

void expectSame(const Scan& read, const Scan& written)
{
    EXPECT_EQ(read.points, written.points);
    EXPECT_EQ(read.normals, written.normals);
    EXPECT_EQ(read.faces, written.faces);
}

/// Writes values one after another as a PLY body of one format.
class PlyBody
{
public:
    explicit PlyBody(std::string format) : m_format(std::move(format)) {}

    void Put(const std::string& type, double value)
    {
        if (m_format == "ascii")
            m_text << value << ' ';
        else if (type == "char" || type == "int8")
            raw(static_cast<std::int8_t>(value));
        else if (type == "uchar" || type == "uint8")
            raw(static_cast<std::uint8_t>(value));
        else if (type == "short")
            raw(static_cast<std::int16_t>(value));
        else if (type == "ushort")
            raw(static_cast<std::uint16_t>(value));
        else if (type == "int")
            raw(static_cast<std::int32_t>(value));
        else if (type == "uint")
            raw(static_cast<std::uint32_t>(value));
        else if (type == "float")
            raw(static_cast<float>(value));
        else
            raw(value);
    }

    [[nodiscard]] std::string Bytes() const { return m_text.str(); }

private:
    template <typename T>
    void raw(T value)
    {
        std::string bytes(sizeof(T), '\0');
        std::memcpy(bytes.data(), &value, sizeof(T));
        if (m_format == "binary_big_endian") std::reverse(bytes.begin(), bytes.end());
        m_text << bytes;
    }

    std::string m_format;
    std::ostringstream m_text;
};

struct PlyCase
{
    std::string format;
    std::string scalar; ///< of coordinates
    std::string count;  ///< of the length of lists
    std::string index;
};

// The sample as one quad, with an element and a list that nobody asks for before and among the ones that count.
std::string plyOf(const PlyCase& c)
{
    PlyBody body(c.format);
    std::string header = "ply\r\nformat " + c.format +
                         " 1.0\ncomment a test\nelement camera 1\nproperty list uchar short a\n" +
                         "element vertex 4\nproperty uchar red\n";
    for (const char* name : {"x", "y", "z", "nx", "ny", "nz"}) header += "property " + c.scalar + " " + name + "\n";
    header +=
        "element face 1\nproperty list " + c.count + " " + c.index + " vertex_index\nproperty uchar flag\nend_header\n";
    for (const int value : {2, -7, 8}) body.Put(value == 2 ? "uchar" : "short", value);
    for (std::size_t i = 0; i < 4; ++i) {
        body.Put("uchar", 200);
        for (const Vector3& v : {sample.points[i], sample.normals[i]}) {
            for (unsigned k = 0; k < 3; ++k) body.Put(c.scalar, v[k]);
        }
    }
    body.Put(c.count, 4);
    for (int i = 0; i < 4; ++i) body.Put(c.index, i);
    body.Put("uchar", 1);
    return header + body.Bytes();
}

void PrintTo(const PlyCase& c, std::ostream* out)
{
    *out << c.format << ' ' << c.scalar << ", lists of " << c.index << " counted by " << c.count;
}

class PlyFormats : public testing::TestWithParam<PlyCase>
{
};

INSTANTIATE_TEST_SUITE_P(All, PlyFormats,
                         testing::Values(PlyCase{"ascii", "float", "uchar", "int"},
                                         PlyCase{"ascii", "double", "int", "uint"},
                                         PlyCase{"binary_little_endian", "float", "uchar", "int"},
                                         PlyCase{"binary_little_endian", "double", "ushort", "short"},
                                         PlyCase{"binary_little_endian", "char", "uint", "uchar"},
                                         PlyCase{"binary_big_endian", "float", "uchar", "uint"},
                                         PlyCase{"binary_big_endian", "short", "int", "ushort"},
                                         PlyCase{"binary_big_endian", "double", "char", "char"}),
                         [](const auto& test) { return std::string(test.param.format) + "_" + test.param.scalar; });

TEST(PlyFaces, AreTrianglesAndWhateverElseStandsBetweenThem)
{
    const TemporaryFolder folder;
    for (const std::string format : {"ascii", "binary_little_endian", "binary_big_endian"}) {
        const auto write = [&](const std::vector<std::vector<int>>& faces) {
            PlyBody body(format);
            for (int i = 0; i < 12; ++i) body.Put("float", i * i);
            for (const std::vector<int>& face : faces) {
                body.Put("uchar", static_cast<int>(face.size()));
                for (const int corner : face) body.Put("int", corner);
            }
            return folder.Write("faces.ply", "ply\nformat " + format +
                                                 " 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                                                 "property float z\nelement face " +
                                                 std::to_string(faces.size()) +
                                                 "\nproperty list uchar int vertex_indices\nend_header\n" +
                                                 body.Bytes());
        };
        const std::vector<Zorvan::Face> expected{{0, 1, 2}, {3, 2, 1}, {3, 1, 0}, {1, 2, 3}};
        EXPECT_EQ(Zorvan::ReadScanFile(write({{0, 1, 2}, {3, 2, 1, 0}, {}, {1, 2}, {1, 2, 3}})).faces, expected)
            << format;
        for (const int bad : {4, -1}) {
            const auto file = write({{0, 1, 2}, {0, bad, 2}, {0, 1, 2}});
            EXPECT_THAT([&] { (void)Zorvan::ReadScanFile(file); },
                        testing::ThrowsMessage<Zorvan::CInputError>(
                            testing::HasSubstr("index " + std::to_string(bad) + " of 4 vertices")))
                << format;
        }
    }
}

TEST(PlyPoints, AreTakenByNameInAnyOrder)
{
    const TemporaryFolder folder;
    for (const std::string format : {"ascii", "binary_little_endian", "binary_big_endian"}) {
        for (const std::string names : {"xyz", "zyx", "xyza"}) {
            PlyBody body(format);
            std::string header = "ply\nformat " + format + " 1.0\nelement vertex 2\n";
            for (const char name : names) header += std::string("property float ") + name + "\n";
            for (const int first : {1, 11})
                for (const char name : names) body.Put("float", first + (name - 'x'));
            const auto file = folder.Write("points.ply", header + "end_header\n" + body.Bytes());
            EXPECT_THAT(Zorvan::ReadScanFile(file).points, testing::ElementsAre(Vector3(1, 2, 3), Vector3(11, 12, 13)))
                << format << ' ' << names;
        }
    }
}

TEST_P(PlyFormats, GiveTheSameScan)
{
    const TemporaryFolder folder;
    expectSame(Zorvan::ReadScanFile(folder.Write("a.PLY", plyOf(GetParam()))), sample);
}

TEST_P(PlyFormats, NoticeEveryMissingByte)
{
    const std::string whole = plyOf(GetParam());
    const TemporaryFolder folder;
    // The last separator of a text may go; its last value may not.
    for (std::size_t length = 1; length + 2 <= whole.size(); ++length) {
        const auto file = folder.Write("a.ply", whole.substr(0, length));
        EXPECT_THROW(static_cast<void>(Zorvan::ReadScanFile(file)), Zorvan::CInputError)
            << length << " of " << whole.size();
    }
}

TEST(ScanWriter, KeepsColoursAndIntensitiesWithoutMakingAResultOfTheScan)
{
    const TemporaryFolder folder;
    for (const Scan& scan : {SampleScan(), SampleScan({500000, 5.4e6, 300})}) {
        Zorvan::WritePly(folder / "a.ply", scan);
        ExpectSameScan(Zorvan::ReadScans(folder / "a.ply").front(), scan);
        EXPECT_FALSE(Zorvan::IsColouredResult(folder / "a.ply"));
        Zorvan::WritePly(folder / "a.ply", scan, 1.0, std::vector<Zorvan::Rgb>(scan.points.size(), {1, 2, 3}));
        EXPECT_EQ(Zorvan::ReadScans(folder / "a.ply").front().colours[5], (Zorvan::Rgb{1, 2, 3}));
        EXPECT_TRUE(Zorvan::IsColouredResult(folder / "a.ply"));
    }
}

TEST(ScanReader, TakesColoursOfEveryTypeAndOtherNames)
{
    const std::string xyz = "ply\nformat ascii 1.0\nelement vertex 1\nproperty int x\nproperty int y\nproperty int z\n";
    const TemporaryFolder folder;
    const Scan a = Zorvan::ReadScanFile(folder.Write("a.ply", xyz + "property float red\nproperty ushort green\n"
                                                                    "property uchar blue\nproperty float intensity\n"
                                                                    "end_header\n1 2 3 0.5 65535 7 0.25\n"));
    EXPECT_EQ(a.colours, (std::vector<Zorvan::Rgb>{{128, 255, 7}}));
    EXPECT_EQ(a.intensities, std::vector<float>{0.25F});
    const Scan b = Zorvan::ReadScanFile(
        folder.Write("b.ply", xyz + "property double diffuse_red\nproperty int diffuse_green\n"
                                    "property short diffuse_blue\nproperty ushort scalar_Intensity\n"
                                    "end_header\n1 2 3 nan 300 -1 9\n"));
    EXPECT_EQ(b.colours, (std::vector<Zorvan::Rgb>{{0, 255, 0}}));
    EXPECT_EQ(b.intensities, std::vector<float>{9});
}

TEST(ScanReader, TurnsNormalsTowardTheSensorOfTheFileUnlessOneIsGiven)
{
    const TemporaryFolder folder;
    std::string pcd = "FIELDS x y z\nWIDTH 100\nVIEWPOINT 0 0 -50 1 0 0 0\nDATA ascii\n";
    for (int i = 0; i < 100; ++i) pcd += std::to_string(i % 10) + " " + std::to_string(i / 10) + " 7\n";
    const auto file = folder.Write("a.pcd", pcd);
    const Zorvan::SurfelScan scan = Zorvan::ReadScan(file, {.dMmPerUnit = 1000, .sensor = {}});
    EXPECT_EQ(scan.normals.front(), Vector3(0, 0, -1));
    ASSERT_TRUE(scan.sensor);
    EXPECT_EQ(scan.sensor->position, (Zorvan::Position{0, 0, -50000}));
    const Zorvan::SurfelScan above = Zorvan::ReadScan(file, {.dMmPerUnit = 1000, .sensor = Zorvan::Position{0, 0, 50}});
    EXPECT_EQ(above.normals.front(), Vector3(0, 0, 1));
}

TEST(ScanReader, JoinsRangeGridToFacesButNotAcrossSteps)
{
    // Three columns and two rows one apart; the last column lies 50 deeper, and one corner of the first square is
    // missing.
    const TemporaryFolder folder;
    const std::string grid =
        "ply\nformat ascii 1.0\nobj_info num_cols 4\nobj_info num_rows 2\nelement vertex 7\n"
        "property float x\nproperty float y\nproperty float z\nelement range_grid 8\n"
        "property list uchar int vertex_indices\nend_header\n"
        "0 0 0\n1 0 0\n2 0 0\n3 0 -50\n1 1 0\n2 1 0\n3 1 -50\n1 0\n1 1\n1 2\n1 3\n0\n1 4\n1 5\n1 6\n";
    const Scan scan = Zorvan::ReadScanFile(folder.Write("grid.ply", grid));
    EXPECT_EQ(scan.faces, (std::vector<Zorvan::Face>{{0, 1, 4}, {1, 2, 5}, {1, 5, 4}}));
}

TEST(ScanReader, ReadsTextWithCommentsSignsAndExtraColumns)
{
    const TemporaryFolder folder;
    const auto xyz = folder.Write("a.xyz", "# made by hand\r\n\r\n+1.5 -2e0;3\r\n4,5\t6 99\r\nnan inf 1e999\n");
    const Scan points = Zorvan::ReadScanFile(xyz);
    ASSERT_EQ(points.points.size(), 3U);
    EXPECT_EQ(points.points[0], Vector3(1.5F, -2, 3));
    EXPECT_EQ(points.points[1], Vector3(4, 5, 6));
    EXPECT_TRUE(std::isnan(points.points[2].x) && std::isinf(points.points[2].y) && std::isinf(points.points[2].z));
    EXPECT_TRUE(points.normals.empty());
    const Scan surfels = Zorvan::ReadScanFile(folder.Write("a.xyzn", "1 2 3 0 0 1 255 0 0\n4 5 6 0 1 0\n"));
    EXPECT_EQ(surfels.normals, (prereg::Vectors{{0, 0, 1}, {0, 1, 0}}));
}

TEST(ScanReader, RoundsToTheNearestFloat)
{
    const TemporaryFolder folder;
    constexpr float max = std::numeric_limits<float>::max();
    const auto xyz = folder.Write("a.xyz", "3.40282347e38 -3.40282347e38 1\n3.4028236e38 -3.4028236e38 1e-46\n");
    const Scan scan = Zorvan::ReadScanFile(xyz);
    ASSERT_EQ(scan.points.size(), 2U);
    EXPECT_EQ(scan.points[0], Vector3(max, -max, 1));
    EXPECT_TRUE(std::isinf(scan.points[1].x) && std::isinf(scan.points[1].y) && scan.points[1].z == 0.0F);
}

std::string binaryStl(const Scan& scan)
{
    PlyBody body("binary_little_endian");
    body.Put("uint", static_cast<double>(scan.faces.size()));
    for (const Zorvan::Face& face : scan.faces) {
        for (int i = 0; i < 3; ++i) body.Put("float", 0);
        for (const std::uint32_t corner : face) {
            for (unsigned k = 0; k < 3; ++k) body.Put("float", scan.points[corner][k]);
        }
        body.Put("ushort", 0);
    }
    return "solid in name only" + std::string(62, ' ') + body.Bytes();
}

const char* const textStl =
    "solid a\nfacet normal 0 0 1\nouter loop\nvertex 1 2 3\nvertex -4 5 6\nvertex 7 -8 9\nendloop\n"
    "endfacet\nfacet normal 0 0 1\nouter loop\nvertex 1 2 3\nvertex 7 -8 9\nvertex 0 0 1\n"
    "endloop\nendfacet\nendsolid a\n";
const char* const objMesh = "mtllib none.mtl\nv 1 2 3\nv -4 5 6\nv 7 -8 9\nv 0 0 1\nf 1 2 3 4\n";

TEST(ScanReader, JoinsTheCornersOfStlAndObj)
{
    const TemporaryFolder folder;
    for (const auto& file :
         {folder.Write("a.stl", binaryStl(sample)), folder.Write("b.stl", binaryStl(sample) + "tail"),
          folder.Write("c.stl", textStl), folder.Write("d.obj", objMesh)}) {
        const Zorvan::SurfelScan scan = Zorvan::ReadScan(file, {});
        EXPECT_EQ(scan.points, sample.points) << file;
        EXPECT_EQ(scan.eNormals, Zorvan::ENormalSource::Faces) << file;
    }
}

TEST(ScanReader, NoticesEveryMissingByteOfStl)
{
    const TemporaryFolder folder;
    for (const std::string& whole : {binaryStl(sample), std::string(textStl)}) {
        const std::size_t last = whole.find(" a\n", 10) == std::string::npos ? 1 : 4; // the name behind endsolid may go
        for (std::size_t length = 1; length + last <= whole.size(); ++length)
            EXPECT_THROW(static_cast<void>(Zorvan::ReadScanFile(folder.Write("a.stl", whole.substr(0, length)))),
                         Zorvan::CInputError)
                << length << " of " << whole.size();
    }
    const Scan polygon = Zorvan::ReadScanFile(folder.Write(
        "b.stl", "solid\n FACET\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 1 1 0\nvertex 0 1 0\nendloop\n"
                 "endfacet\nendsolid\n"));
    EXPECT_EQ(polygon.faces.size(), 2U);
}

TEST(ScanReader, ReadsObjWithoutFacesAndWithNormals)
{
    const TemporaryFolder folder;
    const Scan points = Zorvan::ReadScanFile(folder.Write("a.obj", "v 1 2 3\nv -4 5 6\nv 7 -8 9\nv 0 0 1\n"));
    EXPECT_EQ(points.points, sample.points);
    const auto file = folder.Write("b.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 -2\nf 1//1 2//1 3//1\n");
    EXPECT_EQ(Zorvan::ReadScan(file, {}).normals, prereg::Vectors(3, Vector3(0, 0, -1)));
}

TEST(ScanReader, NeedsNoMaterialOfAnObj)
{
    const TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    const Scan scan =
        Zorvan::ReadScanFile(folder.Write("a.obj", "\xef\xbb\xbfv 1 2 3\r\nv -4 5 6\r\nmtllib pipe\r\n\tUseMtl none\r\n"
                                                   "v 7 -8 9\nv 0 0 1\nusemtl\nusemtlx\nf 1 2 3\nf 1 2\n"));
    EXPECT_EQ(scan.points, prereg::Vectors(sample.points.begin(), sample.points.begin() + 3));
    EXPECT_EQ(scan.faces, (std::vector<Zorvan::Face>{{0, 1, 2}}));
}

TEST(ScanReader, DropsWhatCannotBeRegisteredAndSaysSo)
{
    const TemporaryFolder folder;
    const auto file = folder.Write("a.xyzn", "0 0 0 0 0 2\n1 0 0 0 0 1\n0 1 0 0 0 1\n0 1 0 0 0 1\nnan 0 0 0 0 1\n"
                                             "1e30 0 0 0 0 1\n2 2 2 0 0 0\n");
    const Zorvan::SurfelScan scan = Zorvan::ReadScan(file, {.dMmPerUnit = 1000, .sensor = {}});
    EXPECT_EQ(scan.points, (prereg::Vectors{{0, 0, 0}, {1000, 0, 0}, {0, 1000, 0}}));
    EXPECT_EQ(scan.normals, prereg::Vectors(3, Vector3(0, 0, 1)));
    EXPECT_EQ(scan.Warning(), file.string() +
                                  ": of 7 points, dropped 2 that are not finite or beyond 1e9 mm and 1 without "
                                  "a normal");
}

} // namespace
