// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <queue>

namespace Zorvan {

namespace {

TPermutation<int> toPermutation(const std::vector<int>& order, bool byNode)
{
    TPermutation<int> result(order.size());
    std::ranges::copy(order, result.begin());
    return byNode ? result.GetInverse() : result;
}

int countOf(const int* values, int n) { return n == 0 ? 0 : *std::max_element(values, values + n) + 1; }

} // namespace

bool CDiGraph::topological_sort(TPermutation<int>& order, bool byNode) const
{
    std::vector<int> open(m_nodes.size(), 0); // edges from nodes that have no place yet
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v)) ++open[static_cast<std::size_t>(e.target)];

    std::priority_queue<int, std::vector<int>, std::greater<>> ready;
    for (int v = 0; v < nodes(); ++v)
        if (open[static_cast<std::size_t>(v)] == 0) ready.push(v);

    std::vector<int> sorted;
    while (!ready.empty()) {
        const int v = ready.top();
        ready.pop();
        sorted.push_back(v);
        for (const Edge& e : edges(v))
            if (--open[static_cast<std::size_t>(e.target)] == 0) ready.push(e.target);
    }

    const bool isComplete = sorted.size() == m_nodes.size();
    order = isComplete ? toPermutation(sorted, byNode) : TPermutation<int>();
    return isComplete;
}

TPermutation<int> CDiGraph::topological_sort_cyclic(bool byNode, const std::function<bool(int, int)>& less) const
{
    CDiGraph dag;
    make_SCC_DAG(&dag);
    TPermutation<int> components;
    dag.topological_sort(components, false);

    std::vector<int> sorted;
    for (const int c : components) {
        auto members = *dag.node(c).payload.get<std::vector<int>>();
        if (less) std::ranges::stable_sort(members, less);
        sorted.insert(sorted.end(), members.begin(), members.end());
    }
    return toPermutation(sorted, byNode);
}

bool CDiGraph::is_acyclic() const
{
    TPermutation<int> order;
    return topological_sort(order, false);
}

int CDiGraph::longest_path_layering(int* layers) const
{
    TPermutation<int> order;
    if (!topological_sort(order, false)) return -1;
    order.Reverse();
    for (const int v : order) {
        layers[v] = 0;
        for (const Edge& e : edges(v)) layers[v] = std::max(layers[v], layers[e.target] + 1);
    }
    return countOf(layers, nodes());
}

int CDiGraph::dag_schedule(int* steps) const
{
    TPermutation<int> order;
    if (!topological_sort(order, false)) return -1;
    std::fill_n(steps, nodes(), 0);
    for (const int v : order)
        for (const Edge& e : edges(v)) steps[e.target] = std::max(steps[e.target], steps[v] + 1);
    return countOf(steps, nodes());
}

} // namespace Zorvan
