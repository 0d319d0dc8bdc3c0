// SPDX-License-Identifier: MIT
#include "zorvan/exchange/cobjwriter.h"

#include "zorvan/exchange/pngfile.h"

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Zorvan {

/// Text behind a buffer of its own, with numbers as a stream of the classic locale writes them.
class COBJWriter::CTextFile
{
public:
    explicit CTextFile(const std::string& fileName) : m_file(fileName, std::ios::binary | std::ios::trunc)
    {
        m_buffer.reserve(uiBuffer);
    }

    CTextFile& operator<<(std::string_view text)
    {
        if (m_buffer.size() + text.size() > uiBuffer) flush();
        m_buffer += text;
        return *this;
    }
    CTextFile& operator<<(char c) { return *this << std::string_view(&c, 1); }
    CTextFile& operator<<(std::integral auto number) { return put(number); }
    CTextFile& operator<<(std::floating_point auto number) { return put(number, std::chars_format::general, 6); }

    [[nodiscard]] bool IsGood() const { return m_file.good(); }
    /// @return whether every byte has reached the system
    [[nodiscard]] bool Close()
    {
        flush();
        m_file.close();
        return m_file.good();
    }

private:
    static constexpr std::size_t uiBuffer = 1U << 16U;

    template <typename... Arguments>
    CTextFile& put(Arguments... arguments)
    {
        std::array<char, 32> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), arguments...).ptr;
        return *this << std::string_view(digits.data(), end);
    }

    void flush()
    {
        m_file.write(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
        m_buffer.clear();
    }

    std::ofstream m_file;
    std::string m_buffer;
};

namespace {

using graphene::Surface_mesh;
using Point = Surface_mesh::Point;

/// Twice the area of a triangle, along its normal.
std::array<double, 3> crossProduct(const Point& a, const Point& b, const Point& c)
{
    std::array<double, 3> u{};
    std::array<double, 3> v{};
    for (int i = 0; i < 3; ++i) {
        u[i] = static_cast<double>(b[i]) - static_cast<double>(a[i]);
        v[i] = static_cast<double>(c[i]) - static_cast<double>(a[i]);
    }
    return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}

Point unitVector(const std::array<double, 3>& v)
{
    const double length = std::hypot(v[0], v[1], v[2]);
    return length > 0.0 ? Point(v[0] / length, v[1] / length, v[2] / length) : Point();
}

/// Of each vertex the mean over its faces, weighted by area; zero without a face. Polygons count as fans.
std::vector<Point> normalsOf(const Surface_mesh& mesh)
{
    std::vector<std::array<double, 3>> sums(mesh.GetNumVertices());
    const auto points = mesh.GetVertexProperty<Point>("v:point");
    std::vector<Surface_mesh::Vertex> corners;
    for (const auto face : mesh.GetFaces()) {
        corners.clear();
        mesh.ForEachHalfedge(face, [&](auto h) { corners.push_back(mesh.GetFromVertex(h)); });
        std::array<double, 3> area{};
        for (std::size_t i = 2; i < corners.size(); ++i) {
            const auto part = crossProduct(points[corners[0]], points[corners[i - 1]], points[corners[i]]);
            for (std::size_t k = 0; k < 3; ++k) area[k] += part[k];
        }
        for (const auto v : corners)
            for (std::size_t k = 0; k < 3; ++k) sums[v.GetIndex()][k] += area[k];
    }
    std::vector<Point> normals;
    normals.reserve(sums.size());
    for (const auto& sum : sums) normals.push_back(unitVector(sum));
    return normals;
}

} // namespace

COBJWriter::COBJWriter(const std::string& directory, const std::string& baseName, const Surface_mesh& mesh,
                       IsTextured isTextured, TextureCoordinate textureCoordinate, const TImage<unsigned int>& atlas)
    : m_directory(directory),
      m_baseName(baseName),
      m_mesh(&mesh),
      m_isTextured(std::move(isTextured)),
      m_textureCoordinate(std::move(textureCoordinate)),
      m_atlas(&atlas)
{
}

bool COBJWriter::Write()
{
    return writeMTL(GetMTLFilename(), m_baseName + "_" + m_textured.name + ".png") &&
           writeAtlasBitmap(GetAtlasBitmapFilename(m_textured.name)) && writeOBJ(GetOBJFilename(), m_baseName + ".mtl");
}

std::string COBJWriter::GetOBJFilename() const { return m_directory + "/" + m_baseName + ".obj"; }

std::string COBJWriter::GetMTLFilename() const { return m_directory + "/" + m_baseName + ".mtl"; }

std::string COBJWriter::GetAtlasBitmapFilename(const std::string& materialName) const
{
    if (materialName != m_textured.name && materialName != m_untextured.name) return {};
    return m_directory + "/" + m_baseName + "_" + materialName + ".png";
}

bool COBJWriter::writeMTL(const std::string& fileName, const std::string& texture) const
{
    CTextFile file(fileName);
    writeMTL_def(file, m_textured, texture);
    writeMTL_def(file, m_untextured, "");
    return file.Close();
}

void COBJWriter::writeMTL_def(CTextFile& file, const SMaterial& material, const std::string& texture)
{
    file << "newmtl " << material.name << '\n';
    for (const auto& [keyword, colour] :
         {std::pair("Ka ", &material.ambient), {"Kd ", &material.diffuse}, {"Ks ", &material.specular}})
        file << keyword << colour->r / 255.0 << ' ' << colour->g / 255.0 << ' ' << colour->b / 255.0 << '\n';
    file << "sharpness " << material.sharpness << '\n';
    if (!texture.empty()) file << "map_Kd " << texture << '\n';
    file << '\n';
}

bool COBJWriter::writeOBJ(const std::string& fileName, const std::string& library) const
{
    CTextFile file(fileName);
    file << "mtllib " << library << "\n\n";
    if (!writeOBJ_vertices(file) || !writeOBJ_vertexNormals(file)) return false;
    int next = 1;
    file << "usemtl " << m_textured.name << '\n';
    const Numbers numbers = writeOBJ_textureCoords(file, next);
    if (!writeOBJ_faces(file, numbers)) return false;
    // One coordinate for all faces without a texture: some programs want every corner to have one.
    file << "usemtl " << m_untextured.name << "\nvt 0 1\n";
    return writeOBJ_untexturedFaces(file, next) && file.Close();
}

bool COBJWriter::writeOBJ_vertices(CTextFile& file) const
{
    const auto points = m_mesh->GetVertexProperty<Point>("v:point");
    for (const auto v : m_mesh->GetVertices()) {
        const Point& p = points[v];
        file << "v " << p[0] << ' ' << p[1] << ' ' << p[2] << '\n';
    }
    return file.IsGood();
}

bool COBJWriter::writeOBJ_vertexNormals(CTextFile& file) const
{
    const std::vector<Point> normals = normalsOf(*m_mesh);
    for (const auto v : m_mesh->GetVertices()) {
        const Point& n = normals[v.GetIndex()];
        file << "vn " << n[0] << ' ' << n[1] << ' ' << n[2] << '\n';
    }
    return file.IsGood();
}

COBJWriter::Numbers COBJWriter::writeOBJ_textureCoords(CTextFile& file, int& next) const
{
    Numbers numbers(m_mesh->GetNumHalfedges());
    for (const auto h : m_mesh->GetHalfedges()) {
        const auto face = m_mesh->GetFace(h);
        if (!face.IsValid() || !m_isTextured(face)) continue;
        const auto uv = m_textureCoordinate(h);
        file << "vt " << uv[0] << ' ' << 1.0F - uv[1] << '\n'; // rows of pictures run downwards, v of OBJ upwards
        numbers[h.GetIndex()] = next++;
    }
    return numbers;
}

bool COBJWriter::writeOBJ_faces(CTextFile& file, const Numbers& numbers) const
{
    for (const auto face : m_mesh->GetFaces()) {
        if (!m_isTextured(face)) continue;
        file << 'f';
        m_mesh->ForEachHalfedge(face, [&](auto h) {
            const int number = numbers[h.GetIndex()];
            if (number == 0) throw std::out_of_range("invalid key");
            file << ' ' << m_mesh->GetFromVertex(h).GetIndex() + 1 << '/' << number;
        });
        file << '\n';
    }
    return file.IsGood();
}

bool COBJWriter::writeOBJ_untexturedFaces(CTextFile& file, int number) const
{
    for (const auto face : m_mesh->GetFaces()) {
        if (m_isTextured(face)) continue;
        file << 'f';
        m_mesh->ForEachHalfedge(
            face, [&](auto h) { file << ' ' << m_mesh->GetFromVertex(h).GetIndex() + 1 << '/' << number; });
        file << '\n';
    }
    return file.IsGood();
}

bool COBJWriter::writeAtlasBitmap(const std::string& fileName) const { return WritePng(fileName, *m_atlas); }

} // namespace Zorvan
