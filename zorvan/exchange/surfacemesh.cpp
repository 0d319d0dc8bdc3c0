// SPDX-License-Identifier: MIT
#include "zorvan/exchange/surfacemesh.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace graphene {

namespace {

/// Numbers of the elements that stay, in order.
std::vector<std::uint32_t> numbersOf(const auto& elements)
{
    std::vector<std::uint32_t> numbers;
    for (const auto element : elements) numbers.push_back(element.GetIndex());
    return numbers;
}

} // namespace

Surface_mesh::Surface_mesh() { m_vertexProperties.Add("v:point", Point()); }

Surface_mesh::Vertex Surface_mesh::AddVertex(const Point& position)
{
    const Vertex added(GetNumVertices());
    if (!added.IsValid()) throw std::length_error("too many vertices");
    m_topology.AddVertices(1);
    m_vertexProperties.Resize(m_topology.GetNumVertices());
    m_liveFaces.push_back(0);
    m_isVertexDeleted.push_back(0);
    AddVertexProperty<Point>("v:point")[added] = position;
    return added;
}

Surface_mesh::Face Surface_mesh::AddTriangle(Vertex a, Vertex b, Vertex c)
{
    return addFace(std::array{a.GetIndex(), b.GetIndex(), c.GetIndex()});
}

Surface_mesh::Face Surface_mesh::AddFace(std::span<const Vertex> corners)
{
    std::vector<std::uint32_t> numbers(corners.size());
    std::ranges::transform(corners, numbers.begin(), [](Vertex v) { return v.GetIndex(); });
    return addFace(numbers);
}

Surface_mesh::Face Surface_mesh::addFace(std::span<const std::uint32_t> corners)
{
    if (m_hasGarbage) throw std::logic_error("collect the garbage before adding faces");
    if (std::ranges::any_of(corners, [&](std::uint32_t v) { return v >= GetNumVertices(); })) return Face();
    if (m_topology.AddFace(corners) == CMeshTopology::uiNone) return Face();

    for (const std::uint32_t v : corners) ++m_liveFaces[v];
    m_halfedgeProperties.Resize(GetNumHalfedges());
    m_faceProperties.Resize(GetNumFaces());
    m_isFaceDeleted.push_back(0);
    return Face(GetNumFaces() - 1);
}

void Surface_mesh::DeleteFace(Face face)
{
    if (IsDeleted(face)) return;
    m_isFaceDeleted[face.GetIndex()] = 1;
    m_hasGarbage = true;
    ForEachHalfedge(face, [&](Halfedge h) {
        const std::uint32_t v = GetFromVertex(h).GetIndex();
        if (--m_liveFaces[v] == 0) m_isVertexDeleted[v] = 1;
    });
}

/// A part of a manifold is one, whatever the order of its faces, so none of them is refused here.
void Surface_mesh::GarbageCollection()
{
    if (!m_hasGarbage) return;
    const auto vertices = numbersOf(GetVertices());
    const auto faces = numbersOf(GetFaces());
    std::vector<std::uint32_t> newNumbers(GetNumVertices(), CMeshTopology::uiNone);
    for (std::uint32_t i = 0; i < vertices.size(); ++i) newNumbers[vertices[i]] = i;

    CMeshTopology rest;
    rest.AddVertices(vertices.size());
    std::vector<std::uint32_t> halfedges; // the old number of each new one
    std::vector<std::uint32_t> corners;
    for (const std::uint32_t face : faces) {
        corners.clear();
        ForEachHalfedge(Face(face), [&](Halfedge h) { corners.push_back(newNumbers[GetFromVertex(h).GetIndex()]); });
        std::uint32_t added = rest.AddFace(corners);
        halfedges.resize(rest.GetHalfedges().size());
        ForEachHalfedge(Face(face), [&](Halfedge h) {
            halfedges[added] = h.GetIndex();
            halfedges[added ^ 1U] = Opposite(h).GetIndex();
            added = rest.GetHalfedges()[added].next;
        });
    }

    m_topology = std::move(rest);
    m_vertexProperties.Renumber(vertices);
    m_halfedgeProperties.Renumber(halfedges);
    m_faceProperties.Renumber(faces);
    PutInOrder(m_liveFaces, vertices);
    m_isVertexDeleted.assign(vertices.size(), 0);
    m_isFaceDeleted.assign(faces.size(), 0);
    m_hasGarbage = false;
}

Surface_mesh::Face Surface_mesh::GetFace(Halfedge h) const
{
    const Face face(at(h).face);
    return face.IsValid() && IsDeleted(face) ? Face() : face;
}

} // namespace graphene
