// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include "randomgraph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Zorvan {
namespace {

using Testing::CostOf;
using Testing::Matrix;
using Testing::RandomGraph;
using Testing::Reachability;

constexpr int n = 9;
constexpr float fInfinity = std::numeric_limits<float>::infinity();

std::size_t at(int v) { return static_cast<std::size_t>(v); }

bool areOne(const CDisjointSets& sets, int a, int b)
{
    return sets.SameClass(static_cast<unsigned int>(a), static_cast<unsigned int>(b));
}

float unit(const CDiGraph::Edge&) { return 1.0F; }

/// Random graphs from a few edges to many, as every algorithm meets them here.
class RandomGraphs : public testing::TestWithParam<int>
{
protected:
    std::mt19937 m_engine{static_cast<std::mt19937::result_type>(47110815 + GetParam())};
    CDiGraph m_graph = RandomGraph(m_engine, n, 0.04 * (1 + GetParam() % 10));
    CDiGraph m_dag = RandomGraph(m_engine, n, 0.08 * (1 + GetParam() % 10), true);

    template <typename Check>
    void forEachEdge(const CDiGraph& graph, Check check)
    {
        for (const CDiGraph::Node& node : graph)
            for (const CDiGraph::Edge& e : graph.edges(node.number)) check(e);
    }
};

INSTANTIATE_TEST_SUITE_P(CDiGraph, RandomGraphs, testing::Range(0, 20));

/// Bellman and Ford's rounds; the source itself is reached only around a cycle through other nodes when asked for.
std::vector<float> distancesByRounds(const CDiGraph& graph, int source, bool isCycle)
{
    std::vector<float> result(n, fInfinity);
    result[at(source)] = 0.0F;
    for (int round = 0; round < n; ++round)
        for (const CDiGraph::Node& node : graph)
            for (const CDiGraph::Edge& e : graph.edges(node.number))
                result[at(e.target)] = std::min(result[at(e.target)], result[at(e.source)] + CostOf(e));
    if (!isCycle) return result;
    result[at(source)] = fInfinity;
    for (int w = 0; w < n; ++w)
        if (w != source && graph.exists(w, source))
            result[at(source)] = std::min(result[at(source)], result[at(w)] + CostOf(graph.edge(w, source)));
    return result;
}

float lengthOf(const CDiGraph& graph, const std::vector<int>& path)
{
    float length = 0.0F;
    for (std::size_t i = 1; i < path.size(); ++i) length += CostOf(graph.edge(path[i - 1], path[i]));
    return length;
}

TEST_P(RandomGraphs, DijkstraAgreesWithRelaxingAllEdges)
{
    for (int source = 0; source < n; ++source) {
        const auto all = m_graph.dijkstra_SSSP(source, CDiGraph::NULL_NODE, CostOf);
        EXPECT_EQ(all.distances, distancesByRounds(m_graph, source, false));
        for (int target = 0; target < n; ++target) {
            const auto data = m_graph.dijkstra_SSSP(source, target, CostOf);
            const auto expected = distancesByRounds(m_graph, source, source == target);
            EXPECT_EQ(data.distances[at(target)], expected[at(target)]);
            const std::vector<int> path = data.path(target);
            EXPECT_EQ(path.empty(), std::isinf(expected[at(target)]));
            if (path.empty()) continue;
            EXPECT_TRUE(path.front() == source && path.back() == target);
            EXPECT_EQ(lengthOf(std::as_const(m_graph), path), expected[at(target)]);
        }
    }
}

TEST_P(RandomGraphs, AllPairsAgreeWithEachSource)
{
    const auto plain = m_graph.APSP(false, CostOf);
    const auto cycles = m_graph.APSP(true, CostOf);
    for (int a = 0; a < n; ++a) {
        auto expected = distancesByRounds(m_graph, a, false);
        for (int b = 0; b < n; ++b) EXPECT_EQ(plain.distance(a, b), expected[at(b)]);
        expected[at(a)] = distancesByRounds(m_graph, a, true)[at(a)];
        if (m_graph.exists(a, a)) expected[at(a)] = std::min(expected[at(a)], CostOf(m_graph.edge(a, a)));
        for (int b = 0; b < n; ++b) {
            EXPECT_EQ(cycles.distance(a, b), expected[at(b)]);
            const int p = cycles.predecessor(a, b);
            if (p == CDiGraph::NULL_PRED) continue;
            EXPECT_EQ((p == a ? 0.0F : expected[at(p)]) + CostOf(m_graph.edge(p, b)), expected[at(b)]);
        }
    }
}

TEST_P(RandomGraphs, SearchesReachWhatCanBeReached)
{
    const Matrix reach = Reachability(m_graph, false);
    for (int v = 0; v < n; ++v) {
        const auto hops = m_graph.dijkstra_SSSP(v, -1, unit).distances;
        std::vector<int> byBreadth, byDepth;
        for (CDiGraph::bfs_iterator it(m_graph, v), end; it != end; ++it) {
            EXPECT_EQ(static_cast<float>(it.depth()), hops[at(it->number)]);
            byBreadth.push_back(it->number);
        }
        for (CDiGraph::dfs_iterator it(m_graph, v), end; it != end; ++it) byDepth.push_back(it->number);
        EXPECT_TRUE(std::ranges::is_permutation(byBreadth, byDepth));
        for (int w = 0; w < n; ++w) EXPECT_EQ(std::ranges::count(byDepth, w), w == v || reach[at(v)][at(w)] ? 1 : 0);
    }
}

TEST_P(RandomGraphs, FarthestNodesAreThoseOfTheLongestShortestPath)
{
    for (int v = 0; v < n; ++v) {
        std::vector<float> hops = m_graph.dijkstra_SSSP(v, -1, unit).distances;
        std::ranges::replace(hops, fInfinity, -1.0F);
        EXPECT_EQ(m_graph.farthest_node(v), std::ranges::max_element(hops) - hops.begin());
    }
}

/// In a tree, whose edges lead both ways, the farthest of the farthest is an end of the longest path.
TEST_P(RandomGraphs, SearchForTheFarthestEndsAtAnEndOfTheLongestPath)
{
    CDiGraph tree(n);
    for (int v = 1; v < n; ++v) {
        const int parent = static_cast<int>(m_engine() % static_cast<unsigned int>(v));
        tree.edge(v, parent);
        tree.edge(parent, v);
    }
    std::vector<float> longest;
    for (int v = 0; v < n; ++v) longest.push_back(std::ranges::max(tree.dijkstra_SSSP(v, -1, unit).distances));
    for (int v = 0; v < n; ++v) EXPECT_EQ(longest[at(tree.search_farthest_node(v))], std::ranges::max(longest));
    for (int v = 0; v < n; ++v) EXPECT_EQ(CDiGraph(n).search_farthest_node(v), v) << "no edges";
}

TEST_P(RandomGraphs, DepthFirstMarksNestLikeParentheses)
{
    m_graph.DFS();
    for (const CDiGraph::Node& v : m_graph) {
        EXPECT_EQ(v.color, CDiGraph::eBlack);
        EXPECT_LT(v.discovery, v.finish);
        const CDiGraph::Node* const p = m_graph.node_ptr(v.predecessor);
        EXPECT_TRUE(!p || (m_graph.exists(p->number, v.number) && p->discovery < v.discovery && v.finish < p->finish));
        for (const CDiGraph::Edge& e : m_graph.edges(v.number)) // else the target would have been found from here
            EXPECT_FALSE(v.finish < m_graph[e.target].discovery);
    }
}

TEST_P(RandomGraphs, StrongComponentsAreMutualReachability)
{
    const Matrix reach = Reachability(m_graph, false);
    CDiGraph dag;
    const CDisjointSets components = m_graph.make_SCC_DAG(&dag);
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b)
            EXPECT_EQ(areOne(components, a, b), a == b || (reach[at(a)][at(b)] && reach[at(b)][at(a)]));
    EXPECT_TRUE(dag.is_acyclic());
    EXPECT_EQ(m_graph.count_SCCs(), static_cast<int>(components.GetNumClasses()));
    for (const CDiGraph::Node& node : dag)
        for (const int member : *node.payload.get<std::vector<int>>())
            EXPECT_EQ(components.GetClassIndex(static_cast<unsigned int>(member)), node.number);
    forEachEdge(m_graph, [&](const CDiGraph::Edge& e) {
        const int a = components.GetClassIndex(static_cast<unsigned int>(e.source));
        const int b = components.GetClassIndex(static_cast<unsigned int>(e.target));
        EXPECT_TRUE(a == b || dag.exists(a, b));
    });
}

TEST_P(RandomGraphs, TopologicalOrdersLeadForwards)
{
    TPermutation<int> position, order;
    ASSERT_TRUE(m_dag.topological_sort(position, true) && m_dag.topological_sort(order, false));
    EXPECT_EQ(order.GetInverse(), position);
    forEachEdge(m_dag, [&](const CDiGraph::Edge& e) { EXPECT_LT(position[at(e.source)], position[at(e.target)]); });

    const Matrix reach = Reachability(m_graph, false);
    bool hasCycle = false;
    for (int v = 0; v < n; ++v) hasCycle = hasCycle || reach[at(v)][at(v)];
    EXPECT_EQ(m_graph.is_acyclic(), !hasCycle);

    const TPermutation<int> cyclic = m_graph.topological_sort_cyclic(true, std::greater<>());
    ASSERT_TRUE(cyclic.Size() == n && cyclic.IsValid());
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b) {
            if (!reach[at(a)][at(b)] || a == b) continue;
            const bool isOneComponent = reach[at(b)][at(a)];
            EXPECT_EQ(cyclic[at(a)] < cyclic[at(b)], !isOneComponent || a > b) << "sorted inside a component";
        }
}

TEST_P(RandomGraphs, LayersAreLongestPaths)
{
    std::vector<int> layers(n), steps(n), below(n, 0), above(n, 0);
    for (int round = 0; round < n; ++round)
        forEachEdge(m_dag, [&](const CDiGraph::Edge& e) {
            below[at(e.source)] = std::max(below[at(e.source)], below[at(e.target)] + 1);
            above[at(e.target)] = std::max(above[at(e.target)], above[at(e.source)] + 1);
        });
    EXPECT_EQ(m_dag.longest_path_layering(layers.data()), m_dag.dag_schedule(steps.data()));
    EXPECT_TRUE(layers == below && steps == above);
    EXPECT_EQ(m_graph.dag_schedule(steps.data()) == -1, !m_graph.is_acyclic());
}

TEST_P(RandomGraphs, BridgesAndArticulationNodesSeparate)
{
    const Matrix whole = Reachability(m_graph, true);
    const auto bridges = m_graph.find_bridges(false);
    const CDiGraph undirected = m_graph.get_symmetric_graph();
    const auto symmetric = undirected.find_bridges(true);
    forEachEdge(m_graph, [&](const CDiGraph::Edge& e) {
        if (e.source == e.target) return;
        const bool isNeeded = !Reachability(m_graph, true, -1, e.source, e.target)[at(e.source)][at(e.target)];
        EXPECT_EQ(std::ranges::count(bridges, std::pair(e.source, e.target)), isNeeded ? 1 : 0);
        const std::pair<int, int> ends = std::minmax(e.source, e.target);
        EXPECT_TRUE(!isNeeded || std::ranges::count(symmetric, ends) == 1);
    });

    const auto nodes = m_graph.find_articulation_nodes();
    for (int v = 0; v < n; ++v) {
        const Matrix rest = Reachability(m_graph, true, v);
        bool separates = false;
        for (int a = 0; a < n; ++a)
            for (int b = 0; b < a; ++b)
                separates = separates || (a != v && b != v && whole[at(a)][at(b)] && !rest[at(a)][at(b)]);
        EXPECT_EQ(std::ranges::count(nodes, v), separates ? 1 : 0);
    }
    const CDisjointSets components = m_graph.find_CCs();
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < a; ++b) EXPECT_EQ(areOne(components, a, b), whole[at(a)][at(b)]);
}

TEST_P(RandomGraphs, SpanningForestIsLightest)
{
    const CDiGraph& graph = m_graph;
    const CDiGraph forest = m_graph.MST([&](int a, int b) { return double{CostOf(graph.edge(a, b))}; });
    EXPECT_EQ(forest.edges(), n - m_graph.count_CCs());
    forEachEdge(m_graph, [&](const CDiGraph::Edge& e) { // no edge is lighter than one on its way through the forest
        if (e.source == e.target) return;
        forEachEdge(forest, [&](const CDiGraph::Edge& f) {
            const Matrix rest = Reachability(forest, true, -1, f.source, f.target);
            EXPECT_TRUE(rest[at(e.source)][at(e.target)] || CostOf(e) >= CostOf(graph.edge(f.source, f.target)));
        });
    });
}

TEST_P(RandomGraphs, ColoursDifferAcrossEdges)
{
    std::vector<int> colors(n);
    const int count = m_graph.node_coloring(colors.data());
    const CDisjointSets classes = m_graph.node_coloring();
    EXPECT_EQ(static_cast<int>(classes.GetNumClasses()), count);
    forEachEdge(m_graph, [&](const CDiGraph::Edge& e) {
        if (e.source == e.target) return;
        EXPECT_NE(colors[at(e.source)], colors[at(e.target)]);
        EXPECT_FALSE(areOne(classes, e.source, e.target));
    });
    std::vector<long> around;
    for (int v = 0; v < n; ++v)
        around.push_back(std::ranges::count_if(m_graph, [&](const auto& w) { return m_graph.adj(v, w.number); }));
    EXPECT_LE(count, std::ranges::max(around) + 1);
}

TEST_P(RandomGraphs, CuthillMcKeeKeepsNeighboursWithinTwoLevels)
{
    int width = 0;
    const TPermutation<int> position = m_graph.bandwidth_reduction(true, false, &width);
    ASSERT_TRUE(position.Size() == n && position.IsValid());
    forEachEdge(m_graph, [&](const CDiGraph::Edge& e) {
        EXPECT_LT(std::abs(position[at(e.source)] - position[at(e.target)]), 2 * width);
    });
    for (const int blocks : {1, 2, 4, n, 2 * n}) {
        const CDisjointSets parts = m_graph.block_partition(blocks);
        EXPECT_EQ(parts.GetNumClasses(), static_cast<unsigned int>(std::min(blocks, n)));
        EXPECT_LE(parts.GetClassSize(parts.GetLargestClassRep()), static_cast<unsigned int>((n + blocks - 1) / blocks));
    }
}

TEST(CDiGraph, DijkstraKeepsTheEarlierOfEqualPathsAndIsNotTrapped)
{
    CDiGraph graph(4);
    for (const auto& [a, b] : {std::pair(0, 2), {0, 1}, {2, 3}, {1, 3}, {3, 1}, {3, 2}}) graph.edge(a, b);
    EXPECT_EQ(graph.dijkstra_SSSP(0, -1, unit).path(3), (std::vector<int>{0, 2, 3}));
    EXPECT_TRUE(graph.dijkstra_SSSP(4, 0, unit).distances.empty());
    // Negative costs are outside the contract, but must not trap the walk back.
    const auto knot = graph.dijkstra_SSSP(0, -1, [](const CDiGraph::Edge&) { return -1.0F; });
    for (int v = 0; v < 5; ++v) EXPECT_LE(knot.path(v).size(), 5U);
}

TEST(CDiGraph, LongPathsDoNotExhaustTheStack)
{
    constexpr int length = 300000;
    CDiGraph path(length);
    for (int i = 0; i + 1 < length; ++i) path.edge(i, i + 1);
    path.DFS();
    EXPECT_EQ(path[0].finish, 2 * length - 1);
    EXPECT_EQ(path.count_SCCs(), length);
    EXPECT_EQ(path.find_bridges(false).size(), path.find_articulation_nodes().size() + 1);
}

} // namespace
} // namespace Zorvan
