// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <queue>
#include <stdexcept>
#include <unordered_set>

namespace Zorvan {

/// One run of the ordering over all components.
class CDiGraph::CCuthillMcKee
{
public:
    CCuthillMcKee(const CDiGraph& graph, const CDiGraph& transposed, const std::vector<int>& degrees)
        : m_graph(graph), m_transposed(transposed), m_degrees(degrees), m_isSeen(degrees.size(), false)
    {
        m_queue.reserve(degrees.size());
    }

    /// Numbers everything that hangs together with `start`.
    void NumberComponent(int start)
    {
        std::size_t head = m_queue.size();
        m_isSeen[static_cast<std::size_t>(start)] = true;
        m_level = 0;
        m_levelWidth = 0;
        append({start, m_degrees[static_cast<std::size_t>(start)], 0});
        for (; head < m_queue.size(); ++head) appendNeighbours(m_queue[head]);
    }

    [[nodiscard]] bool IsSeen(int v) const { return m_isSeen[static_cast<std::size_t>(v)]; }
    /// The nodes in their new order.
    [[nodiscard]] const std::vector<CMK_Node>& GetOrder() const { return m_queue; }
    [[nodiscard]] int GetWidth() const { return m_width; }

private:
    void append(const CMK_Node& node)
    {
        m_levelWidth = node.level == m_level ? m_levelWidth + 1 : 1;
        m_level = node.level;
        m_width = std::max(m_width, m_levelWidth);
        m_queue.push_back(node);
    }

    /// Takes a copy: the queue may move while it grows.
    void appendNeighbours(CMK_Node node)
    {
        std::vector<CMK_Node> found;
        for (const CDiGraph* view : {&m_graph, &m_transposed})
            for (const Edge& e : view->edges(node.number)) {
                if (IsSeen(e.target)) continue;
                m_isSeen[static_cast<std::size_t>(e.target)] = true;
                found.push_back({e.target, m_degrees[static_cast<std::size_t>(e.target)], node.level + 1});
            }
        std::ranges::stable_sort(found, {}, &CMK_Node::degree);
        for (const CMK_Node& next : found) append(next);
    }

    const CDiGraph& m_graph;
    const CDiGraph& m_transposed;
    const std::vector<int>& m_degrees;
    std::vector<bool> m_isSeen;
    std::vector<CMK_Node> m_queue;
    int m_level = 0;
    int m_levelWidth = 0;
    int m_width = 0;
};

TPermutation<int> CDiGraph::bandwidth_reduction(bool byNode, bool reverse, int* width) const
{
    const CDiGraph transposed = get_transposed();
    const std::vector<int> degrees = node_degrees();
    TPermutation<int> result(m_nodes.size());
    if (width) *width = std::min(nodes(), 1);
    if (std::ranges::count(degrees, 0) == nodes()) return result;

    CCuthillMcKee ordering(*this, transposed, degrees);
    for (int v = 0; v < nodes(); ++v)
        if (!ordering.IsSeen(v)) ordering.NumberComponent(find_peripheral_node(transposed, degrees, v));

    std::ranges::transform(ordering.GetOrder(), result.begin(), &CMK_Node::number);
    if (byNode) result = result.GetInverse();
    if (reverse) result.Reverse();
    if (width) *width = ordering.GetWidth();
    return result;
}

/// A node of the last level around `start`: the first one found, or one of higher degree than `start`.
int CDiGraph::find_peripheral_node(const CDiGraph& transposed, const std::vector<int>& degrees, int start) const
{
    const auto degreeOf = [&degrees](int v) { return degrees[static_cast<std::size_t>(v)]; };
    std::unordered_set<int> isSeen{start}; // not an array: most components are small
    std::vector<CMK_Node> queue{{start, degreeOf(start), 0}};
    CMK_Node best = queue.front();
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const CMK_Node current = queue[head];
        if (current.level > best.level || current.degree > degreeOf(start)) best = current;
        for (const CDiGraph* view : {this, &transposed})
            for (const Edge& e : view->edges(current.number))
                if (isSeen.insert(e.target).second) queue.push_back({e.target, degreeOf(e.target), current.level + 1});
    }
    return best.number;
}

CDisjointSets CDiGraph::block_partition(int blocks) const
{
    if (blocks < 1) throw std::invalid_argument("invalid block count");
    const TPermutation<int> order = bandwidth_reduction(false, false);
    const std::size_t n = order.Size();
    const std::size_t count = std::min(static_cast<std::size_t>(blocks), n);

    CDisjointSets result(static_cast<unsigned int>(n));
    for (std::size_t i = 1; i < n; ++i)
        if (i * count / n == (i - 1) * count / n)
            result.Unify(static_cast<unsigned int>(order[i - 1]), static_cast<unsigned int>(order[i]));
    return result;
}

} // namespace Zorvan
