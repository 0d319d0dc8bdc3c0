// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include "randomgraph.h"
#include "tests/support/temporaryfolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

namespace Zorvan {
namespace {

using Testing::CostOf;
using Testing::RandomGraph;
using Pairs = std::set<std::pair<int, int>>;

Pairs edgesOf(const CDiGraph& graph)
{
    Pairs result;
    for (const CDiGraph::Node& node : graph)
        for (const CDiGraph::Edge& e : graph.edges(node.number)) {
            EXPECT_EQ(e.source, node.number);
            EXPECT_TRUE(result.emplace(e.source, e.target).second) << "twice";
        }
    EXPECT_EQ(static_cast<int>(result.size()), graph.edges());
    return result;
}

TEST(CDiGraph, AgreesWithAMapWhileEdgesComeAndGo)
{
    constexpr int n = 60; // far more edges a node than are searched without hashing
    std::mt19937 engine(47110815);
    CDiGraph graph(n);
    std::map<std::pair<int, int>, int> twin;
    std::vector<int> order; // of the edges of node 0
    for (int i = 0; i < 20000; ++i) {
        const int a = static_cast<int>(engine() % 3) * static_cast<int>(engine() % n) / 2;
        const int b = static_cast<int>(engine() % n);
        if (engine() % 3 == 0) {
            EXPECT_EQ(graph.erase(a, b), twin.erase({a, b}) == 1);
            if (a == 0) std::erase(order, b);
        } else {
            if (a == 0 && !graph.exists(a, b)) order.push_back(b);
            graph(a, b).payload = i;
            twin[{a, b}] = i;
        }
    }
    ASSERT_GT(order.size(), 20U);
    for (const auto& [ends, value] : twin)
        EXPECT_EQ(*std::as_const(graph).edge(ends.first, ends.second).payload.get<int>(), value);
    EXPECT_EQ(edgesOf(graph).size(), twin.size());
    std::size_t next = 0;
    for (const CDiGraph::Edge& e : graph.edges(0)) EXPECT_EQ(e.target, order[next++]) << "in the order of their making";
    graph.resize(n / 2);
    std::erase_if(twin, [](const auto& e) { return e.first.first >= n / 2 || e.first.second >= n / 2; });
    EXPECT_EQ(edgesOf(graph).size(), twin.size());
    for (const auto& [ends, value] : twin) EXPECT_TRUE(graph.exists(ends.first, ends.second));
}

// Minutes when each erased edge takes the time of all others.
TEST(CDiGraph, EmptiesALargeHubInAnyOrder)
{
    constexpr int n = 400000;
    for (const int step : {1, n - 1, 7919}) { // from the front, from the back, all over
        CDiGraph graph(n);
        for (int b = 0; b < n; ++b) graph.edge(0, b);
        for (int i = 0, b = 0; i < n; ++i, b = (b + step) % n) ASSERT_TRUE(graph.erase(0, b) && !graph.exists(0, b));
        EXPECT_TRUE(graph.edges(0).empty() && graph.edges() == 0);
    }
    CDiGraph graph(n);
    for (int b = n; b-- > 0;) graph.edge(0, b);
    for (int b = n; b-- > 0;) {
        ASSERT_EQ(graph.edges(0).begin()->target, b);
        graph.erase(0, b);
    }
}

TEST(CDiGraph, OnlyAConstGraphLooksWithoutMakingAndCopiesShareNothing)
{
    CDiGraph graph(3);
    const CDiGraph& same = graph;
    EXPECT_THROW(static_cast<void>(same(0, 1)), std::out_of_range);
    CDiGraph::Edge* const made = graph.edge_ptr(0, 1);
    for (int b = 0; b < 3; ++b) graph.edge(0, b);
    EXPECT_EQ(made, same.edge_ptr(0, 1)) << "references outlive new edges";
    EXPECT_TRUE(graph.edges() == 3 && graph.adj(1, 0) && !graph.is_loop_free());
    EXPECT_EQ(graph.edge_ptr(0, 3), nullptr);
    EXPECT_THROW(graph.edge(-1, 0), std::out_of_range);
    EXPECT_THROW(graph.resize(-1), std::invalid_argument);

    made->payload = 1;
    CDiGraph copy = graph;
    *copy.edge(0, 1).payload.get<int>() = 2;
    copy.edge(1, 0);
    EXPECT_EQ(*made->payload.get<int>(), 1);
    EXPECT_EQ(graph.edges(), 3);
}

TEST(CDiGraph, DerivedGraphsHoldTheRightEdges)
{
    std::mt19937 engine(47110815);
    for (int round = 0; round < 20; ++round) {
        const CDiGraph graph = RandomGraph(engine, 11, 0.25);
        const Pairs edges = edgesOf(graph);
        Pairs turned, both = edges, moved, inner;
        const TPermutation<int> shift{3, 4, 5, 6, 7, 8, 9, 10, 0, 1, 2};
        for (const auto& [a, b] : edges) {
            turned.emplace(b, a);
            both.emplace(b, a);
            moved.emplace((a + 3) % 11, (b + 3) % 11);
            if (a % 2 == 0 && b % 2 == 0) inner.emplace((10 - a) / 2, (10 - b) / 2);
        }
        EXPECT_EQ(edgesOf(graph.get_transposed()), turned);
        EXPECT_EQ(edgesOf(graph.get_symmetric_graph()), both);
        CDiGraph permuted = graph;
        permuted.permute(shift);
        EXPECT_EQ(edgesOf(permuted), moved);
        TPermutation<int> numbers;
        EXPECT_EQ(edgesOf(graph.make_sub_graph({10, 8, 6, 10, 4, 2, 0}, numbers)), inner);
        EXPECT_TRUE(numbers[2] == 4 && numbers[3] == CDiGraph::NULL_NODE);
        for (const auto& [a, b] : edges) {
            EXPECT_EQ(CostOf(permuted.edge((a + 3) % 11, (b + 3) % 11)), CostOf(graph.edge(a, b)));
            EXPECT_EQ(CostOf(graph.get_transposed().edge(b, a)), CostOf(graph.edge(a, b)));
        }
        EXPECT_THROW(permuted.permute(TPermutation<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 9}), std::invalid_argument);
    }
}

TEST(CDiGraph, TextComesBack)
{
    CDiGraph small(4);
    small.edge(2, 0);
    small.edge(2, 3);
    small.edge(0, 0);
    std::stringstream text;
    text.setf(std::ios::hex, std::ios::basefield);
    small.serialize(text);
    EXPECT_EQ(text.str(), "4 0 1 0 2 2 0 3");
    EXPECT_EQ(edgesOf(CDiGraph::deserialize(text)), edgesOf(small));

    CDiGraph sparse(1000001);
    sparse.edge(1000000, 3);
    std::stringstream line;
    sparse.serialize(line);
    const CDiGraph back = CDiGraph::deserialize(line);
    EXPECT_EQ(back.nodes(), sparse.nodes());
    EXPECT_TRUE(back.edges() == 1 && back.exists(1000000, 3));
}

TEST(CDiGraph, WritesItselfForGraphviz)
{
    CDiGraph graph(5);
    for (const auto& [a, b] : {std::pair(1, 2), {0, 1}, {1, 0}, {2, 2}, {2, 4}}) graph.edge(a, b);
    graph.edge(0, 1).payload = 7;
    graph.edge(2, 4).payload = 8;
    graph[3].payload = 9;
    const TemporaryFolder folder;
    const std::string file = folder / "graph.dot";
    const auto label = [](const auto& labelled) { return std::to_string(*labelled.payload.template get<int>()); };
    EXPECT_TRUE(graph.dump_GraphViz(file, "g", label, label, "shape = box"));
    std::stringstream text;
    text << std::ifstream(file).rdbuf();
    EXPECT_EQ(text.str(), "digraph \"g\" {\n\tnode [shape = box];\n\tratio = compress;\n\tsplines = true;\n"
                          "\tconcentrate = true;\n\tv3 [label=\"9\"];\n"
                          "\tsubgraph cluster_1 {\n\t\tlabel=\"SCC #1\";\n\t\tcolor = purple;\n\t\tstyle = dashed;\n"
                          "\t\tv0 -> v1 [label=\"7\"];\n\t\tv1 -> v0;\n\t}\n"
                          "\tv1 -> v2;\n\tv2 -> v4 [label=\"8\"];\n\tv2 -> v2;\n\tv3;\n}\n");
    for (const char* bad : {"", "/nowhere/g.dot", "/dev/full"}) EXPECT_FALSE(graph.dump_GraphViz(bad, "g")) << bad;
}

TEST(CDiGraph, WritesGraphvizThroughTheNameThatItIsGiven)
{
    namespace fs = std::filesystem;
    const TemporaryFolder folder;
    std::ofstream(folder / "target.dot") << std::string(1000, 'x');
    fs::permissions(folder / "target.dot", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("target.dot", folder / "link.dot");
    std::ofstream(folder / "link.dot.tmp") << "somebody else's";
    EXPECT_TRUE(CDiGraph(1).dump_GraphViz(folder / "link.dot", "g"));
    EXPECT_TRUE(fs::is_symlink(folder / "link.dot"));
    EXPECT_EQ(fs::status(folder / "target.dot").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    std::stringstream text;
    text << std::ifstream(folder / "target.dot").rdbuf();
    EXPECT_TRUE(text.str().starts_with("digraph") && text.str().ends_with("}\n"));
    EXPECT_EQ(fs::file_size(folder / "link.dot.tmp"), 15U);
}

TEST(CDiGraph, ReadsHostileTextWithoutHarm)
{
    const std::tuple<const char*, int, int> cases[] = {
        {"x", 0, 0},
        {"-3 0 1 0", 0, 0},
        {"2147483647", 0, 0},
        {"1000000", 1000000, 0},
        {"3 0 2000000000 1 2", 3, 2},
        {"3 0 2 1", 3, 1},
        {"3 0 3 1 7 -1 1 1 2", 3, 2},
        {"3 9 2 0 1 2 1 0", 3, 1},
        {"3 0 1 1 junk 2 1 0", 3, 1},
        {"3 0 2 1 2x 2 1 0", 3, 2},
        {"3.7 0 1 1", 3, 0},
        {"+3\n+0 1 +2 1 1 0x1", 3, 2},
        {"3 0 1 99999999999999999999", 3, 0},
        {"99999999999", 0, 0},
    };
    for (const auto& [text, nodes, edges] : cases) {
        std::istringstream in(text);
        const CDiGraph graph = CDiGraph::deserialize(in);
        EXPECT_EQ(std::pair(graph.nodes(), graph.edges()), std::pair(nodes, edges)) << text;
        EXPECT_EQ(in.bad(), std::string(text) == "2147483647") << "refused, and not just empty";
    }
    std::istringstream thin("100"), thick("16 0 1 1");
    EXPECT_EQ(CDiGraph::deserialize(thin, 99).nodes(), 0);
    EXPECT_EQ(CDiGraph::deserialize(thick, 15).nodes(), 16) << "the text bears it out";
}

} // namespace
} // namespace Zorvan
