// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

namespace Zorvan::Testing {

using Matrix = std::vector<std::vector<bool>>;

/// A graph in which each possible edge stands with this probability, made in random order, with a small whole number as
/// cost (a float payload): sums are exact and ties are many.
inline CDiGraph RandomGraph(std::mt19937& engine, int n, double density, bool isAcyclic = false)
{
    std::vector<std::pair<int, int>> pairs;
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b)
            if (!isAcyclic || a * 7 % n < b * 7 % n) pairs.emplace_back(a, b); // 7 is prime to the sizes used
    std::shuffle(pairs.begin(), pairs.end(), engine);

    CDiGraph graph(n);
    for (const auto& [a, b] : pairs)
        if (std::bernoulli_distribution(density)(engine))
            graph.edge(a, b).payload = static_cast<float>(1 + engine() % 5);
    return graph;
}

inline float CostOf(const CDiGraph::Edge& e) { return *e.payload.get<float>(); }

/// Which node can be reached from which by one edge or more, leaving out the node and the edge (both ways) given.
inline Matrix Reachability(const CDiGraph& graph, bool isUndirected, int withoutNode = -1, int a = -1, int b = -1)
{
    const auto n = static_cast<std::size_t>(graph.nodes());
    Matrix reach(n, std::vector<bool>(n, false));
    for (const CDiGraph::Node& node : graph)
        for (const CDiGraph::Edge& e : graph.edges(node.number)) {
            if (e.source == withoutNode || e.target == withoutNode || (e.source == a && e.target == b)) continue;
            reach[static_cast<std::size_t>(e.source)][static_cast<std::size_t>(e.target)] = true;
            if (isUndirected) reach[static_cast<std::size_t>(e.target)][static_cast<std::size_t>(e.source)] = true;
        }
    for (std::size_t k = 0; k < n; ++k)
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t j = 0; j < n; ++j)
                if (reach[i][k] && reach[k][j]) reach[i][j] = true;
    return reach;
}

} // namespace Zorvan::Testing
