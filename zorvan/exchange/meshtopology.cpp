// SPDX-License-Identifier: MIT
#include "zorvan/exchange/meshtopology.h"

#include <algorithm>
#include <stdexcept>

namespace graphene {

namespace {

constexpr std::size_t uiFewestSlots = 16;

bool anyTwice(std::span<const std::uint32_t> corners)
{
    if (corners.size() == 3) return corners[0] == corners[1] || corners[1] == corners[2] || corners[2] == corners[0];
    std::vector<std::uint32_t> sorted(corners.begin(), corners.end());
    std::ranges::sort(sorted);
    return std::ranges::adjacent_find(sorted) != sorted.end();
}

/// Edges of neighbouring vertices come to lie near one another, as long as they span the same distance in numbers. A
/// surface has three edges a vertex.
std::uint64_t placeOf(std::uint32_t a, std::uint32_t b)
{
    const std::uint64_t distance = std::max(a, b) - std::min(a, b);
    return std::uint64_t{std::min(a, b)} * 3 + ((distance * 0x9E3779B97F4A7C15U) >> 24U);
}

} // namespace

std::uint32_t CMeshTopology::AddFace(std::span<const std::uint32_t> corners)
{
    if (corners.size() < 3 || anyTwice(corners) || !findEdges(corners)) return uiNone;
    const std::size_t size = corners.size();
    for (std::size_t i = 0; i < size; ++i)
        if (!fits(corners[i], m_around[(i + size - 1) % size], m_around[i])) return uiNone;
    if (m_halfedges.size() + 2 * size >= uiNone) throw std::length_error("too many halfedges");

    for (std::size_t i = 0; i < size; ++i)
        if (m_around[i] == uiNone) m_around[i] = addEdge(corners[i], corners[(i + 1) % size]);
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint32_t in = m_around[(i + size - 1) % size];
        turnCorner(m_vertices[corners[i]], in, m_around[i]);
        link(in, m_around[i]);
        m_halfedges[in].face = static_cast<std::uint32_t>(m_faces.size());
    }
    m_faces.push_back(m_around.front());
    return m_around.front();
}

/// Looks up the halfedges from corner to corner. @return false when one of them has a face already
bool CMeshTopology::findEdges(std::span<const std::uint32_t> corners)
{
    m_around.resize(corners.size());
    for (std::size_t i = 0; i < corners.size(); ++i) {
        const std::uint32_t halfedge = findHalfedge(corners[i], corners[(i + 1) % corners.size()]);
        if (halfedge != uiNone && m_halfedges[halfedge].face != uiNone) return false;
        m_around[i] = halfedge;
    }
    return true;
}

/// Whether a corner between two borders, or edges yet to come, leaves the faces at its vertex one ring or open fans.
bool CMeshTopology::fits(std::uint32_t vertex, std::uint32_t in, std::uint32_t out) const
{
    const Vertex& v = m_vertices[vertex];
    const bool closesFan = in != uiNone && out != uiNone && m_halfedges[in].next == out;
    return closesFan ? v.openFans == 1 : !v.IsClosed();
}

/// Each fan at a vertex has one border that comes in and one that goes out, linked to one another. A new corner begins
/// a fan, lengthens one at either end, joins two, or closes one.
void CMeshTopology::turnCorner(Vertex& vertex, std::uint32_t in, std::uint32_t out)
{
    const std::uint32_t goesOut = m_halfedges[in].next;      // none: the edge is new
    const std::uint32_t comesIn = m_halfedges[out].previous; // likewise
    ++vertex.faces;
    if (goesOut == uiNone && comesIn == uiNone) {
        ++vertex.openFans;
        link(out ^ 1U, in ^ 1U);
    } else if (comesIn == uiNone) {
        link(out ^ 1U, goesOut);
    } else if (goesOut == uiNone) {
        link(comesIn, in ^ 1U);
    } else {
        --vertex.openFans;
        if (goesOut != out) link(comesIn, goesOut);
    }
}

void CMeshTopology::link(std::uint32_t halfedge, std::uint32_t next)
{
    m_halfedges[halfedge].next = next;
    m_halfedges[next].previous = halfedge;
}

std::uint32_t CMeshTopology::addEdge(std::uint32_t from, std::uint32_t to)
{
    if (m_halfedges.size() >= m_table.size()) growTable(); // half of the slots stay free
    const auto halfedge = static_cast<std::uint32_t>(m_halfedges.size());
    m_table[slotOf(from, to)] = halfedge;
    m_halfedges.push_back({.to = to});
    m_halfedges.push_back({.to = from});
    return halfedge;
}

/// The slot of the edge between two vertices, or the free one that it would get.
std::size_t CMeshTopology::slotOf(std::uint32_t from, std::uint32_t to) const
{
    const std::size_t mask = m_table.size() - 1;
    for (std::size_t slot = placeOf(from, to) & mask;; slot = (slot + 1) & mask) {
        const std::uint32_t first = m_table[slot];
        if (first == uiNone) return slot;
        const std::uint32_t a = m_halfedges[first].to;
        const std::uint32_t b = m_halfedges[first ^ 1U].to;
        if ((a == to && b == from) || (a == from && b == to)) return slot;
    }
}

std::uint32_t CMeshTopology::findHalfedge(std::uint32_t from, std::uint32_t to) const
{
    if (m_table.empty()) return uiNone;
    const std::uint32_t first = m_table[slotOf(from, to)];
    return first == uiNone || m_halfedges[first].to == to ? first : first ^ 1U;
}

void CMeshTopology::growTable()
{
    m_table.assign(std::max(uiFewestSlots, 2 * m_table.size()), uiNone);
    for (std::uint32_t first = 0; first < m_halfedges.size(); first += 2)
        m_table[slotOf(m_halfedges[first].to, m_halfedges[first ^ 1U].to)] = first;
}

} // namespace graphene
