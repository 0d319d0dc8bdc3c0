// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Zorvan {

CDiGraph CDiGraph::clone_topology() const
{
    CDiGraph result(nodes());
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v)) result.edge(v, e.target);
    return result;
}

CDiGraph CDiGraph::get_transposed() const
{
    CDiGraph result;
    result.m_nodes = m_nodes;
    result.m_edges.resize(m_nodes.size());
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v)) result.edge(e.target, v).payload = e.payload;
    return result;
}

CDiGraph CDiGraph::get_symmetric_graph() const
{
    CDiGraph result = *this;
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v))
            if (!exists(e.target, v)) result.edge(e.target, v).payload = e.payload;
    return result;
}

CDiGraph CDiGraph::make_sub_graph(const std::vector<int>& nodes, TPermutation<int>& newNumbers) const
{
    TPermutation<int> numbers(m_nodes.size());
    std::ranges::fill(numbers, NULL_NODE);
    CDiGraph result;
    for (const int v : nodes) {
        checkNode(v);
        int& number = numbers[static_cast<std::size_t>(v)];
        if (number != NULL_NODE) continue;
        number = result.nodes();
        result.m_nodes.push_back(node(v));
        result.m_nodes.back().number = number;
    }

    result.m_edges.resize(result.m_nodes.size());
    for (int v = 0; v < this->nodes(); ++v)
        for (const Edge& e : edges(v)) {
            const int a = numbers[static_cast<std::size_t>(v)];
            const int b = numbers[static_cast<std::size_t>(e.target)];
            if (a != NULL_NODE && b != NULL_NODE) result.edge(a, b).payload = e.payload;
        }
    newNumbers = std::move(numbers);
    return result;
}

void CDiGraph::permute(const TPermutation<int>& permutation)
{
    if (permutation.Size() != m_nodes.size() || !permutation.IsValid())
        throw std::invalid_argument("invalid permutation");
    const TPermutation<int> oldNumbers = permutation.GetInverse();
    TPermutation<int> newNumbers;
    *this = make_sub_graph({oldNumbers.begin(), oldNumbers.end()}, newNumbers);
}

CDiGraph CDiGraph::MST(const std::function<double(int, int)>& weight) const
{
    std::vector<std::pair<double, const Edge*>> candidates;
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v)) {
            const double w = weight(v, e.target);
            // NaN has no place in an order.
            candidates.emplace_back(std::isnan(w) ? std::numeric_limits<double>::infinity() : w, &e);
        }
    std::ranges::stable_sort(candidates, {}, [](const auto& candidate) { return candidate.first; });

    CDiGraph forest;
    forest.m_nodes = m_nodes;
    forest.m_edges.resize(m_nodes.size());
    CDisjointSets trees(static_cast<unsigned int>(nodes()));
    for (const auto& [w, e] : candidates) {
        const auto a = static_cast<unsigned int>(e->source);
        const auto b = static_cast<unsigned int>(e->target);
        if (trees.SameClass(a, b)) continue;
        trees.Unify(a, b);
        forest.edge(*e);
    }
    return forest;
}

} // namespace Zorvan
