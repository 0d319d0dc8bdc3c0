// SPDX-License-Identifier: MIT
#include "zorvan/exchange/cobjparser.h"

#include "textfile.h"

#include "tests/support/commalocale.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <vector>

namespace Zorvan {
namespace {

constexpr unsigned int none = COBJParser::uiAbsent;
using Corners = std::vector<COBJParser::Corner>;

/// "line:column message", or nothing when the text was read.
std::wstring outcomeOf(COBJParser& parser)
{
    try {
        parser.Parse();
    } catch (const AStreamParser::CParseError& e) {
        return std::to_wstring(e.GetLine()) + L":" + std::to_wstring(e.GetColumn()) + L" " + e.GetMessage();
    }
    return L"";
}

/// A file with a library beside it.
class ObjFile : public TextFolder
{
public:
    explicit ObjFile(const std::string& obj, const std::string& mtl = "", const std::string& mtlName = "m.mtl")
        : m_parser((Write(mtlName, mtl), Write("a.obj", obj)))
    {
    }

    COBJParser& operator*() { return m_parser; }
    COBJParser* operator->() { return &m_parser; }

private:
    COBJParser m_parser;
};

const std::string threeOfEach =
    "v 1 2 3\nv 4 5 6\nv 7 8 9\nvt 0.25 1\nvt 0 .5e0\nvt 1e-1 2\nvn 0 0 1\nvn 0 1 0\nvn 1 0 0\n";

TEST(OBJParser, ReadsEveryStatement)
{
    const CCommaLocale comma;
    ObjFile obj(
        "# caf\xc3\xa9\r\nmtllib  m.mtl \r\no name\ns off\nG 1 2\n" + threeOfEach +
            "V 1.5 -2 +3e1 7 8 # colour\nf 1/2/3 2/3/1 3/1/2\nusemtl red # one\nf 1//1 2//2 3//3 4\nf 3/1 2/1/ 1\n"
            "f\nf 1 2\nusemtl\tgr\xc3\xbcn \xc3\x85\n\nf 1 3\n2\nfo 1 2\nl 1 2\nf 1 2 3",
        "newmtl  gr\xc3\xbcn \xc3\x85\nKd 0 0.5 1\nmap_Kd sub folder/a b.png \nillum word\nNs 10\nsharpness 33\nTr 1\n"
        "newmtl red\nka 1 2 3\nKs .5e0 0 0\nMAP_KA x\nmap_Ks y\n\nnewmtl red\n");
    const support::LogCapture log;
    EXPECT_EQ(outcomeOf(*obj), L"");
    ASSERT_EQ(obj->GetVertices().size(), 4U);
    EXPECT_EQ(obj->GetVertices()[3], (COBJParser::Vector{1.5F, -2, 30}));
    EXPECT_EQ(obj->GetNormals()[2], (COBJParser::Vector{1, 0, 0}));
    EXPECT_EQ(obj->GetTextureCoords(), (std::vector<COBJParser::TexCoords>{{0.25F, 1}, {0, 0.5F}, {0.1F, 2}}));

    ASSERT_EQ(obj->GetNumMeshes(), 3U);
    const auto& green = obj->GetMaterials()[0];
    EXPECT_EQ(green.name, "gr\xc3\xbcn \xc3\x85") << "bytes, though the last of them is a blank as a character";
    EXPECT_EQ(green.Kd, (COBJParser::Vector{0, 0.5F, 1}));
    EXPECT_EQ(green.map_Kd, obj->GetBaseDir() + "/sub folder/a b.png");
    const auto& red = obj->GetMaterials()[1];
    EXPECT_EQ(red.Ka, (COBJParser::Vector{1, 2, 3}));
    EXPECT_EQ(red.map_Ka + red.map_Ks, obj->GetBaseDir() + "/x" + obj->GetBaseDir() + "/y");

    const std::vector<COBJParser::Face> faces{
        {none, {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}}},
        {1, {{0, none, 0}, {1, none, 1}, {2, none, 2}, {3, none, none}}},
        {1, {{2, 0, none}, {1, 0, 0}}}, // "1/ 1": blanks do not part what slashes join
        {1, {{0, none, none}, {1, none, none}}},
        {0, {{0, none, none}, {2, none, none}, {1, none, none}}}, // goes on in the next line
        {0, {{0, none, none}, {1, none, none}, {2, none, none}}}};
    EXPECT_EQ(obj->GetFaces(), faces);
    EXPECT_TRUE(log.Has(L"unsupported token \"fo\"") && log.Has(L"unsupported token \"l\""));
    EXPECT_EQ(log.Messages().size(), 2U);
}

TEST(OBJParser, StopsWithoutAWordAtALineThatBeginsWithNone)
{
    for (const auto& [text, vertices] : {std::pair("", 0),
                                         {"v 1 2 3\n4 5 6\nv 7 8 9\n", 1},
                                         {"v 1 2 3\n-\nv 7 8 9\n", 1},
                                         {"\xef\xbb\xbfv 1 2 3\n", 1},
                                         {"v 1 2 3\nvn 1 2 3 4\nv 7 8 9\n", 1}}) {
        ObjFile obj(text);
        EXPECT_EQ(outcomeOf(*obj), L"") << text;
        EXPECT_EQ(obj->GetVertices().size(), static_cast<std::size_t>(vertices)) << text;
        EXPECT_EQ(obj->GetNumMeshes(), 0U);
    }
}

TEST(OBJParser, ReportsWhereAndWhy)
{
    const std::tuple<std::string, std::string, std::wstring> cases[] = {
        {"f 1 2 3", "", L"1:3 invalid vertex index"},
        {"v 0 0 0\nf 1 2", "", L"2:5 invalid vertex index"},
        {"v 0 0 0\nf -1", "", L"2:3 invalid vertex index"},
        {"v 0 0 0\nf 4294967297", "", L"2:3 invalid vertex index"},
        {"v 0 0 0\nf 1/1", "", L"2:5 invalid texture coordinate index"},
        {"v 0 0 0\nvt 0 0\nf 1/1/1", "", L"3:7 invalid normal index"},
        {"v 1 2\nv 3", "", L"2:1 expected token [fp. number], found [identifier]."},
        {"v 1 -.5 2", "", L"1:5 expected token [fp. number], found '-'."},
        {"vt 1", "", L"1:-1 unexpected end of text"},
        {"usemtl red", "", L"1:7 usemtl: unknown material"},
        {"mtllib m.mtl\nusemtl Red", "newmtl red\n", L"2:7 usemtl: unknown material"},
        {"mtllib none.mtl", "", L"1:7 Failed to open MTL file none.mtl"},
        {"mtllib", "", L"1:7 Failed to open MTL file "},
        {"mtllib m.mtl", "newmtl a\nillum 2\n",
         L"1:7 Error parsing MTL file 'm.mtl': line 2, column 7: expected token [identifier], found [integer]."},
        {"mtllib m.mtl", "newmtl a\nd 1\n",
         L"1:7 Error parsing MTL file 'm.mtl': line 2, column 1: expected identifier \"newmtl\" (found \"d\")"},
        {"mtllib m.mtl", "newmtl a\nKd 1",
         L"1:7 Error parsing MTL file 'm.mtl': line 2, column -1: unexpected end of text"},
    };
    for (const auto& [obj, mtl, message] : cases) {
        ObjFile file(obj, mtl);
        EXPECT_EQ(outcomeOf(*file), message) << obj;
    }
}

TEST(OBJParser, ReadsRegularFilesOnly)
{
    const TextFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (const std::string& name : {(folder / "none.obj").string(), (folder / "pipe").string(), folder.Path().string(),
                                    std::string("/dev/zero"), std::string()}) {
        try {
            const COBJParser parser(name);
            ADD_FAILURE() << name;
        } catch (const AStreamParser::CParseError& e) {
            EXPECT_EQ(e.GetLine(), -1);
            EXPECT_EQ(e.GetMessage(), L"file not found");
        }
    }
    for (const std::string name : {"pipe", "../../../../../../dev/zero", "."}) {
        std::wistringstream text(L"mtllib " + std::wstring(name.begin(), name.end()));
        COBJParser parser(text);
        EXPECT_EQ(parser.GetBaseDir(), ".");
        parser.SetBaseDir(folder.Path().string());
        EXPECT_NE(outcomeOf(parser).find(L"Failed to open MTL file"), std::wstring::npos);
    }
    COBJParser latin(folder.Write("l.obj", "mtllib gr\xfcn.mtl"));
    EXPECT_EQ(outcomeOf(latin), L"1:7 Failed to open MTL file gr\u00fcn.mtl");
}

TEST(OBJParser, EndsWhenAFileAsksForALibraryAgainAndAgain)
{
    std::string obj;
    for (int i = 0; i < 40; ++i) obj += "mtllib m.mtl\n";
    ObjFile file(obj, "newmtl a\n" + std::string(std::size_t{4} << 20U, '#'));
    EXPECT_EQ(outcomeOf(*file),
              L"17:7 Error parsing MTL file 'm.mtl': the libraries of one file hold more than 64 MiB");
    EXPECT_EQ(file->GetNumMeshes(), 16U);
}

TEST(OBJParser, ReadsLinesOfAnyLength)
{
    std::string face = "f";
    for (int i = 0; i < 1'000'000; ++i) face += " 1";
    ObjFile file("v 1 2 3" + std::string(100'000'000, ' ') + "4\n" + face);
    EXPECT_EQ(outcomeOf(*file), L"");
    EXPECT_EQ(file->GetVertices(), (std::vector<COBJParser::Vector>{{1, 2, 3}}));
    ASSERT_EQ(file->GetFaces().size(), 1U);
    EXPECT_EQ(file->GetFaces()[0].corners.size(), 1'000'000U);
    EXPECT_EQ(file->GetGrapheneMesh(false).GetNumFaces(), 0U);
}

TEST(OBJParser, GivesNamesOfAHostsStreamInUtf8)
{
    std::wistringstream text(L"mtllib \u65e5\u672c");
    COBJParser parser(text);
    EXPECT_EQ(outcomeOf(parser), L"1:7 Failed to open MTL file \u65e5\u672c");
}

/// A square of two triangles and one corner-to-corner triangle, two materials, and one vertex that no face uses.
const std::string twoMaterials =
    "mtllib m.mtl\nv 0 0 0\nv 9 9 9\nv 1 0 0\nv 1 1 0\nv 0 1 5\nv 2 2 2\nv 3 3 3\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
    "usemtl a\nf 1/1 3/2 4/3\nusemtl b\nf 1/1 4/3 5/4\nusemtl a\nf 4/4 6/1 7\n";

TEST(OBJParser, MakesAMeshWithTextureAndOriginalIndices)
{
    ObjFile file(twoMaterials + "f 3/1 1/1 4/1\n", "newmtl a\nnewmtl b\n"); // the last one turns the wrong way
    ASSERT_EQ(outcomeOf(*file), L"");
    for (const bool mirrored : {false, true, false}) {
        const auto& mesh = file->GetGrapheneMesh(mirrored);
        EXPECT_EQ(&mesh, &file->GetGrapheneMesh(mirrored));
        EXPECT_EQ(mesh.GetNumVertices(), 7U);
        EXPECT_EQ(mesh.GetPosition(graphene::Surface_mesh::Vertex(1)),
                  graphene::Surface_mesh::Point(9, mirrored ? -9 : 9, 9));
        std::map<unsigned, int> materials;
        for (const auto f : mesh.GetFaces()) materials[f.GetIndex()] = mesh.GetFaceProperty<int>("f:texture")[f];
        EXPECT_EQ(materials, (std::map<unsigned, int>{{0, 0}, {1, 1}, {2, 0}}));

        std::vector<graphene::Vector<float, 2>> coords;
        const auto ofHalfedge = mesh.GetHalfedgeProperty<graphene::Vector<float, 2>>("h:texturecoords");
        mesh.ForEachHalfedge(graphene::Surface_mesh::Face(2), [&](auto h) { coords.push_back(ofHalfedge[h]); });
        EXPECT_EQ(coords, (std::vector<graphene::Vector<float, 2>>{{0, 1}, {0, 0}, {0, 0}}));
    }
}

std::vector<std::vector<int>> originalFaces(const graphene::Surface_mesh& mesh)
{
    const auto index = mesh.GetVertexProperty<int>("v:original_index");
    std::vector<std::vector<int>> faces;
    for (const auto f : mesh.GetFaces()) {
        faces.emplace_back();
        mesh.ForEachHalfedge(f, [&](auto h) { faces.back().push_back(index[mesh.GetFromVertex(h)]); });
    }
    return faces;
}

TEST(OBJParser, SplitsTheMeshByMaterial)
{
    std::string withoutTexture;
    std::istringstream lines(twoMaterials);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("vt")) continue;
        for (std::size_t slash; (slash = line.find('/')) != std::string::npos;) line.erase(slash, 2);
        withoutTexture += line + "\n";
    }
    for (const std::string& text : {twoMaterials, withoutTexture}) {
        ObjFile file(text, "newmtl a\nnewmtl b\n");
        ASSERT_EQ(outcomeOf(*file), L"");
        const bool hasTexture = !file->GetTextureCoords().empty();
        EXPECT_EQ(bool(file->GetGrapheneMesh(false).GetFaceProperty<int>("f:texture")), hasTexture);
        using Faces = std::vector<std::vector<int>>;
        EXPECT_EQ(originalFaces(file->GetGrapheneMesh(0, false)), (Faces{{0, 2, 3}, {3, 5, 6}}));
        EXPECT_EQ(originalFaces(file->GetGrapheneMesh("b", true)), (Faces{{0, 3, 4}}));
        EXPECT_EQ(file->GetGrapheneMesh("b", true).GetNumVertices(), 4U) << "its own three and the one without faces";
        EXPECT_EQ(originalFaces(file->GetGrapheneMesh("c", false)), Faces());
        EXPECT_EQ(originalFaces(file->GetGrapheneMesh(none, false)), Faces());
    }
}

/// How many test files of a public parser are refused for each reason.
const std::map<std::wstring, int> refusedFiles{
    {L"invalid vertex index", 6},     {L"invalid normal index", 2},
    {L"usemtl: unknown material", 2}, {L"expected token [fp. number], found [identifier].", 1},
    {L"Failed to open MTL file ", 3}, {L"Error parsing MTL file ", 14}};

std::wstring kindOf(const std::wstring& outcome)
{
    const std::wstring message = outcome.substr(outcome.find(L' ') + 1);
    for (const auto& [kind, count] : refusedFiles)
        if (message.starts_with(kind)) return kind;
    return message;
}

TEST(OBJParser, ReadsOrRefusesRealFiles)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) GTEST_SKIP() << "ZORVAN_DATA names no folder with real files";
    std::set<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(data) / "obj"))
        if (entry.path().extension() == ".obj") files.insert(entry.path().parent_path() / entry.path().stem());

    const support::LogCapture quiet;
    std::map<std::wstring, int> refused;
    std::size_t faces = 0;
    for (const auto& file : files) {
        COBJParser parser(file.string() + ".obj");
        const std::wstring outcome = outcomeOf(parser);
        if (!outcome.empty()) ++refused[kindOf(outcome)];
        if (outcome.empty()) faces += parser.GetFaces().size();
        EXPECT_LE(parser.GetGrapheneMesh(false).GetNumFaces(), parser.GetFaces().size());
    }
    EXPECT_EQ(files.size(), 49U);
    EXPECT_EQ(refused, refusedFiles);
    EXPECT_EQ(faces, 7585U);
}

} // namespace
} // namespace Zorvan
