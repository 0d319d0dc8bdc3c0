#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace Zorvan {

namespace {

/// Up to this many edges a walk over all of them is as fast as hashing.
constexpr std::size_t uiMaxWalk = 16;

} // namespace

CDiGraph::CEdgeTable::CEdgeTable(const CEdgeTable& other) : m_slots(other.m_slots)
{
    m_edges.reserve(other.m_edges.size());
    for (const auto& edge : other.m_edges) m_edges.push_back(std::make_unique<Edge>(*edge));
}

CDiGraph::CEdgeTable& CDiGraph::CEdgeTable::operator=(const CEdgeTable& other) { return *this = CEdgeTable(other); }

CDiGraph::Edge* CDiGraph::CEdgeTable::Find(int target) const
{
    if (!m_slots.empty()) {
        const int position = m_slots[findSlot(target)];
        return position < 0 ? nullptr : m_edges[static_cast<std::size_t>(position)].get();
    }
    const auto found = std::ranges::find(m_edges, target, [](const auto& edge) { return edge->target; });
    return found == m_edges.end() ? nullptr : found->get();
}

CDiGraph::Edge& CDiGraph::CEdgeTable::Add(int source, int target)
{
    m_edges.push_back(std::make_unique<Edge>(Edge{source, target, {}}));
    if (m_edges.size() <= uiMaxWalk) return *m_edges.back();

    if (2 * m_edges.size() > m_slots.size())
        rebuildSlots();
    else
        m_slots[findSlot(target)] = static_cast<int>(m_edges.size()) - 1;
    return *m_edges.back();
}

bool CDiGraph::CEdgeTable::Erase(int target)
{
    const auto found = std::ranges::find(m_edges, target, [](const auto& edge) { return edge->target; });
    if (found == m_edges.end()) return false;
    m_edges.erase(found);
    rebuildSlots();
    return true;
}

void CDiGraph::CEdgeTable::EraseFrom(int n)
{
    if (std::erase_if(m_edges, [n](const auto& edge) { return edge->target >= n; }) > 0) rebuildSlots();
}

/// Where the target is, or where it belongs. At most half of the slots are taken, so the search ends.
std::size_t CDiGraph::CEdgeTable::findSlot(int target) const
{
    const std::size_t mask = m_slots.size() - 1;
    const auto hash = static_cast<std::uint32_t>(target) * 0x9E3779B1U;
    std::size_t slot = (hash ^ hash >> 16) & mask;
    while (m_slots[slot] >= 0 && m_edges[static_cast<std::size_t>(m_slots[slot])]->target != target)
        slot = (slot + 1) & mask;
    return slot;
}

void CDiGraph::CEdgeTable::rebuildSlots()
{
    m_slots.clear();
    if (m_edges.size() <= uiMaxWalk) return;
    m_slots.assign(std::bit_ceil(4 * m_edges.size()), -1);
    for (std::size_t i = 0; i < m_edges.size(); ++i) m_slots[findSlot(m_edges[i]->target)] = static_cast<int>(i);
}

} // namespace Zorvan
