// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <cmath>

namespace Zorvan {

namespace {

constexpr float fInfinity = std::numeric_limits<float>::infinity();

/// A binary min-heap of all nodes by distance, which knows where each node stands. Neither way of sifting moves a node
/// past one of the same distance, so the order among equals is given.
class CNodeHeap
{
public:
    explicit CNodeHeap(const std::vector<float>& distances) : m_distances(distances), m_places(distances.size())
    {
        m_heap.reserve(distances.size());
        for (std::size_t v = 0; v < distances.size(); ++v) {
            m_heap.push_back(v);
            siftUp(v, v);
        }
    }

    [[nodiscard]] bool Empty() const { return m_heap.empty(); }

    std::size_t Pop()
    {
        const std::size_t top = m_heap.front();
        const std::size_t last = m_heap.back();
        m_heap.pop_back();
        if (!m_heap.empty()) siftDown(last);
        return top;
    }

    /// For a node in the heap whose distance has shrunk.
    void Decrease(std::size_t v) { siftUp(m_places[v], v); }

private:
    void put(std::size_t place, std::size_t v)
    {
        m_heap[place] = v;
        m_places[v] = place;
    }

    void siftUp(std::size_t place, std::size_t v)
    {
        while (place > 0 && m_distances[v] < m_distances[m_heap[(place - 1) / 2]]) {
            put(place, m_heap[(place - 1) / 2]);
            place = (place - 1) / 2;
        }
        put(place, v);
    }

    void siftDown(std::size_t v)
    {
        std::size_t place = 0;
        for (std::size_t child = 1; child < m_heap.size(); child = 2 * place + 1) {
            if (child + 1 < m_heap.size() && m_distances[m_heap[child + 1]] < m_distances[m_heap[child]]) ++child;
            if (!(m_distances[m_heap[child]] < m_distances[v])) break;
            put(place, m_heap[child]);
            place = child;
        }
        put(place, v);
    }

    const std::vector<float>& m_distances;
    std::vector<std::size_t> m_heap;
    std::vector<std::size_t> m_places;
};

} // namespace

CDiGraph::SSSP_data CDiGraph::dijkstra_SSSP(int source, int target, const EdgeCost& cost) const
{
    SSSP_data data;
    if (!exists(source)) return data;
    const auto s = static_cast<std::size_t>(source);
    data.source = source;
    data.distances.assign(m_nodes.size(), fInfinity);
    data.predecessors.assign(m_nodes.size(), NULL_PRED);
    data.visited.assign(m_nodes.size(), false);
    data.distances[s] = 0.0F;

    CNodeHeap heap(data.distances);
    while (!heap.Empty()) {
        const std::size_t u = heap.Pop();
        if (data.distances[u] == fInfinity) break; // what is left cannot be reached
        data.visited[u] = true;
        if (static_cast<int>(u) == target && target != source) break;
        for (const Edge& e : m_edges[u].All<const Edge>()) {
            const auto v = static_cast<std::size_t>(e.target);
            const float alt = cost(e) + data.distances[u];
            if (!(data.distances[v] > alt)) continue;
            data.distances[v] = alt;
            data.predecessors[v] = static_cast<int>(u);
            if (!data.visited[v]) heap.Decrease(v);
        }
    }
    if (source != target) return data;

    data.distances[s] = fInfinity;
    data.predecessors[s] = NULL_PRED;
    for (std::size_t w = 0; w < m_nodes.size(); ++w) {
        const Edge* const e = w != s && data.distances[w] < fInfinity ? m_edges[w].Find(source) : nullptr;
        if (!e) continue;
        const float alt = cost(*e) + data.distances[w];
        if (!(data.distances[s] > alt)) continue;
        data.distances[s] = alt;
        data.predecessors[s] = static_cast<int>(w);
    }
    return data;
}

std::vector<int> CDiGraph::SSSP_data::path(int target) const
{
    if (target < 0 || static_cast<std::size_t>(target) >= distances.size()) return {};
    if (!(distances[static_cast<std::size_t>(target)] < fInfinity)) return {};

    std::vector<int> nodes{target};
    for (int v = predecessors[static_cast<std::size_t>(target)]; v != NULL_PRED;
         v = predecessors[static_cast<std::size_t>(v)]) {
        // Negative costs can tie the predecessors into a knot.
        if (nodes.size() > distances.size()) return {};
        nodes.push_back(v);
        if (v == source) break;
    }
    std::ranges::reverse(nodes);
    return nodes;
}

CDiGraph::APSP_data CDiGraph::APSP(bool cycles, const EdgeCost& cost) const
{
    const std::size_t n = m_nodes.size();
    APSP_data data{nodes(), std::vector<float>(n * n, fInfinity), std::vector<int>(n * n, NULL_PRED)};
    for (std::size_t u = 0; u < n; ++u) {
        for (const Edge& e : m_edges[u].All<const Edge>()) {
            if (!cycles && e.target == e.source) continue;
            data.distances[u * n + static_cast<std::size_t>(e.target)] = cost(e);
            data.predecessors[u * n + static_cast<std::size_t>(e.target)] = e.source;
        }
        if (!cycles) data.distances[u * n + u] = 0.0F;
    }

    for (std::size_t k = 0; k < n; ++k)
        for (std::size_t i = 0; i < n; ++i) {
            if (!(data.distances[i * n + k] < fInfinity)) continue;
            for (std::size_t j = 0; j < n; ++j) {
                const float alt = data.distances[i * n + k] + data.distances[k * n + j];
                if (!(alt < data.distances[i * n + j])) continue;
                data.distances[i * n + j] = alt;
                data.predecessors[i * n + j] = data.predecessors[k * n + j];
            }
        }
    return data;
}

float CDiGraph::APSP_data::distance(int source, int target) const
{
    return distances.at(static_cast<std::size_t>(source) * static_cast<std::size_t>(nodes) +
                        static_cast<std::size_t>(target));
}

int CDiGraph::APSP_data::predecessor(int source, int target) const
{
    return predecessors.at(static_cast<std::size_t>(source) * static_cast<std::size_t>(nodes) +
                           static_cast<std::size_t>(target));
}

int CDiGraph::farthest_node(int v) const
{
    const std::vector<int> hops = hopsFrom(v);
    return static_cast<int>(std::max_element(hops.begin(), hops.end()) - hops.begin());
}

int CDiGraph::search_farthest_node(int v) const
{
    for (int reach = 0;;) {
        const std::vector<int> hops = hopsFrom(v);
        const auto farthest = std::max_element(hops.begin(), hops.end());
        if (*farthest <= reach) return v;
        reach = *farthest;
        v = static_cast<int>(farthest - hops.begin());
    }
}

} // namespace Zorvan
