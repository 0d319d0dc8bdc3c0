// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/exchange/meshproperties.h"
#include "zorvan/exchange/meshtopology.h"
#include "zorvan/platform/export.h"

#include <compare>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace graphene {

/// A manifold surface of polygons, as half-edges, with named values per vertex, halfedge and face.
///
///     Surface_mesh mesh;
///     const auto a = mesh.AddVertex({0, 0, 0}), b = mesh.AddVertex({1, 0, 0}), c = mesh.AddVertex({0, 1, 0});
///     const auto face = mesh.AddTriangle(a, b, c);
///     const auto colour = mesh.AddFaceProperty<int>("f:colour", 0);
///     colour[face] = 7;
///
/// Each edge is two halfedges of opposite direction, and a halfedge belongs to one face or to none. So an edge has at
/// most two faces, which run through it in opposite directions. The faces at a vertex are one closed ring or any number
/// of open fans. A face that would break this is refused: the handle returned is not valid, and the mesh stays as it
/// was.
///
/// Deleted elements keep their numbers until `GarbageCollection`. Handles and properties of another mesh, or from
/// before a collection, must not be used; neither is range-checked. One thread changes a mesh; const operations may run
/// concurrently.
class ZORVAN_API Surface_mesh
{
    template <typename Kind>
    class THandle
    {
    public:
        THandle() = default;
        explicit THandle(std::uint32_t index) : m_index(index) {}

        [[nodiscard]] std::uint32_t GetIndex() const { return m_index; }
        [[nodiscard]] bool IsValid() const { return m_index != CMeshTopology::uiNone; }
        friend auto operator<=>(const THandle&, const THandle&) = default;

    private:
        std::uint32_t m_index = CMeshTopology::uiNone;
    };

    template <typename Handle, typename T>
    class TProperty
    {
        using Values = std::vector<std::remove_const_t<T>>;

    public:
        explicit TProperty(Values* values) : m_values(values) {}

        /// False when the mesh has no such property.
        explicit operator bool() const { return m_values != nullptr; }
        T& operator[](Handle handle) const { return (*m_values)[handle.GetIndex()]; }

    private:
        Values* m_values;
    };

    /// The elements that are not deleted.
    template <typename Handle>
    class TElements
    {
    public:
        class Iterator
        {
        public:
            Iterator(const Surface_mesh& mesh, std::uint32_t index, std::uint32_t end)
                : m_mesh(&mesh), m_index(index), m_end(end)
            {
                passDeleted();
            }
            Handle operator*() const { return Handle(m_index); }
            Iterator& operator++()
            {
                ++m_index;
                passDeleted();
                return *this;
            }
            bool operator==(const Iterator& other) const { return m_index == other.m_index; }

        private:
            void passDeleted()
            {
                while (m_index < m_end && m_mesh->IsDeleted(Handle(m_index))) ++m_index;
            }

            const Surface_mesh* m_mesh;
            std::uint32_t m_index;
            std::uint32_t m_end;
        };

        TElements(const Surface_mesh& mesh, std::uint32_t size) : m_mesh(&mesh), m_size(size) {}
        [[nodiscard]] Iterator begin() const { return {*m_mesh, 0, m_size}; }
        [[nodiscard]] Iterator end() const { return {*m_mesh, m_size, m_size}; }

    private:
        const Surface_mesh* m_mesh;
        std::uint32_t m_size;
    };

public:
    using Point = Vector<float, 3>;
    using Vertex = THandle<struct VertexKind>;
    using Halfedge = THandle<struct HalfedgeKind>;
    using Face = THandle<struct FaceKind>;

    Surface_mesh();

    Vertex AddVertex(const Point& position);
    Face AddTriangle(Vertex a, Vertex b, Vertex c);
    /// @param corners  three or more, in the direction of the face
    /// @throws std::logic_error while there is garbage
    Face AddFace(std::span<const Vertex> corners);

    /// Marks the face, and the vertices that have no other; halfedges go with the last face at their edge.
    void DeleteFace(Face face);
    /// Removes what is marked. The rest keeps its order and its properties, under new numbers without gaps; halfedges
    /// are numbered as if the remaining faces had been added anew.
    void GarbageCollection();
    [[nodiscard]] bool HasGarbage() const { return m_hasGarbage; }
    /// Removes all elements and properties.
    void Clear() { *this = Surface_mesh(); }

    /// All that are not deleted, in the order of their numbers.
    [[nodiscard]] TElements<Vertex> GetVertices() const { return {*this, GetNumVertices()}; }
    [[nodiscard]] TElements<Halfedge> GetHalfedges() const { return {*this, GetNumHalfedges()}; }
    [[nodiscard]] TElements<Face> GetFaces() const { return {*this, GetNumFaces()}; }

    /// With the deleted ones.
    [[nodiscard]] std::uint32_t GetNumVertices() const { return narrow(m_topology.GetNumVertices()); }
    [[nodiscard]] std::uint32_t GetNumHalfedges() const { return narrow(m_topology.GetHalfedges().size()); }
    [[nodiscard]] std::uint32_t GetNumFaces() const { return narrow(m_topology.GetNumFaces()); }

    [[nodiscard]] bool IsDeleted(Vertex v) const { return m_isVertexDeleted[v.GetIndex()] != 0; }
    [[nodiscard]] bool IsDeleted(Halfedge h) const { return !GetFace(h).IsValid() && !GetFace(Opposite(h)).IsValid(); }
    [[nodiscard]] bool IsDeleted(Face f) const { return m_isFaceDeleted[f.GetIndex()] != 0; }

    /// The halfedge that leaves the first corner of a face.
    [[nodiscard]] Halfedge GetHalfedge(Face f) const { return Halfedge(m_topology.GetHalfedge(f.GetIndex())); }
    /// The next one around the face. Without a face: the border at the other side of the fan at its end.
    [[nodiscard]] Halfedge GetNext(Halfedge h) const { return Halfedge(at(h).next); }
    [[nodiscard]] static Halfedge Opposite(Halfedge h) { return Halfedge(h.GetIndex() ^ 1U); }
    [[nodiscard]] Vertex GetToVertex(Halfedge h) const { return Vertex(at(h).to); }
    [[nodiscard]] Vertex GetFromVertex(Halfedge h) const { return GetToVertex(Opposite(h)); }
    /// Not valid when there is none, or a deleted one.
    [[nodiscard]] Face GetFace(Halfedge h) const;

    /// Calls `visit` for the halfedges of a face, in its direction from the first corner on.
    template <typename Visit>
    void ForEachHalfedge(Face face, Visit&& visit) const
    {
        const Halfedge first = GetHalfedge(face);
        Halfedge h = first;
        do {
            visit(h);
            h = GetNext(h);
        } while (h != first);
    }

    /// The property of this name, made where it was missing; false when one of this name has another type. Elements
    /// that come later get `value` too. "v:point" holds the positions of the vertices.
    template <typename T>
    auto AddVertexProperty(const std::string& name, const T& value = T())
    {
        return TProperty<Vertex, T>(m_vertexProperties.Add(name, value));
    }
    template <typename T>
    auto AddHalfedgeProperty(const std::string& name, const T& value = T())
    {
        return TProperty<Halfedge, T>(m_halfedgeProperties.Add(name, value));
    }
    template <typename T>
    auto AddFaceProperty(const std::string& name, const T& value = T())
    {
        return TProperty<Face, T>(m_faceProperties.Add(name, value));
    }

    /// False when there is none of this name and type.
    template <typename T>
    [[nodiscard]] auto GetVertexProperty(const std::string& name) const
    {
        return TProperty<Vertex, const T>(m_vertexProperties.Find<T>(name));
    }
    template <typename T>
    [[nodiscard]] auto GetHalfedgeProperty(const std::string& name) const
    {
        return TProperty<Halfedge, const T>(m_halfedgeProperties.Find<T>(name));
    }
    template <typename T>
    [[nodiscard]] auto GetFaceProperty(const std::string& name) const
    {
        return TProperty<Face, const T>(m_faceProperties.Find<T>(name));
    }

    [[nodiscard]] Point GetPosition(Vertex v) const { return GetVertexProperty<Point>("v:point")[v]; }

private:
    static std::uint32_t narrow(std::size_t count) { return static_cast<std::uint32_t>(count); }
    [[nodiscard]] const CMeshTopology::Halfedge& at(Halfedge h) const
    {
        return m_topology.GetHalfedges()[h.GetIndex()];
    }
    Face addFace(std::span<const std::uint32_t> corners);

    CMeshTopology m_topology;
    CMeshProperties m_vertexProperties;
    CMeshProperties m_halfedgeProperties;
    CMeshProperties m_faceProperties;
    std::vector<std::uint32_t> m_liveFaces; ///< at each vertex
    std::vector<unsigned char> m_isVertexDeleted;
    std::vector<unsigned char> m_isFaceDeleted;
    bool m_hasGarbage = false;
};

} // namespace graphene
