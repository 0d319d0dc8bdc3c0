// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <algorithm>

namespace Zorvan {

namespace {

/// Tarjan's search for strongly connected components, with a path of its own instead of recursion.
class CComponentSearch
{
public:
    explicit CComponentSearch(const CDiGraph& graph)
        : m_graph(graph),
          m_sets(static_cast<unsigned int>(graph.nodes())),
          m_index(static_cast<std::size_t>(graph.nodes()), -1),
          m_low(m_index),
          m_isOpen(m_index.size(), false)
    {
    }

    CDisjointSets Run()
    {
        for (int v = 0; v < m_graph.nodes(); ++v)
            if (at(m_index, v) < 0) search(v);
        return std::move(m_sets);
    }

private:
    static int& at(std::vector<int>& values, int v) { return values[static_cast<std::size_t>(v)]; }

    void enter(int v)
    {
        at(m_index, v) = at(m_low, v) = m_count++;
        m_isOpen[static_cast<std::size_t>(v)] = true;
        m_open.push_back(v);
        m_path.emplace_back(v, m_graph.edges(v).begin());
    }

    void search(int root)
    {
        enter(root);
        while (!m_path.empty()) {
            auto& [v, next] = m_path.back();
            if (next == m_graph.edges(v).end()) {
                leave(v);
                continue;
            }
            const int target = (next++)->target;
            if (at(m_index, target) < 0)
                enter(target);
            else if (m_isOpen[static_cast<std::size_t>(target)])
                at(m_low, v) = std::min(at(m_low, v), at(m_index, target));
        }
    }

    void leave(int v)
    {
        m_path.pop_back();
        if (!m_path.empty()) {
            int& low = at(m_low, m_path.back().first);
            low = std::min(low, at(m_low, v));
        }
        if (at(m_low, v) == at(m_index, v)) closeComponent(v);
    }

    void closeComponent(int v)
    {
        int member = v;
        do {
            member = m_open.back();
            m_open.pop_back();
            m_isOpen[static_cast<std::size_t>(member)] = false;
            m_sets.Unify(static_cast<unsigned int>(v), static_cast<unsigned int>(member));
        } while (member != v);
    }

    const CDiGraph& m_graph;
    CDisjointSets m_sets;
    std::vector<int> m_index; ///< order of discovery, -1 before it
    std::vector<int> m_low;   ///< the earliest open node that is known to be reached
    std::vector<bool> m_isOpen;
    std::vector<int> m_open; ///< discovered, but not in a closed component
    std::vector<std::pair<int, CDiGraph::const_edge_iterator>> m_path;
    int m_count = 0;
};

/// For each element the number of its class.
std::vector<int> classNumbers(const CDisjointSets& sets)
{
    std::vector<int> numbers(sets.Size());
    int count = 0;
    for (unsigned int i = 0; i < sets.Size(); ++i)
        if (sets.GetClassRep(i) == i) numbers[i] = count++;
    for (unsigned int i = 0; i < sets.Size(); ++i) numbers[i] = numbers[sets.GetClassRep(i)];
    return numbers;
}

} // namespace

CDisjointSets CDiGraph::make_SCC_DAG(CDiGraph* dag) const
{
    CDisjointSets components = CComponentSearch(*this).Run();
    if (!dag) return components;

    const std::vector<int> numbers = classNumbers(components);
    std::vector<std::vector<int>> members(components.GetNumClasses());
    for (int v = 0; v < nodes(); ++v)
        members[static_cast<std::size_t>(numbers[static_cast<std::size_t>(v)])].push_back(v);

    CDiGraph result(static_cast<int>(components.GetNumClasses()));
    for (Node& node : result) node.payload = std::move(members[static_cast<std::size_t>(node.number)]);
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v)) {
            const int a = numbers[static_cast<std::size_t>(v)];
            const int b = numbers[static_cast<std::size_t>(e.target)];
            if (a != b) result.edge(a, b);
        }
    *dag = std::move(result);
    return components;
}

int CDiGraph::count_SCCs() const
{
    CDiGraph dag;
    make_SCC_DAG(&dag);
    return dag.nodes();
}

CDisjointSets CDiGraph::find_CCs() const
{
    CDisjointSets components(static_cast<unsigned int>(nodes()));
    for (int v = 0; v < nodes(); ++v)
        for (const Edge& e : edges(v))
            components.Unify(static_cast<unsigned int>(v), static_cast<unsigned int>(e.target));
    return components;
}

} // namespace Zorvan
