// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <stdexcept>

namespace Zorvan {

CDiGraph::CDiGraph(int n) { resize(n); }

void CDiGraph::resize(int n)
{
    if (n < 0) throw std::invalid_argument("invalid node count");
    const int before = nodes();
    m_edges.resize(static_cast<std::size_t>(n));
    m_nodes.resize(static_cast<std::size_t>(n));
    for (int v = before; v < n; ++v) m_nodes[static_cast<std::size_t>(v)].number = v;
    if (n < before)
        for (CEdgeTable& table : m_edges) table.EraseFrom(n);
}

int CDiGraph::edges() const
{
    int count = 0;
    for (const CEdgeTable& table : m_edges) count += static_cast<int>(table.Size());
    return count;
}

CDiGraph::edges_proxy CDiGraph::edges(int v)
{
    checkNode(v);
    return table(v).All<Edge>();
}

CDiGraph::const_edges_proxy CDiGraph::edges(int v) const
{
    checkNode(v);
    return table(v).All<const Edge>();
}

CDiGraph::Node& CDiGraph::node(int v)
{
    checkNode(v);
    return m_nodes[static_cast<std::size_t>(v)];
}

const CDiGraph::Node& CDiGraph::node(int v) const
{
    checkNode(v);
    return m_nodes[static_cast<std::size_t>(v)];
}

CDiGraph::Node* CDiGraph::node_ptr(int v) { return exists(v) ? &node(v) : nullptr; }

const CDiGraph::Node* CDiGraph::node_ptr(int v) const { return exists(v) ? &node(v) : nullptr; }

CDiGraph::Edge& CDiGraph::edge(int a, int b)
{
    checkNode(a);
    checkNode(b);
    CEdgeTable& edges = m_edges[static_cast<std::size_t>(a)];
    Edge* const found = edges.Find(b);
    return found ? *found : edges.Add(a, b);
}

CDiGraph::Edge* CDiGraph::edge_ptr(int a, int b) { return exists(a) && exists(b) ? &edge(a, b) : nullptr; }

CDiGraph::Edge& CDiGraph::edge(const Edge& other)
{
    Edge& own = edge(other.source, other.target);
    own.payload = other.payload;
    return own;
}

const CDiGraph::Edge& CDiGraph::edge(int a, int b) const
{
    const Edge* const found = edge_ptr(a, b);
    if (!found) throw std::out_of_range("edge does not exist");
    return *found;
}

const CDiGraph::Edge* CDiGraph::edge_ptr(int a, int b) const { return exists(a) ? table(a).Find(b) : nullptr; }

bool CDiGraph::erase(int a, int b) { return exists(a) && m_edges[static_cast<std::size_t>(a)].Erase(b); }

int CDiGraph::degree_in(int v) const
{
    checkNode(v);
    return static_cast<int>(std::ranges::count_if(m_edges, [v](const CEdgeTable& t) { return t.Find(v) != nullptr; }));
}

int CDiGraph::degree_out(int v) const
{
    checkNode(v);
    return static_cast<int>(table(v).Size());
}

std::vector<int> CDiGraph::node_degrees() const
{
    std::vector<int> degrees(m_nodes.size(), 0);
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v)) {
            ++degrees[static_cast<std::size_t>(v)];
            ++degrees[static_cast<std::size_t>(e.target)];
        }
    return degrees;
}

void CDiGraph::colorize(ENodeColor color)
{
    for (Node& node : m_nodes) node.color = color;
}

void CDiGraph::reset_marks()
{
    for (Node& node : m_nodes) {
        node.color = eWhite;
        node.discovery = -1;
        node.finish = -1;
        node.predecessor = NULL_PRED;
    }
}

bool CDiGraph::is_loop_free() const
{
    return std::ranges::none_of(m_nodes, [this](const Node& node) { return exists(node.number, node.number); });
}

void CDiGraph::checkNode(int v) const
{
    if (!exists(v)) throw std::out_of_range("invalid node index");
}

/// The undirected view: the other nodes that an edge joins with each, ascending.
std::vector<std::vector<int>> CDiGraph::neighbours() const
{
    std::vector<std::vector<int>> result(m_nodes.size());
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v)) {
            if (e.target == v) continue;
            result[static_cast<std::size_t>(v)].push_back(e.target);
            result[static_cast<std::size_t>(e.target)].push_back(v);
        }
    for (auto& list : result) {
        std::ranges::sort(list);
        list.erase(std::unique(list.begin(), list.end()), list.end());
    }
    return result;
}

} // namespace Zorvan
