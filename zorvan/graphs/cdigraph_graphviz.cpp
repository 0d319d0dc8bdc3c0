// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <fstream>
#include <locale>
#include <sstream>

namespace Zorvan {

namespace {

/// Collects the text of one graph.
class CGraphVizWriter
{
public:
    CGraphVizWriter(const CDiGraph& graph, const std::function<std::string(const CDiGraph::Edge&)>& edgeLabel)
        : m_graph(graph), m_edgeLabel(edgeLabel), m_components(graph.make_SCC_DAG(&m_dag))
    {
    }

    void WriteHeader(const std::string& name, const std::string& nodeAttributes)
    {
        m_text.imbue(std::locale::classic()); // no separators in large numbers
        m_text << "digraph \"" << name << "\" {\n\tnode [" << nodeAttributes
               << "];\n\tratio = compress;\n\tsplines = true;\n\tconcentrate = true;\n";
    }

    void WriteNodeLabels(const std::function<std::string(const CDiGraph::Node&)>& nodeLabel)
    {
        for (const CDiGraph::Node& node : m_graph)
            if (nodeLabel && node.payload)
                m_text << "\tv" << node.number << " [label=\"" << nodeLabel(node) << "\"];\n";
    }

    void WriteComponents()
    {
        int number = 0;
        for (const CDiGraph::Node& component : m_dag) {
            const auto& members = *component.payload.get<std::vector<int>>();
            if (members.size() < 2) continue;
            ++number;
            m_text << "\tsubgraph cluster_" << number << " {\n\t\tlabel=\"SCC #" << number
                   << "\";\n\t\tcolor = purple;\n\t\tstyle = dashed;\n";
            for (const int v : members) writeEdges(v, "\t\t", [this](const CDiGraph::Edge& e) { return isInner(e); });
            m_text << "\t}\n";
        }
    }

    /// Edges between components, edges of nodes to themselves, and nodes without edges.
    void WriteRest()
    {
        for (const CDiGraph::Node& node : m_graph)
            writeEdges(node.number, "\t",
                       [this](const CDiGraph::Edge& e) { return !isInner(e) && e.source != e.target; });
        for (const CDiGraph::Node& node : m_graph)
            writeEdges(node.number, "\t", [](const CDiGraph::Edge& e) { return e.source == e.target; });
        const std::vector<int> degrees = m_graph.node_degrees();
        for (const CDiGraph::Node& node : m_graph)
            if (degrees[static_cast<std::size_t>(node.number)] == 0) m_text << "\tv" << node.number << ";\n";
        m_text << "}\n";
    }

    [[nodiscard]] std::string GetText() const { return m_text.str(); }

private:
    [[nodiscard]] bool isInner(const CDiGraph::Edge& e) const
    {
        return e.source != e.target &&
               m_components.SameClass(static_cast<unsigned int>(e.source), static_cast<unsigned int>(e.target));
    }

    template <typename Predicate>
    void writeEdges(int v, const char* indent, Predicate isWanted)
    {
        for (const CDiGraph::Edge& e : m_graph.edges(v)) {
            if (!isWanted(e)) continue;
            m_text << indent << 'v' << e.source << " -> v" << e.target;
            if (m_edgeLabel && e.payload) m_text << " [label=\"" << m_edgeLabel(e) << "\"]";
            m_text << ";\n";
        }
    }

    const CDiGraph& m_graph;
    const std::function<std::string(const CDiGraph::Edge&)>& m_edgeLabel;
    CDiGraph m_dag;
    CDisjointSets m_components;
    std::ostringstream m_text;
};

} // namespace

bool CDiGraph::dump_GraphViz(const std::string& file, const std::string& name,
                             const std::function<std::string(const Edge&)>& edgeLabel,
                             const std::function<std::string(const Node&)>& nodeLabel,
                             const std::string& nodeAttributes) const
{
    CGraphVizWriter writer(*this, edgeLabel);
    writer.WriteHeader(name, nodeAttributes);
    writer.WriteNodeLabels(nodeLabel);
    writer.WriteComponents();
    writer.WriteRest();
    std::ofstream out(file);
    out << writer.GetText();
    out.close();
    return out.good();
}

} // namespace Zorvan
