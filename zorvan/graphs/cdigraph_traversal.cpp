// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>

namespace Zorvan {

void CDiGraph::DFS(const std::function<void(int)>& discovered, const std::function<void(int)>& finished)
{
    reset_marks();
    int time = 0;
    for (int v = 0; v < nodes(); ++v)
        if (node(v).color == eWhite) visit(v, time, discovered, finished);
}

void CDiGraph::DFS(int source, const std::function<void(int)>& discovered, const std::function<void(int)>& finished)
{
    checkNode(source);
    reset_marks();
    int time = 0;
    visit(source, time, discovered, finished);
}

void CDiGraph::visit(int source, int& time, const std::function<void(int)>& discovered,
                     const std::function<void(int)>& finished)
{
    std::vector<std::pair<int, std::size_t>> path; // each node with its next edge
    const auto enter = [&](int v, int predecessor) {
        node(v).color = eGray;
        node(v).discovery = time++;
        node(v).predecessor = predecessor;
        path.emplace_back(v, 0);
        if (discovered) discovered(v);
    };

    enter(source, NULL_PRED);
    while (!path.empty()) {
        const int v = path.back().first;
        if (const Edge* const e = table(v).Next(path.back().second)) {
            if (node(e->target).color == eWhite) enter(e->target, v);
            continue;
        }
        node(v).color = eBlack;
        node(v).finish = time++;
        path.pop_back();
        if (finished) finished(v);
    }
}

/// Edges on the way from v to each node, -1 when there is no way.
std::vector<int> CDiGraph::hopsFrom(int v) const
{
    std::vector<int> hops(m_nodes.size(), -1);
    for (bfs_iterator it(*this, v), end; it != end; ++it) hops[static_cast<std::size_t>(it->number)] = it.depth();
    return hops;
}

CDiGraph::bfs_iterator::bfs_iterator(const CDiGraph& graph, int source)
    : m_graph(&graph), m_isSeen(graph.m_nodes.size(), false)
{
    graph.checkNode(source);
    m_queue.emplace_back(source, 0);
    m_isSeen[static_cast<std::size_t>(source)] = true;
}

CDiGraph::bfs_iterator& CDiGraph::bfs_iterator::operator++()
{
    const auto [v, depth] = m_queue[m_head++];
    for (const Edge& e : m_graph->edges(v)) {
        if (m_isSeen[static_cast<std::size_t>(e.target)]) continue;
        m_isSeen[static_cast<std::size_t>(e.target)] = true;
        m_queue.emplace_back(e.target, depth + 1);
    }
    return *this;
}

bool CDiGraph::bfs_iterator::operator==(const bfs_iterator& other) const
{
    const bool isEnd = m_head == m_queue.size();
    const bool isOtherEnd = other.m_head == other.m_queue.size();
    if (isEnd || isOtherEnd) return isEnd == isOtherEnd;
    return m_graph == other.m_graph && m_queue == other.m_queue && m_head == other.m_head;
}

CDiGraph::dfs_iterator::dfs_iterator(const CDiGraph& graph, int source)
    : m_graph(&graph), m_isSeen(graph.m_nodes.size(), false)
{
    graph.checkNode(source);
    m_path.emplace_back(source, 0);
    m_isSeen[static_cast<std::size_t>(source)] = true;
}

CDiGraph::dfs_iterator& CDiGraph::dfs_iterator::operator++()
{
    while (!m_path.empty()) {
        auto& [v, nextEdge] = m_path.back();
        while (const Edge* const e = m_graph->table(v).Next(nextEdge)) {
            if (m_isSeen[static_cast<std::size_t>(e->target)]) continue;
            m_isSeen[static_cast<std::size_t>(e->target)] = true;
            m_path.emplace_back(e->target, 0);
            return *this;
        }
        m_path.pop_back();
    }
    return *this;
}

bool CDiGraph::dfs_iterator::operator==(const dfs_iterator& other) const
{
    if (m_path.empty() || other.m_path.empty()) return m_path.empty() == other.m_path.empty();
    return m_graph == other.m_graph && m_path == other.m_path && m_isSeen == other.m_isSeen;
}

} // namespace Zorvan
