// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <numeric>

namespace Zorvan {

namespace {

using Neighbours = std::vector<std::vector<int>>;

/// A depth-first forest of an undirected graph, with the earliest node that each subtree reaches by one edge out of the
/// tree. All arrays by node number.
struct LowLinks
{
    std::vector<int> parent; ///< -1 at a root
    std::vector<int> index;  ///< order of discovery
    std::vector<int> low;    ///< index of that earliest node
};

class CLowLinkSearch
{
public:
    explicit CLowLinkSearch(const Neighbours& neighbours)
        : m_neighbours(neighbours),
          m_next(neighbours.size(), 0),
          m_links{std::vector<int>(neighbours.size(), -1), std::vector<int>(neighbours.size(), -1), {}}
    {
        m_links.low = m_links.index;
    }

    LowLinks Run()
    {
        for (std::size_t v = 0; v < m_neighbours.size(); ++v)
            if (m_links.index[v] < 0) search(static_cast<int>(v));
        return std::move(m_links);
    }

private:
    void enter(int v, int parent)
    {
        const auto i = static_cast<std::size_t>(v);
        m_links.parent[i] = parent;
        m_links.index[i] = m_links.low[i] = m_count++;
        m_path.push_back(v);
    }

    void search(int root)
    {
        enter(root, -1);
        while (!m_path.empty()) {
            const int v = m_path.back();
            const auto i = static_cast<std::size_t>(v);
            if (m_next[i] == m_neighbours[i].size()) {
                m_path.pop_back();
                if (m_links.parent[i] >= 0) lower(m_links.parent[i], m_links.low[i]);
                continue;
            }
            const int next = m_neighbours[i][m_next[i]++];
            if (m_links.index[static_cast<std::size_t>(next)] < 0)
                enter(next, v);
            else if (next != m_links.parent[i])
                lower(v, m_links.index[static_cast<std::size_t>(next)]);
        }
    }

    void lower(int v, int low)
    {
        int& own = m_links.low[static_cast<std::size_t>(v)];
        own = std::min(own, low);
    }

    const Neighbours& m_neighbours;
    std::vector<std::size_t> m_next; ///< of each node the neighbour that comes next
    std::vector<int> m_path;
    LowLinks m_links;
    int m_count = 0;
};

} // namespace

std::vector<std::pair<int, int>> CDiGraph::find_bridges(bool isSymmetric) const
{
    const LowLinks links = CLowLinkSearch(neighbours()).Run();
    std::vector<std::pair<int, int>> bridges;
    for (int v = 0; v < nodes(); ++v) {
        const int p = links.parent[static_cast<std::size_t>(v)];
        if (p < 0 || links.low[static_cast<std::size_t>(v)] <= links.index[static_cast<std::size_t>(p)]) continue;
        const bool isDouble = exists(p, v) && exists(v, p);
        if (isDouble && !isSymmetric) continue;
        const bool isForward = isDouble ? p < v : exists(p, v);
        bridges.push_back(isForward ? std::pair(p, v) : std::pair(v, p));
    }
    std::ranges::sort(bridges);
    return bridges;
}

std::vector<int> CDiGraph::find_articulation_nodes() const
{
    const LowLinks links = CLowLinkSearch(neighbours()).Run();
    std::vector<int> separated(m_nodes.size(), 0); // subtrees that only this node joins to what lies before it
    for (std::size_t v = 0; v < m_nodes.size(); ++v) {
        if (links.parent[v] < 0) continue;
        const auto p = static_cast<std::size_t>(links.parent[v]);
        if (links.low[v] >= links.index[p]) ++separated[p];
    }

    std::vector<int> result;
    for (std::size_t v = 0; v < m_nodes.size(); ++v) {
        const int needed = links.parent[v] < 0 ? 2 : 1; // nothing lies before a root
        if (separated[v] >= needed) result.push_back(static_cast<int>(v));
    }
    return result;
}

CDisjointSets CDiGraph::node_coloring() const
{
    std::vector<int> colors(m_nodes.size());
    const int count = node_coloring(colors.data());

    CDisjointSets classes(static_cast<unsigned int>(nodes()));
    std::vector<int> first(static_cast<std::size_t>(count), -1);
    for (std::size_t v = 0; v < colors.size(); ++v) {
        int& representative = first[static_cast<std::size_t>(colors[v])];
        if (representative < 0) representative = static_cast<int>(v);
        classes.Unify(static_cast<unsigned int>(representative), static_cast<unsigned int>(v));
    }
    return classes;
}

int CDiGraph::node_coloring(int* colors) const
{
    const Neighbours around = neighbours();
    std::vector<std::size_t> order(around.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::stable_sort(order, std::greater<>(), [&around](std::size_t v) { return around[v].size(); });

    std::fill_n(colors, nodes(), -1);
    std::vector<std::size_t> takenBy(around.size() + 1,
                                     around.size()); // by colour: the last node that must not have it
    int count = 0;
    for (const std::size_t v : order) {
        for (const int w : around[v])
            if (colors[w] >= 0) takenBy[static_cast<std::size_t>(colors[w])] = v;
        colors[v] =
            static_cast<int>(std::ranges::find_if(takenBy, [v](std::size_t t) { return t != v; }) - takenBy.begin());
        count = std::max(count, colors[v] + 1);
    }
    return count;
}

} // namespace Zorvan
