#include "zorvan/graphs/cdigraph.h"

#include <charconv>
#include <istream>
#include <optional>
#include <ostream>

namespace Zorvan {

namespace {

constexpr std::size_t uiMaxUnprovenNodes = 1000000; // about 100 MB of nodes that a few bytes may ask for

/// Reads one number at a time, whatever locale and base the stream has been given.
class CNumberReader
{
public:
    explicit CNumberReader(std::istream& in) : m_in(in) {}

    /// Nothing at the end, and for what is no int: the stream has failed then.
    std::optional<int> Next()
    {
        std::string word;
        m_in.width(0);
        if (!(m_in >> word)) return std::nullopt;
        int value = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (error == std::errc() && end == word.data() + word.size()) {
            ++m_count;
            return value;
        }
        m_in.setstate(std::ios::failbit);
        return std::nullopt;
    }

    [[nodiscard]] std::size_t GetCount() const { return m_count; }

private:
    std::istream& m_in;
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

CDiGraph CDiGraph::deserialize(std::istream& in)
{
    CNumberReader numbers(in);
    const int count = numbers.Next().value_or(0);
    if (count <= 0) return {};

    // Read before a node is made: the text has to bear out a large count.
    const auto edges = readEdges(numbers, count);
    const auto wanted = static_cast<std::size_t>(count);
    if (wanted > uiMaxUnprovenNodes && wanted / 8 > numbers.GetCount()) return {};

    CDiGraph graph(count);
    for (const auto& [a, b] : edges) graph.edge(a, b);
    return graph;
}

} // namespace Zorvan
