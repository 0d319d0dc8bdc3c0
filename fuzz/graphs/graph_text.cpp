// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/graphs/cdigraph.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

using Zorvan::CDiGraph;

constexpr int iMaxUnproven = 1000;

std::string textOf(const CDiGraph& graph)
{
    std::ostringstream out;
    graph.serialize(out);
    return out.str();
}

} // namespace

/// A graph has no more nodes than its text bears out, and its text gives the same graph.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::istringstream in(std::string(data, data + size));
    const CDiGraph graph = CDiGraph::deserialize(in, iMaxUnproven);
    Law(static_cast<std::size_t>(graph.nodes()) <= std::max<std::size_t>(iMaxUnproven, 8 * size),
        "nodes are borne out");
    for (int node = 0; node < graph.nodes(); ++node)
        for (const auto& edge : graph.edges(node)) Law(graph.exists(edge.target), "edges lead to nodes of the graph");

    const std::string text = textOf(graph);
    std::istringstream again(text);
    Law(textOf(CDiGraph::deserialize(again, graph.nodes())) == text, "what is written reads the same again");
    return 0;
}
