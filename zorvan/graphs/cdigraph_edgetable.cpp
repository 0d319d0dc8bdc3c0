// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace Zorvan {

namespace {

/// Up to this many edges a walk over all of them is as fast as hashing.
constexpr std::size_t uiMaxWalk = 16;

} // namespace

CDiGraph::CEdgeTable::CEdgeTable(const CEdgeTable& other)
{
    m_edges.reserve(other.Size());
    for (const Edge& edge : other.All<const Edge>()) m_edges.push_back(std::make_unique<Edge>(edge));
    rebuildSlots();
}

CDiGraph::CEdgeTable& CDiGraph::CEdgeTable::operator=(const CEdgeTable& other) { return *this = CEdgeTable(other); }

const CDiGraph::Edge* CDiGraph::CEdgeTable::Next(std::size_t& place) const
{
    while (place < m_edges.size())
        if (const Edge* const edge = m_edges[place++].get()) return edge;
    return nullptr;
}

CDiGraph::Edge* CDiGraph::CEdgeTable::Find(int target) const
{
    const std::ptrdiff_t place = findPlace(target);
    return place < 0 ? nullptr : m_edges[static_cast<std::size_t>(place)].get();
}

CDiGraph::Edge& CDiGraph::CEdgeTable::Add(int source, int target)
{
    m_edges.push_back(std::make_unique<Edge>(Edge{source, target, {}}));
    if (m_edges.size() <= uiMaxWalk) return *m_edges.back();

    if (2 * m_edges.size() > m_slots.size())
        closeGaps();
    else
        m_slots[findSlot(target)] = static_cast<int>(m_edges.size()) - 1;
    return *m_edges.back();
}

bool CDiGraph::CEdgeTable::Erase(int target)
{
    const std::ptrdiff_t place = findPlace(target);
    if (place < 0) return false;
    m_edges[static_cast<std::size_t>(place)] = nullptr;
    ++m_gaps;
    // Who empties a node from its front should not walk over all gaps each time.
    while (m_first < m_edges.size() && !m_edges[m_first]) ++m_first;
    if (2 * m_gaps > m_edges.size()) closeGaps();
    return true;
}

void CDiGraph::CEdgeTable::EraseFrom(int n)
{
    for (auto& edge : m_edges) {
        if (!edge || edge->target < n) continue;
        edge = nullptr;
        ++m_gaps;
    }
    if (m_gaps != 0) closeGaps();
}

/// Negative when there is none.
std::ptrdiff_t CDiGraph::CEdgeTable::findPlace(int target) const
{
    if (!m_slots.empty()) return m_slots[findSlot(target)];
    const auto found =
        std::ranges::find_if(m_edges, [target](const auto& edge) { return edge && edge->target == target; });
    return found == m_edges.end() ? -1 : found - m_edges.begin();
}

/// Where the target is, or where it belongs. At most half of the slots are taken, those of gaps included, so the search
/// ends.
std::size_t CDiGraph::CEdgeTable::findSlot(int target) const
{
    const std::size_t mask = m_slots.size() - 1;
    const auto hash = static_cast<std::uint32_t>(target) * 0x9E3779B1U;
    std::size_t slot = (hash ^ hash >> 16) & mask;
    const auto isOther = [&](int place) {
        const Edge* const edge = m_edges[static_cast<std::size_t>(place)].get();
        return edge == nullptr || edge->target != target;
    };
    while (m_slots[slot] >= 0 && isOther(m_slots[slot])) slot = (slot + 1) & mask;
    return slot;
}

void CDiGraph::CEdgeTable::closeGaps()
{
    std::erase(m_edges, nullptr);
    m_gaps = 0;
    m_first = 0;
    rebuildSlots();
}

void CDiGraph::CEdgeTable::rebuildSlots()
{
    m_slots.clear();
    if (m_edges.size() <= uiMaxWalk) return;
    m_slots.assign(std::bit_ceil(4 * m_edges.size()), -1);
    for (std::size_t i = 0; i < m_edges.size(); ++i) m_slots[findSlot(m_edges[i]->target)] = static_cast<int>(i);
}

} // namespace Zorvan
