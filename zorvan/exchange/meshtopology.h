// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace graphene {

/// Which halfedges follow one another, by number alone; what `Surface_mesh` stands on. Halfedges 2k and 2k + 1 are the
/// two directions of one edge. A face costs its corners, however many faces meet at them.
class ZORVAN_API CMeshTopology
{
public:
    static constexpr std::uint32_t uiNone = std::numeric_limits<std::uint32_t>::max();

    struct Halfedge
    {
        std::uint32_t to = uiNone;   ///< vertex
        std::uint32_t face = uiNone; ///< none: a border
        /// Around the face. A border is followed by the border that leaves its end at the other side of the same fan.
        std::uint32_t next = uiNone;
        std::uint32_t previous = uiNone;
    };

    void AddVertices(std::size_t count) { m_vertices.resize(m_vertices.size() + count); }
    /// @param corners  vertices that exist
    /// @return         the halfedge that leaves the first corner, or `uiNone` when the face does not fit; nothing is
    ///                 changed then
    std::uint32_t AddFace(std::span<const std::uint32_t> corners);

    [[nodiscard]] std::size_t GetNumVertices() const { return m_vertices.size(); }
    [[nodiscard]] std::size_t GetNumFaces() const { return m_faces.size(); }
    [[nodiscard]] std::span<const Halfedge> GetHalfedges() const { return m_halfedges; }
    /// Of a face, the halfedge that leaves its first corner.
    [[nodiscard]] std::uint32_t GetHalfedge(std::uint32_t face) const { return m_faces[face]; }

private:
    struct Vertex
    {
        std::uint32_t faces = 0;
        std::uint32_t openFans = 0; ///< 0 with faces: they form a closed ring

        [[nodiscard]] bool IsClosed() const { return faces > 0 && openFans == 0; }
    };

    [[nodiscard]] bool findEdges(std::span<const std::uint32_t> corners);
    [[nodiscard]] bool fits(std::uint32_t vertex, std::uint32_t in, std::uint32_t out) const;
    void turnCorner(Vertex& vertex, std::uint32_t in, std::uint32_t out);
    void link(std::uint32_t halfedge, std::uint32_t next);
    std::uint32_t addEdge(std::uint32_t from, std::uint32_t to);

    [[nodiscard]] std::size_t slotOf(std::uint32_t from, std::uint32_t to) const;
    [[nodiscard]] std::uint32_t findHalfedge(std::uint32_t from, std::uint32_t to) const;
    void growTable();

    std::vector<Vertex> m_vertices;
    std::vector<Halfedge> m_halfedges;
    std::vector<std::uint32_t> m_faces;
    std::vector<std::uint32_t> m_table;  ///< first halfedges of edges by their vertices, a power of two of slots
    std::vector<std::uint32_t> m_around; ///< halfedges of the face that is being added
};

} // namespace graphene
