// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdigraph.h"

#include <istream>
#include <iterator>
#include <limits>
#include <locale>
#include <optional>
#include <ostream>

namespace Zorvan {

namespace {

/// Reads one number at a time as `in >> number` does, whatever locale and base the stream has been given.
class CNumberReader
{
public:
    explicit CNumberReader(std::istream& in) : m_in(in) { m_format.imbue(std::locale::classic()); }

    /// Nothing at the end, and for what is no int: the stream has failed then.
    std::optional<int> Next()
    {
        long value = 0;
        std::ios::iostate state = std::ios::goodbit;
        if (const std::istream::sentry ready(m_in >> std::ws, true); ready) {
            const std::istreambuf_iterator<char> begin(m_in);
            std::use_facet<std::num_get<char>>(m_format.getloc()).get(begin, {}, m_format, state, value);
        }
        if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
            state |= std::ios::failbit;
        m_in.setstate(state);
        if (!m_in) return std::nullopt;
        ++m_count;
        return static_cast<int>(value);
    }

    [[nodiscard]] std::size_t GetCount() const { return m_count; }

private:
    std::istream& m_in;
    std::ios m_format{nullptr};
    std::size_t m_count = 0;
};

/// The edges of the text between nodes that exist.
std::vector<std::pair<int, int>> readEdges(CNumberReader& numbers, int nodes)
{
    std::vector<std::pair<int, int>> edges;
    while (const auto source = numbers.Next()) {
        const auto count = numbers.Next();
        for (int i = 0; count && i < *count; ++i) {
            const auto target = numbers.Next();
            if (!target) break;
            if (*source >= 0 && *source < nodes && *target >= 0 && *target < nodes)
                edges.emplace_back(*source, *target);
        }
    }
    return edges;
}

} // namespace

void CDiGraph::serialize(std::ostream& out) const
{
    std::string text = std::to_string(nodes());
    for (const Node& node : m_nodes) {
        const auto targets = edges(node.number);
        if (targets.empty()) continue;
        text += ' ' + std::to_string(node.number) + ' ' + std::to_string(targets.size());
        for (const Edge& e : targets) text += ' ' + std::to_string(e.target);
    }
    out.write(text.data(), std::ssize(text));
}

CDiGraph CDiGraph::deserialize(std::istream& in, int maxUnproven)
{
    CNumberReader numbers(in);
    const int count = numbers.Next().value_or(0);
    if (count <= 0) return {};

    // Read before a node is made: the text has to bear out a large count.
    const auto edges = readEdges(numbers, count);
    if (count > maxUnproven && static_cast<std::size_t>(count) / 8 > numbers.GetCount()) {
        in.setstate(std::ios::badbit);
        return {};
    }

    CDiGraph graph(count);
    for (const auto& [a, b] : edges) graph.edge(a, b);
    return graph;
}

} // namespace Zorvan
