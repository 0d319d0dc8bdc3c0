// SPDX-License-Identifier: MIT
#include "zorvan/exchange/cobjwriter.h"

#include "textfile.h"

#include "tests/support/commalocale.h"

#include <assimp/Importer.hpp>
#include <assimp/material.h>
#include <assimp/scene.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <span>
#include <stdexcept>
#include <vector>

namespace Zorvan {
namespace {

using graphene::Surface_mesh;
using Coords = graphene::Vector<float, 2>;

bool no(Surface_mesh::Face) { return false; }
bool yes(Surface_mesh::Face) { return true; }
Coords quarter(Surface_mesh::Halfedge) { return {0.25F, 0.25F}; }

/// A square folded along its diagonal: two triangles.
Surface_mesh folded()
{
    Surface_mesh mesh;
    std::vector<Surface_mesh::Vertex> v;
    for (const auto& p : {Surface_mesh::Point(0, 0, 0), {1.5F, 0, 0}, {0, 1234567, 0}, {0, 0, -0.000012345F}})
        v.push_back(mesh.AddVertex(p));
    mesh.AddTriangle(v[0], v[1], v[2]);
    mesh.AddTriangle(v[0], v[3], v[1]);
    return mesh;
}

const TImage<unsigned int> onePixel(1, 1, 0x80FF0001U);

class Written : public TextFolder
{
public:
    explicit Written(const Surface_mesh& mesh, COBJWriter::IsTextured isTextured = no,
                     COBJWriter::TextureCoordinate coordinate = quarter, const TImage<unsigned int>& atlas = onePixel)
        : writer(Path().string(), "m", mesh, std::move(isTextured), std::move(coordinate), atlas)
    {
    }

    COBJWriter writer;
};

TEST(OBJWriter, WritesTheseBytes)
{
    const CCommaLocale comma;
    const Surface_mesh mesh = folded();
    Written out(mesh, [](Surface_mesh::Face f) { return f.GetIndex() == 0; });
    out.writer.SetColorUntextured({255, 0, 0});
    out.writer.GetMaterialTextured().sharpness = 0.5;
    ASSERT_TRUE(out.writer.Write());
    EXPECT_EQ(out.Read("m.obj"), "mtllib m.mtl\n\n"
                                 "v 0 0 0\nv 1.5 0 0\nv 0 1.23457e+06 0\nv 0 0 -1.2345e-05\n"
                                 "vn 0 -9.99946e-12 1\nvn 0 -9.99946e-12 1\nvn 0 0 1\nvn 0 -1 0\n"
                                 "usemtl textured\nvt 0.25 0.75\nvt 0.25 0.75\nvt 0.25 0.75\nf 1/1 2/2 3/3\n"
                                 "usemtl untextured\nvt 0 1\nf 1/4 4/4 2/4\n");
    EXPECT_EQ(out.Read("m.mtl"),
              "newmtl textured\nKa 0 0 0\nKd 1 1 1\nKs 1 1 1\nsharpness 0.5\nmap_Kd m_textured.png\n\n"
              "newmtl untextured\nKa 0 0 0\nKd 1 0 0\nKs 1 1 1\nsharpness 33\n\n");
    EXPECT_EQ(out.writer.GetAtlasBitmapFilename("textured"), (out / "m_textured.png").string());
    EXPECT_EQ(out.writer.GetAtlasBitmapFilename("other"), "");
}

TEST(OBJWriter, LeavesOutDeletedElements)
{
    Surface_mesh mesh = folded();
    mesh.DeleteFace(Surface_mesh::Face(1));
    Written out(mesh, yes);
    ASSERT_TRUE(out.writer.Write());
    const std::string text = out.Read("m.obj");
    EXPECT_EQ(text.find("v 0 0 -1"), std::string::npos);
    EXPECT_EQ(text.substr(text.find("vt")),
              "vt 0.25 0.75\nvt 0.25 0.75\nvt 0.25 0.75\nf 1/1 2/2 3/3\nusemtl untextured\nvt 0 1\n");
}

TEST(OBJWriter, ThrowsForFunctionsThatAreEmptyOrChangeTheirMind)
{
    const Surface_mesh mesh = folded();
    EXPECT_THROW(static_cast<void>(Written(mesh, nullptr).writer.Write()), std::bad_function_call);
    EXPECT_THROW(static_cast<void>(Written(mesh, yes, nullptr).writer.Write()), std::bad_function_call);
    int asked = 0;
    Written out(mesh, [&](Surface_mesh::Face) { return ++asked > 6; }); // first by six halfedges
    try {
        static_cast<void>(out.writer.Write());
        ADD_FAILURE();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid key");
    }
}

std::vector<unsigned int> readPng(const std::string& name, png_image& image)
{
    image = {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, name.c_str()) == 0) return {};
    EXPECT_EQ(image.format & (PNG_FORMAT_FLAG_ALPHA | PNG_FORMAT_FLAG_LINEAR), PNG_FORMAT_FLAG_ALPHA);
    image.format = PNG_FORMAT_RGBA;
    std::vector<unsigned char> bytes(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr) == 0) return {};
    std::vector<unsigned int> pixels;
    for (std::size_t i = 0; i < bytes.size(); i += 4)
        pixels.push_back(unsigned{bytes[i + 3]} << 24U | unsigned{bytes[i]} << 16U | unsigned{bytes[i + 1]} << 8U |
                         bytes[i + 2]);
    return pixels;
}

TEST(OBJWriter, KeepsEveryBitOfTheAtlas)
{
    const Surface_mesh mesh = folded();
    std::mt19937 rng(47110815);
    for (const auto& [width, height] : {std::pair(1, 1), {7, 5}, {256, 3}, {1, 999}, {333, 257}}) {
        TImage<unsigned int> atlas(width, height);
        for (auto& pixel : atlas.GetPixels()) pixel = static_cast<unsigned int>(rng());
        atlas(0, 0) = 0x00123456U; // a colour that is not seen
        Written out(mesh, no, quarter, atlas);
        ASSERT_TRUE(out.writer.Write());
        png_image image;
        const auto pixels = readPng(out.writer.GetAtlasBitmapFilename("textured"), image);
        EXPECT_EQ(std::pair(image.width, image.height), std::pair(png_uint_32(width), png_uint_32(height)));
        EXPECT_TRUE(std::ranges::equal(pixels, atlas.GetPixels())) << width << " x " << height;
    }
    EXPECT_FALSE(Written(mesh, no, quarter, {}).writer.Write()) << "a picture without pixels";
}

/// A bumpy sheet with a texture coordinate for each corner; every third face is untextured.
struct Sheet
{
    Surface_mesh mesh;

    static bool IsTextured(Surface_mesh::Face f) { return f.GetIndex() % 3 != 0; }
    static Coords At(Surface_mesh::Halfedge h) { return {(h.GetIndex() % 64) / 64.0, (h.GetIndex() % 128) / 128.0}; }

    explicit Sheet(unsigned n)
    {
        std::mt19937 rng(47110815);
        std::vector<Surface_mesh::Vertex> v;
        for (unsigned i = 0; i < n * n; ++i)
            v.push_back(mesh.AddVertex({0.1 * (i % n), 0.1 * (i / n), 0.001 * (static_cast<unsigned>(rng()) % 1000)}));
        for (unsigned i = 0; i < n * (n - 1); ++i) {
            if (i % n == n - 1) continue;
            if (i % 2 == 0) {
                mesh.AddFace(std::vector{v[i], v[i + 1], v[i + n + 1], v[i + n]});
            } else {
                mesh.AddTriangle(v[i], v[i + 1], v[i + n + 1]);
                mesh.AddTriangle(v[i], v[i + n + 1], v[i + n]);
            }
        }
    }
};

/// Six digits were written.
bool isSame(float a, float b) { return std::abs(a - b) <= 5.1e-6F * std::abs(a) + 1e-9F; }

TEST(OBJWriter, IsReadBackByAssimp)
{
    const Sheet sheet(40);
    Written out(sheet.mesh, Sheet::IsTextured, Sheet::At);
    ASSERT_TRUE(out.writer.Write());
    Assimp::Importer importer;
    const aiScene* const scene = importer.ReadFile(out.writer.GetOBJFilename(), 0);
    ASSERT_NE(scene, nullptr) << importer.GetErrorString();

    std::size_t faces = 0;
    for (const aiMesh* const mesh : std::span(scene->mMeshes, scene->mNumMeshes)) {
        aiString name;
        aiString texture;
        const aiMaterial& material = *scene->mMaterials[mesh->mMaterialIndex];
        material.Get(AI_MATKEY_NAME, name);
        const bool isTextured = material.GetTexture(aiTextureType_DIFFUSE, 0, &texture) == aiReturn_SUCCESS;
        EXPECT_STREQ(name.C_Str(), isTextured ? "textured" : "untextured");
        EXPECT_STREQ(texture.C_Str(), isTextured ? "m_textured.png" : "");
        auto expected = sheet.mesh.GetFaces();
        auto next = expected.begin();
        for (const aiFace& face : std::span(mesh->mFaces, mesh->mNumFaces)) {
            while (Sheet::IsTextured(*next) != isTextured) ++next;
            unsigned corner = 0;
            sheet.mesh.ForEachHalfedge(*next, [&](auto h) {
                ASSERT_LT(corner, face.mNumIndices);
                const unsigned i = face.mIndices[corner++];
                const auto p = sheet.mesh.GetPosition(sheet.mesh.GetFromVertex(h));
                for (int k = 0; k < 3; ++k) ASSERT_TRUE(isSame(mesh->mVertices[i][k], p[k]));
                const Coords uv = isTextured ? Coords(Sheet::At(h)[0], 1 - Sheet::At(h)[1]) : Coords(0, 1);
                ASSERT_TRUE(isSame(mesh->mTextureCoords[0][i].x, uv[0]) && isSame(mesh->mTextureCoords[0][i].y, uv[1]));
            });
            EXPECT_EQ(corner, face.mNumIndices);
            ++next;
            ++faces;
        }
    }
    EXPECT_EQ(faces, sheet.mesh.GetNumFaces());
}

/// While it lives, no file may grow beyond so many bytes: a disk that is full there.
class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes)
    {
        ::getrlimit(RLIMIT_FSIZE, &m_old);
        const rlimit small{bytes, m_old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
        m_oldSignal = std::signal(SIGXFSZ, SIG_IGN);
    }
    FullDisk(const FullDisk&) = delete;
    ~FullDisk()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_oldSignal);
    }

private:
    rlimit m_old{};
    void (*m_oldSignal)(int) = SIG_DFL;
};

TEST(OBJWriter, SaysWhenNotEveryByteWasWritten)
{
    const Sheet sheet(40);
    TImage<unsigned int> noise(32, 32);
    std::mt19937 rng(47110815);
    for (auto& pixel : noise.GetPixels()) pixel = static_cast<unsigned int>(rng());
    Written whole(sheet.mesh, Sheet::IsTextured, Sheet::At, noise);
    ASSERT_TRUE(whole.writer.Write());
    const auto size = std::filesystem::file_size(whole.writer.GetOBJFilename());
    for (const rlim_t bytes : {rlim_t{0}, rlim_t{100}, rlim_t{1000}, rlim_t{5000}, rlim_t{size - 1}, rlim_t{size}}) {
        Written out(sheet.mesh, Sheet::IsTextured, Sheet::At, noise);
        const FullDisk full(bytes);
        EXPECT_EQ(out.writer.Write(), bytes == size) << bytes << " bytes";
    }
    for (const char* const name : {"m.obj", "m.mtl", "m_textured.png"}) {
        Written out(sheet.mesh, Sheet::IsTextured, Sheet::At, noise);
        std::filesystem::create_symlink("/dev/full", out / name);
        EXPECT_FALSE(out.writer.Write()) << name;
    }
    EXPECT_FALSE(COBJWriter("/nowhere", "m", sheet.mesh, no, quarter, noise).Write());
}

} // namespace
} // namespace Zorvan
