// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "tests/scans/scansamples.h"

#include "zorvan/scans/e57writer.h"
#include "zorvan/scans/laswriter.h"
#include "zorvan/scans/pcdwriter.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/stlwriter.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

std::string repeated(const std::string& line, int times)
{
    std::string text;
    text.reserve(line.size() * static_cast<std::size_t>(times));
    for (int i = 0; i < times; ++i) text += line;
    return text;
}

const std::string plyHead = "ply\nformat ascii 1.0\nelement vertex ";
const std::string plyXyz = "\nproperty float x\nproperty float y\nproperty float z\n";

/// A header that is far too long, with one fault at its end.
std::string plyWithManyElements()
{
    std::string text = "ply\nformat ascii 1.0\n";
    for (int i = 0; i < 200000; ++i) text += "element e" + std::to_string(i) + " 0\n";
    return text + "element e199999 0\nend_header\n";
}

/// A floating scan that cannot be used, and words that the one line about it has to hold.
struct BadScan
{
    std::string name;
    std::string bytes;
    std::string words;
};

const BadScan badScans[] = {
    {"empty.ply", "", "empty"},
    {"other.ply", "solid", "line 1"},
    {"cut.ply",
     "ply\nformat binary_little_endian 1.0\nelement vertex 9" + plyXyz + "end_header\n" + std::string(50, 'a'),
     "promises 9 entries of \"vertex\" (at least 108 bytes), the file holds 50"},
    {"huge.ply", "ply\nformat binary_big_endian 1.0\nelement vertex 2147483647" + plyXyz + "end_header\n", "truncated"},
    {"more.ply", plyHead + "4000000000" + plyXyz + "end_header\n", "line 3"},
    {"ascii.ply", plyHead + "4" + plyXyz + "end_header\n0 0 0\n1 0 0\n0 x 0\n1 1 1\n",
     "line 10: \"x\" is not a number"},
    {"face.ply",
     plyHead + "3" + plyXyz +
         "element face 1\nproperty list uchar int vertex_indices\nend_header\n"
         "0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n",
     "index 3 of 3 vertices"},
    {"many.ply", plyWithManyElements(), "line 200003: element \"e199999\" appears twice"},
    {"flat.ply", plyHead + "1\nproperty float x\nproperty float y\nend_header\n0 0\n", "x, y and z"},
    {"list.ply",
     "ply\nformat binary_little_endian 1.0\nelement vertex 0" + plyXyz +
         "element face 1\nproperty list uint int vertex_indices\nend_header\n\xff\xff\xff\xff",
     "truncated"},
    {"cut.stl", std::string(80, ' ') + std::string("\x02\0\0\0", 4) + std::string(99, ' '), "promises 2 triangles"},
    {"short.stl", "abc", "truncated"},
    {"wrong.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 99999999\n", "wrong.obj"},
    {"nothing.obj", "# nothing\n", "nothing.obj: holds no point"},
    {"cut.obj", "v 0 0 0\r\nv 1 0 0\r\n-- cut here\r\nv 0 1 0\r\n", "line 3: begins with no word"},
    {"relative.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf -3 -2 -1\n", "line 4: invalid vertex index"},
    {"columns.xyz", "1 2 3\n1 2\n", "line 2: fewer than 3 columns"},
    {"words.xyz", "1 2 three\n", "line 1: \"three\" is not a number"},
    {"blank.xyz", "\n# only a comment\n", "holds no point"},
    {"nan.xyz", repeated("nan nan nan\n", 1000), "0 of 1000 points have finite coordinates"},
    {"large.xyz", repeated("1e30 2e30 3e30\n", 1000), "0 of 1000 points have finite coordinates"},
    {"equal.xyz", repeated("1 2 3\n", 1000000), "only 1 of 1000000 points are at places of their own"},
    {"line.xyz", "0 0 0\n1 0 0\n2 0 0\n3 0 0\n4 0 0\n5 0 0\n6 0 0\n7 0 0\n", "0 of 8 points have a normal"},
    {"one.xyz", "1 2 3\n", "one.xyz: holds 1 point, and no surface has fewer than 3"},
    {"two.xyz", "1 2 nan\n1 2 3\n", "holds 2 points, and no surface"},
    {"a.doc", "1 2 3\n", "unknown kind"},
};

const std::string identity = "[[1,0,0,0],[0,1,0,0],[0,0,1,0],[0,0,0,1]]";

void expectRefused(const WorkFolder::Outcome& outcome, const std::string& words)
{
    ExpectRefused(outcome, words);
    EXPECT_LE(outcome.err.size(), 301U) << outcome.err;
    EXPECT_EQ(outcome.out, "") << words;
}

/// A good fixed scan with an old result beside it.
class BadInput : public testing::Test
{
protected:
    BadInput()
    {
        std::string points;
        for (int i = 0; i < 400; ++i)
            points += std::to_string(i % 20) + " " + std::to_string(i / 20) + " " + std::to_string((i * i) % 7) + "\n";
        folder.Write("fix.xyz", points);
        folder.Write("old.json", "old");
    }

    void WritePose(const std::string& name) const
    {
        folder.Write("p.json",
                     "{\"clusters\": [{\"scans\": [{\"file\": \"" + name + "\", \"pose\": " + identity + "}]}]}");
    }

    WorkFolder folder;
};

TEST_F(BadInput, OfEveryKindIsRefusedInOneLine)
{
    for (const BadScan& scan : badScans) {
        folder.Write(scan.name, scan.bytes);
        WritePose(scan.name);
        const auto outcome = folder.Run("align fix.xyz " + scan.name + " --initial p.json -o old.json");
        expectRefused(outcome, scan.words);
        EXPECT_NE(outcome.err.find(scan.name), std::string::npos) << outcome.err;
        EXPECT_EQ(folder.Read("old.json"), "old");
    }
}

/// A file of 200 points in each format that promises how many there are, and what the promise looks like.
std::vector<std::tuple<std::string, std::string, std::string>> countedFiles(const WorkFolder& folder)
{
    Zorvan::Scan scan = SampleScan();
    std::string lines;
    for (const Zorvan::Vector3& p : scan.points)
        lines += std::to_string(p.x) + " " + std::to_string(p.y) + " " + std::to_string(p.z) + "\n";
    folder.Write("a.pts", "200\n" + lines);
    folder.Write("a.ptx", "20\n10\n0 0 9\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n" + lines);
    folder.Write("b.ply", plyHead + "200" + plyXyz + "end_header\n" + lines);
    folder.Write("b.pcd", "FIELDS x y z\nWIDTH 200\nDATA ascii\n" + lines);
    Zorvan::WritePly(folder / "a.ply", scan);
    Zorvan::WritePcd(folder / "a.pcd", scan);
    Zorvan::WriteLas(folder / "a.las", scan);
    Zorvan::WriteE57(folder / "a.e57", std::vector{scan});
    scan.faces = {{0, 1, 2}, {2, 1, 3}};
    Zorvan::WriteStl(folder / "a.stl", scan);
    const std::string inLas("\xc8\0\0\0", 4);
    return {{"a.pts", "200", "999"},
            {"a.ptx", "20\n", "99\n"},
            {"b.ply", "vertex 200", "vertex 999"},
            {"b.pcd", "WIDTH 200", "WIDTH 999"},
            {"a.ply", "vertex 200", "vertex 999"},
            {"a.pcd", "WIDTH 200", "WIDTH 999"},
            {"a.las", inLas, std::string(4, '\x7f')},
            {"a.e57", "recordCount=\"200\"", "recordCount=\"999\""},
            {"a.stl", std::string("\2\0\0\0", 4), std::string(4, '\x7f')}};
}

TEST_F(BadInput, OfACutFileOrALyingCountIsRefusedInOneLine)
{
    constexpr std::size_t uiCuts = 25;
    for (const auto& [name, count, lie] : countedFiles(folder)) {
        const std::string whole = folder.Read(name);
        const std::string ending = name.substr(1);
        ASSERT_EQ(folder.Run("info " + name).exitCode, 0) << name;
        std::string files = "lie" + ending;
        std::string lying = whole;
        ASSERT_NE(whole.find(count), std::string::npos) << name;
        folder.Write("lie" + ending, lying.replace(lying.find(count), count.size(), lie));
        for (std::size_t i = 0; i < uiCuts; ++i) {
            const std::string cut = "cut" + std::to_string(i) + ending;
            folder.Write(cut, whole.substr(0, whole.size() * i / uiCuts));
            files += " " + cut;
        }
        const auto outcome = folder.Run("info " + files);
        EXPECT_EQ(outcome.exitCode, 2) << name;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), uiCuts + 1) << outcome.err;
        EXPECT_EQ(outcome.out, "") << "of damaged files";
        std::istringstream refusals(outcome.err);
        std::istringstream names(files);
        for (std::string line, file; std::getline(refusals, line) && names >> file;)
            EXPECT_TRUE(line.starts_with("zorvan: " + file + ": ")) << line;
    }
}

TEST_F(BadInput, OfTheCallIsRefusedInOneLine)
{
    folder.Write("flt.xyz", folder.Read("fix.xyz"));
    folder.Write("same.ply", "ply");
    folder.Write("few.xyz", "0 0 0\n1 0 0\n2 0 0\n0 1 0\n1 1 0\n2 1 0\n0 2 0\n1 2 0\n2 2 0\n");
    folder.Write("wide.txt", "{'dFeatureRadius' : 0.5}");
    WritePose("flt.xyz");
    std::filesystem::create_symlink("flt.xyz", folder / "link.xyz");
    std::filesystem::create_directory(folder / "out");
    for (const char* name : {"out/report.html", "out/poses.json", "wide.ply"}) folder.Write(name, "{}");
    const struct
    {
        std::string arguments;
        std::string words;
    } cases[] = {
        {"", "--help"},
        {"align fix.xyz", "FLT"},
        {"align fix.xyz few.xyz", "few.xyz: has no features, too few for a search"},
        {"align fix.xyz missing.xyz --initial p.json", "no pose of missing.xyz"},
        {"align missing.xyz flt.xyz --initial p.json", "missing.xyz: no such file"},
        {"align fix.xyz flt.xyz --initial missing.json", "missing.json: no such file"},
        {"align . flt.xyz --initial p.json", "not a file"},
        {"align flt.xyz ./flt.xyz --initial p.json", "two scans are named"},
        {"align fix.xyz flt.xyz --initial p.json -o no/such/out.json", "no/such: cannot be written"},
        {"align fix.xyz flt.xyz -o ./fix.xyz", "./fix.xyz: would replace fix.xyz"},
        {"align fix.xyz flt.xyz -o link.xyz", "link.xyz: would replace flt.xyz"},
        {"align fix.xyz flt.xyz --initial p.json -o p.json", "would replace p.json"},
        {"align fix.xyz flt.xyz --settings wide.txt -o wide.txt", "would replace wide.txt"},
        {"settings --settings wide.txt -o wide.txt", "would replace wide.txt"},
        {"features fix.xyz --settings wide.ply -o wide.ply", "would replace wide.ply"},
        {"register fix.xyz flt.xyz --settings out/report.html -o out", "would replace out/report.html"},
        {"register flt.xyz --session out/poses.json -o out", "would replace out/poses.json"},
        {"align fix.xyz flt.xyz --initial p.json -o .", "not a file"},
        {"align fix.xyz flt.xyz --initial p.json --scale 0", "--scale"},
        {"align fix.xyz flt.xyz --initial p.json --grid fine", "--grid"},
        {"align fix.xyz flt.xyz --initial p.json --sensor 1,2", "--sensor"},
        {"align fix.xyz flt.xyz --initial p.json --log loud", "--log"},
        {"features missing.xyz", "missing.xyz: no such file"},
        {"features fix.xyz -o old.json", "ends in .ply"},
        {"features fix.xyz -o no/such/out.ply", "cannot be written"},
        {"features same.ply -o ./same.ply", "./same.ply: would replace same.ply"},
        {"features fix.xyz --grid 0.001", "too small for the extent"},
        {"features fix.xyz --grid 1e300", "between 1e-6 and 1e9 mm"},
        {"features fix.xyz --grid 1 --settings wide.txt", "dFeatureGridSize (4 mm) is larger than dFeatureRadius"},
        {"align fix.xyz flt.xyz --grid 1 --settings wide.txt", "dFeatureGridSize (4 mm) is larger than dFeatureRadius"},
        {"simulate -o old.json", "old.json: cannot be written"},
        {"simulate -o new --views 0", "--views"},
        {"simulate -o new --rough 5", "--rough"},
        {"simulate -o new --object cube", "--object"},
        {"simulate -o new --sensor sonar", "no virtual sensor is called \"sonar\""},
        {"simulate -o new --sensor lidar+warped", "no other effect"},
        {"simulate -o new --object gear --field 20", "--field"},
        {"simulate -o new --object gear --sensor lidar --points 5000", "--spacing"},
        {"evaluate p.json old.json", "no JSON"},
    };
    for (const auto& c : cases) expectRefused(folder.Run(c.arguments), c.words);
    EXPECT_EQ(folder.Read("old.json"), "old");
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
}

TEST_F(BadInput, WithAnUglyNameIsRefusedInOneShortLine)
{
    const std::string deep = repeated("long/", 200) + "folder\n\x1b[2J.ply";
    std::filesystem::create_directories((folder / deep).parent_path());
    folder.Write(deep, "ply\n");
    expectRefused(folder.Run("align fix.xyz \"" + deep + "\""), "folder\\n\\x1b[2J.ply: ");
    folder.Write("flt\n\x1b[2J.xyz", folder.Read("fix.xyz"));
    WritePose("flt\\n\\u001b[2J.xyz");
    const auto outcome = folder.Run("align fix.xyz flt*.xyz --initial p.json -o out.json");
    EXPECT_NE(outcome.out.find("flt\\n\\x1b[2J.xyz is"), std::string::npos) << outcome.out << outcome.err;
    EXPECT_EQ(folder.Run("evaluate out.json p.json").out.find('\x1b'), std::string::npos);
}

// Where nothing arrives, nothing has been said: a script must not take it for an answer.
TEST_F(BadInput, IsNotToBlameWhenTheOutputCannotBeWritten)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    ASSERT_LT(pipe[1], 10) << "shells know one digit";
    ::close(pipe[0]);
    const std::string intoNothing = ">&" + std::to_string(pipe[1]);
    WritePose("fix.xyz");
    for (const std::string& out : {std::string(">/dev/full"), std::string(">&-"), intoNothing}) {
        for (const char* arguments : {"settings", "--help", "evaluate p.json p.json", "features fix.xyz -o full.ply"}) {
            const auto outcome = folder.Run(arguments, out);
            EXPECT_EQ(outcome.exitCode, 2) << arguments << out;
            EXPECT_NE(outcome.err.find("standard output cannot be written"), std::string::npos) << outcome.err;
        }
        EXPECT_NE(folder.Read("full.ply").find("end_header"), std::string::npos) << "written before the table";
        std::filesystem::remove(folder / "full.ply");
    }
    ::close(pipe[1]);
    EXPECT_EQ(folder.Run("features fix.xyz -o full.ply", ">stdout.txt 2>&-").exitCode, 0);
    EXPECT_EQ(folder.Read("full.ply").rfind("ply\n", 0), 0U);
}

TEST_F(BadInput, OfOnePointIsDroppedWithAWarning)
{
    folder.Write("flt.xyz", "nan 0 0\n" + folder.Read("fix.xyz"));
    WritePose("flt.xyz");
    const std::string warning = "flt.xyz: of 401 points, dropped 1 that are not finite";
    const auto outcome = folder.Run("align fix.xyz flt.xyz --initial p.json");
    EXPECT_LT(outcome.exitCode, 2);
    EXPECT_NE(outcome.err.find(warning), std::string::npos) << outcome.err;
    EXPECT_EQ(folder.Run("align fix.xyz flt.xyz --initial p.json --quiet").err, "");
}

} // namespace
