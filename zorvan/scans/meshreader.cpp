// SPDX-License-Identifier: MIT
#include "zorvan/scans/meshreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"

#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

namespace Zorvan {

namespace {

constexpr std::size_t uiStlHeader = 84; // 80 bytes of text and the number of triangles
constexpr std::size_t uiStlTriangle = 50;

std::uint32_t littleEndian(std::string_view bytes)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) value = (value << 8U) | static_cast<unsigned char>(bytes[i]);
    return value;
}

std::uint64_t sizeOfBinaryStl(std::string_view bytes)
{
    return uiStlHeader + uiStlTriangle * std::uint64_t{littleEndian(bytes.substr(80, 4))};
}

// Binary files may begin with "solid" too: their exact size or a zero byte gives them away.
bool isTextStl(std::string_view bytes)
{
    constexpr std::size_t uiLooked = 512;
    const std::size_t start = std::min(bytes.find_first_not_of(" \t\r\n"), bytes.size());
    if (bytes.substr(start, 5) != "solid") return false;
    if (bytes.substr(0, uiLooked).find('\0') != std::string_view::npos) return false;
    return bytes.size() < uiStlHeader || sizeOfBinaryStl(bytes) != bytes.size();
}

// The importer wants a binary file that ends with its last triangle.
std::string_view checkedBinaryStl(std::string_view bytes, const std::filesystem::path& file)
{
    if (bytes.size() < uiStlHeader)
        throw CInputError(file, "truncated: " + std::to_string(bytes.size()) + " bytes are no STL file",
                          "write or copy it again");
    const std::uint64_t size = sizeOfBinaryStl(bytes);
    if (size <= bytes.size()) return bytes.substr(0, size);
    throw CInputError(file,
                      "truncated: the header promises " + std::to_string((size - uiStlHeader) / uiStlTriangle) +
                          " triangles (" + std::to_string(size) + " bytes), the file holds " +
                          std::to_string(bytes.size()),
                      "write or copy it again");
}

/// A mesh may name further files (materials), anywhere and of any kind: a pipe among them would hold us for good, and
/// nothing in them is wanted.
class CNoOtherFiles : public Assimp::IOSystem
{
public:
    bool Exists(const char* /*file*/) const override { return false; }
    char getOsSeparator() const override { return '/'; }
    Assimp::IOStream* Open(const char* /*file*/, const char* /*mode*/) override { return nullptr; }
    void Close(Assimp::IOStream* /*file*/) override {}
};

void appendMesh(Scan& scan, const aiMesh& mesh)
{
    const auto first = static_cast<std::uint32_t>(scan.points.size());
    for (const aiVector3D& p : std::span(mesh.mVertices, mesh.mNumVertices)) scan.points.emplace_back(p.x, p.y, p.z);
    if (mesh.HasNormals()) {
        for (const aiVector3D& n : std::span(mesh.mNormals, mesh.mNumVertices))
            scan.normals.emplace_back(n.x, n.y, n.z);
    }
    for (const aiFace& face : std::span(mesh.mFaces, mesh.mNumFaces)) {
        if (face.mNumIndices != 3) continue;
        const auto index = [&](unsigned i) { return first + face.mIndices[i]; };
        scan.faces.push_back({index(0), index(1), index(2)});
    }
}

Scan importMesh(std::string_view bytes, const char* hint, const std::filesystem::path& file)
{
    Assimp::Importer importer;
    importer.SetIOHandler(new CNoOtherFiles); // which the importer deletes
    const aiScene* const scene = importer.ReadFileFromMemory(bytes.data(), bytes.size(), aiProcess_Triangulate, hint);
    if (scene == nullptr)
        throw CInputError(file, std::string("cannot be read: ") + importer.GetErrorString(), "export it again");
    Scan scan;
    for (const aiMesh* const mesh : std::span(scene->mMeshes, scene->mNumMeshes)) appendMesh(scan, *mesh);
    // Some meshes with normals and some without: none can be used, since points and normals go together.
    if (scan.normals.size() != scan.points.size()) scan.normals.clear();
    if (scan.points.empty()) throw CInputError(file, "holds no point", "export points or a mesh");
    return scan;
}

} // namespace

Scan ReadStl(std::string_view bytes, const std::filesystem::path& file)
{
    Scan scan = importMesh(isTextStl(bytes) ? bytes : checkedBinaryStl(bytes, file), "stl", file);
    scan.normals.clear();
    ShiftFarPoints(scan);
    return scan;
}

} // namespace Zorvan
