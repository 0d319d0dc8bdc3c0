// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "tools/pictures/picture.h"

#include "zorvan/exchange/cobjparser.h"

#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

namespace {

using Zorvan::COBJParser;

bool writePng(const std::filesystem::path& file, const Zorvan::TImage<unsigned int>& image)
{
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.GetWidth());
    png.height = static_cast<png_uint_32>(image.GetHeight());
    png.format = PNG_FORMAT_BGRA;
    return png_image_write_to_file(&png, file.c_str(), 0, image.GetPixels().data(), 0, nullptr) != 0;
}

/// A strip of two squares and a triangle: red with a texture, green without, and one face of no material.
class ConvertedMesh : public testing::Test
{
protected:
    static constexpr const char* vertices = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 2 0 0.5\nv 2 1 0.5\nv -1 1 0\n";
    static constexpr const char* faces =
        "f 1/1 4/4 7/1\nusemtl red\nf 1/1 2/2 3/3 4/4\nusemtl gr\xc3\xbcn #1\nf 2/1 5/2 6/3 3/4\n";

    ConvertedMesh()
    {
        folder.Write("a b.mtl", "newmtl red\nKd 1 0 0\nmap_Kd tex ture.png\n\nnewmtl gr\xc3\xbcn\nKd 0 .5e0 0\n");
        folder.Write("mesh.obj",
                     std::string("mtllib a b.mtl\r\n") + vertices + "vt 0 0\nvt 1 0\nvt 1 0.75\nvt 0 1\n" + faces);
        texture(1, 1) = 0x00FF8001U;
        EXPECT_TRUE(writePng(folder / "tex ture.png", texture));
    }

    [[nodiscard]] std::set<std::string> Files(const std::string& name) const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder / name))
            names.insert(entry.path().filename().string());
        return names;
    }

    WorkFolder folder;
    Zorvan::TImage<unsigned int> texture{3, 2, 0xFF102030U};
};

TEST_F(ConvertedMesh, IsSplitByMaterial)
{
    const auto outcome = folder.Run("convert mesh.obj -o out");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(Files("out"),
              (std::set<std::string>{"mesh_red.obj", "mesh_red.mtl", "mesh_red_red.png", "mesh_gr\xc3\xbcn.obj",
                                     "mesh_gr\xc3\xbcn.mtl", "mesh_gr\xc3\xbcn_not_gr\xc3\xbcn.png", "mesh_none.obj",
                                     "mesh_none.mtl", "mesh_none_textured.png"}));
    EXPECT_EQ(tools::ToImage(tools::ReadPng(folder / "out/mesh_red_red.png")), texture);

    COBJParser red((folder / "out/mesh_red.obj").string());
    red.Parse();
    ASSERT_EQ(red.GetFaces().size(), 1U);
    EXPECT_EQ(red.GetMaterials()[red.GetFaces()[0].material].name, "red");
    const auto& corner = red.GetFaces()[0].corners[2];
    EXPECT_EQ(red.GetVertices()[corner.vertex], (COBJParser::Vector{1, 1, 0}));
    EXPECT_EQ(red.GetTextureCoords()[corner.textureCoords], (COBJParser::TexCoords{1, 0.75F}));
    EXPECT_EQ(red.GetVertices().size(), 4U) << "no vertex of another part";

    COBJParser green((folder / "out/mesh_gr\xc3\xbcn.obj").string());
    green.Parse();
    const auto& material = green.GetMaterials()[green.GetFaces()[0].material];
    EXPECT_EQ(material.name, "gr\xc3\xbcn");
    EXPECT_EQ(material.Kd, (COBJParser::Vector{0, 0.5F, 0}));
}

TEST_F(ConvertedMesh, SaysWhatCouldNotBeTakenOver)
{
    std::filesystem::remove(folder / "tex ture.png");
    folder.Write("mesh.obj", folder.Read("mesh.obj") + "f 1 2 3\n"); // a second face on one side of an edge
    const auto outcome = folder.Run("convert mesh.obj -o out");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.err.find("tex ture.png: no such file"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("left out 1 of 4 faces"), std::string::npos) << outcome.err;
    EXPECT_TRUE(Files("out").contains("mesh_red.obj"));
}

TEST_F(ConvertedMesh, IsRefusedWholeOrNotAtAll)
{
    ASSERT_EQ(::mkfifo((folder / "pipe.mtl").c_str(), 0600), 0);
    const std::string head = std::string("mtllib a b.mtl\n") + vertices;
    const std::pair<std::string, std::string> cases[] = {
        {"mtllib pipe.mtl\n", "line 1: Failed to open MTL file pipe.mtl"},
        {"v 0 0 0\r\n\r\nf 1 1 2\r\n", "line 3: invalid vertex index"},
        {head + "f 1 2 3\n- not a word\nf 1 3 4\n", "line 10: begins with no word"},
        {head + "f 1 2 3\n\"", "line 10: begins with no word"},
        {head + "f 1 2 -1\n", "line 9: invalid vertex index"},
        {head, "holds no face"},
        {"v 1" + std::string(400, '0') + " 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\n", "not finite"},
        {"mtllib i.mtl\n", "line 1: Error parsing MTL file 'i.mtl': line 2, column 7: expected"},
    };
    folder.Write("i.mtl", "newmtl a\nillum 2\n");
    for (const auto& [text, words] : cases) {
        folder.Write("bad.obj", text);
        ExpectRefused(folder.Run("convert bad.obj -o bad"), words);
        EXPECT_FALSE(std::filesystem::exists(folder / "bad"));
    }
    EXPECT_EQ(folder.Run("convert mesh.obj -o .").exitCode, 2) << "the input would be replaced";
}

TEST_F(ConvertedMesh, LeavesOldFilesWhenTheDiskIsFull)
{
    ASSERT_EQ(folder.Run("convert mesh.obj -o out").exitCode, 0);
    const std::string old = folder.Read("out/mesh_red.obj");
    const auto files = Files("out");
    std::string more = folder.Read("mesh.obj");
    for (int i = 0; i < 100; ++i) more += "v 1 2 3\n"; // beyond the 512 or 1024 bytes that the shell means by 1
    folder.Write("mesh.obj", more);
    const auto outcome = folder.Run("convert mesh.obj -o out", ">stdout.txt", "trap '' XFSZ; ulimit -f 1; exec ");
    EXPECT_EQ(outcome.exitCode, 2) << outcome.err;
    EXPECT_NE(outcome.err.find("cannot be written"), std::string::npos) << outcome.err;
    EXPECT_EQ(Files("out"), files);
    EXPECT_EQ(folder.Read("out/mesh_red.obj"), old);
}

} // namespace
