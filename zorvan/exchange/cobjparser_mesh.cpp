// SPDX-License-Identifier: MIT
#include "zorvan/exchange/cobjparser.h"

#include <algorithm>

namespace Zorvan {

using graphene::Surface_mesh;
using TextureCoords = graphene::Vector<float, 2>;

const Surface_mesh& COBJParser::GetGrapheneMesh(bool mirrored) const
{
    const bool isKept = m_mesh.GetNumVertices() > 0 && m_meshMirrored == mirrored;
    if (!isKept) buildMesh(mirrored);
    return m_mesh;
}

Surface_mesh COBJParser::GetGrapheneMesh(unsigned int material, bool mirrored) const
{
    Surface_mesh mesh = GetGrapheneMesh(mirrored);
    for (const auto face : mesh.GetFaces())
        if (m_meshMaterials[face.GetIndex()] != material) mesh.DeleteFace(face);
    mesh.GarbageCollection();
    return mesh;
}

Surface_mesh COBJParser::GetGrapheneMesh(const std::string& materialName, bool mirrored) const
{
    const auto found = std::ranges::find(m_materials, materialName, &Material::name);
    // The number of materials is that of none, so no face has it.
    return GetGrapheneMesh(static_cast<unsigned int>(found - m_materials.begin()), mirrored);
}

void COBJParser::buildMesh(bool mirrored) const
{
    m_mesh.Clear();
    m_meshMaterials.clear();
    m_meshMirrored = mirrored;
    const auto originalIndex = m_mesh.AddVertexProperty<int>("v:original_index");
    std::vector<Surface_mesh::Vertex> vertices;
    vertices.reserve(m_vertices.size());
    for (const Vector& v : m_vertices) {
        vertices.push_back(m_mesh.AddVertex({v.x, mirrored ? -v.y : v.y, v.z}));
        originalIndex[vertices.back()] = static_cast<int>(vertices.size()) - 1;
    }
    addFaces(vertices);
}

void COBJParser::addFaces(const std::vector<Surface_mesh::Vertex>& vertices) const
{
    const bool hasTexture = !m_textureCoords.empty();
    if (hasTexture) {
        m_mesh.AddHalfedgeProperty<TextureCoords>("h:texturecoords");
        m_mesh.AddFaceProperty<int>("f:texture");
    }
    std::vector<Surface_mesh::Vertex> corners;
    for (const Face& face : m_faces) {
        corners.clear();
        for (const Corner& corner : face.corners) corners.push_back(vertices[corner.vertex]);
        const Surface_mesh::Face added =
            corners.size() == 3 ? m_mesh.AddTriangle(corners[0], corners[1], corners[2]) : m_mesh.AddFace(corners);
        if (!added.IsValid()) continue;
        m_meshMaterials.push_back(face.material);
        if (hasTexture) setTexture(added, face);
    }
}

void COBJParser::setTexture(Surface_mesh::Face added, const Face& face) const
{
    const auto coords = m_mesh.AddHalfedgeProperty<TextureCoords>("h:texturecoords");
    std::size_t corner = 0;
    m_mesh.ForEachHalfedge(added, [&](Surface_mesh::Halfedge h) {
        const unsigned int index = face.corners[corner++].textureCoords;
        if (index != uiAbsent) coords[h] = {m_textureCoords[index].u, m_textureCoords[index].v};
    });
    m_mesh.AddFaceProperty<int>("f:texture")[added] = static_cast<int>(face.material);
}

} // namespace Zorvan
