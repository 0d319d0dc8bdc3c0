// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/numerics/tpermutation.h"
#include "zorvan/platform/export.h"
#include "zorvan/util/any.h"

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Zorvan {

/// A directed graph with a payload on every node and edge, and the classical algorithms over it.
///
///     CDiGraph graph(3);
///     graph.edge(0, 1).payload = 2.5F;                  // made by the asking: only exists() and adj() merely look
///     graph.edge(1, 2).payload = 1.0F;
///     const auto cost = [](const CDiGraph::Edge& e) { return *e.payload.get<float>(); };
///     graph.dijkstra_SSSP(0, 2, cost).path(2);          // {0, 1, 2}
///
/// Nodes are numbered from 0; between two nodes there is at most one edge each way, and a node may have an edge to
/// itself. The edges of a node are walked in the order in which they were made. A reference to an edge holds until this
/// edge is erased or the graph is resized, assigned or moved; source and target of an edge inside a graph are not to be
/// written. "Undirected view" below means that an edge leads both ways.
///
/// A node number outside the graph throws std::out_of_range "invalid node index" unless documented otherwise. Nothing
/// recurses, so the length of a path is no limit. Const operations may run concurrently.
class ZORVAN_API CDiGraph
{
public:
    static constexpr int NULL_NODE = std::numeric_limits<int>::min();
    static constexpr int NULL_PRED = std::numeric_limits<int>::min();

    enum ENodeColor : int
    {
        eWhite = 0, ///< not seen yet
        eGray = 1,  ///< seen, not finished
        eBlack = 2  ///< finished
    };

    struct Node
    {
        int number = NULL_NODE;
        int color = eWhite;
        int discovery = -1; ///< first mark of a traversal
        int finish = -1;    ///< second mark of a traversal
        int predecessor = NULL_PRED;
        Any payload;
    };

    struct Edge
    {
        int source = NULL_NODE;
        int target = NULL_NODE;
        Any payload;
    };

    /// Distances from one node. Empty vectors and `NULL_NODE` when there was nothing to search.
    struct SSSP_data
    {
        int source = NULL_NODE;
        std::vector<float> distances;  ///< +infinity when not reached
        std::vector<int> predecessors; ///< `NULL_PRED` when not reached, and at the source unless a cycle was asked for
        std::vector<bool> visited;     ///< nodes whose distance is final

        /// The nodes from the source to `target`, both included; with `target` the source, around the shortest cycle.
        /// Empty when there is no such path.
        [[nodiscard]] ZORVAN_API std::vector<int> path(int target) const;
    };

    /// Distances between all pairs, row by row.
    struct APSP_data
    {
        int nodes = 0;
        std::vector<float> distances;  ///< entry source * nodes + target; +infinity when not reached
        std::vector<int> predecessors; ///< of the target on the way from the source, else `NULL_PRED`

        [[nodiscard]] ZORVAN_API float distance(int source, int target) const;
        [[nodiscard]] ZORVAN_API int predecessor(int source, int target) const;
    };

    template <typename E>
    class TEdgeIterator;
    template <typename E>
    class TEdges;
    using edge_iterator = TEdgeIterator<Edge>;
    using const_edge_iterator = TEdgeIterator<const Edge>;
    using edges_proxy = TEdges<Edge>;
    using const_edges_proxy = TEdges<const Edge>;
    using node_iterator = std::vector<Node>::iterator;
    using const_node_iterator = std::vector<Node>::const_iterator;
    class bfs_iterator;
    class dfs_iterator;

    using EdgeCost = std::function<float(const Edge&)>;

    // --- Building ---

    CDiGraph() = default;
    /// n nodes, no edges. @throws std::invalid_argument "invalid node count" for a negative number
    explicit CDiGraph(int n);

    /// Keeps what it can: edges from and to nodes that go, go too. @throws as the constructor
    void resize(int n);
    void clear() { resize(0); }
    [[nodiscard]] bool empty() const { return m_nodes.empty(); }
    /// How many nodes, and how many edges.
    [[nodiscard]] int nodes() const { return static_cast<int>(m_nodes.size()); }
    [[nodiscard]] int edges() const;
    /// The edges that leave a node, as a range.
    [[nodiscard]] edges_proxy edges(int v);
    [[nodiscard]] const_edges_proxy edges(int v) const;

    [[nodiscard]] Node& node(int v);
    [[nodiscard]] const Node& node(int v) const;
    [[nodiscard]] Node& operator[](int v) { return node(v); }
    [[nodiscard]] const Node& operator[](int v) const { return node(v); }
    /// Null for a number outside the graph.
    [[nodiscard]] Node* node_ptr(int v);
    [[nodiscard]] const Node* node_ptr(int v) const;
    [[nodiscard]] node_iterator begin() { return m_nodes.begin(); }
    [[nodiscard]] node_iterator end() { return m_nodes.end(); }
    [[nodiscard]] const_node_iterator begin() const { return m_nodes.begin(); }
    [[nodiscard]] const_node_iterator end() const { return m_nodes.end(); }

    /// The edge a -> b, made when it is absent.
    Edge& edge(int a, int b);
    Edge& operator()(int a, int b) { return edge(a, b); }
    /// The same; null when a or b is outside the graph.
    Edge* edge_ptr(int a, int b);
    /// The edge between the nodes of `other`, made when it is absent, with a copy of its payload.
    Edge& edge(const Edge& other);
    /// The edge a -> b of a graph that stays as it is. @throws std::out_of_range "edge does not exist"
    [[nodiscard]] const Edge& edge(int a, int b) const;
    [[nodiscard]] const Edge& operator()(int a, int b) const { return edge(a, b); }
    /// The same; null when there is none.
    [[nodiscard]] const Edge* edge_ptr(int a, int b) const;

    [[nodiscard]] bool exists(int v) const { return v >= 0 && v < nodes(); }
    [[nodiscard]] bool exists(int a, int b) const { return edge_ptr(a, b) != nullptr; }
    /// Whether an edge joins the two, either way.
    [[nodiscard]] bool adj(int a, int b) const { return exists(a, b) || exists(b, a); }
    /// @return false when there was no edge a -> b
    bool erase(int a, int b);

    // --- Degrees and marks ---

    /// Edges at a node, in and out together: an edge to itself counts twice. `degree` and `degree_in` look at all
    /// nodes.
    [[nodiscard]] int degree(int v) const { return degree_in(v) + degree_out(v); }
    [[nodiscard]] int degree_in(int v) const;
    [[nodiscard]] int degree_out(int v) const;
    [[nodiscard]] std::vector<int> node_degrees() const;
    /// Gives all nodes one colour.
    void colorize(ENodeColor color);
    /// Colour 0, both marks -1, predecessor `NULL_PRED`, everywhere.
    void reset_marks();
    /// Whether no node has an edge to itself.
    [[nodiscard]] bool is_loop_free() const;

    // --- Derived graphs ---

    /// The same nodes and edges without payloads and marks.
    [[nodiscard]] CDiGraph clone_topology() const;
    /// Every edge turned round; payloads stay.
    [[nodiscard]] CDiGraph get_transposed() const;
    void transpose() { *this = get_transposed(); }
    /// With a turned copy of every edge that has no counterpart yet.
    [[nodiscard]] CDiGraph get_symmetric_graph() const;
    /// The listed nodes, in this order, and the edges among them; a node that is listed again is left out.
    /// @param newNumbers  receives for each node of this graph its number in the result, or `NULL_NODE`
    [[nodiscard]] CDiGraph make_sub_graph(const std::vector<int>& nodes, TPermutation<int>& newNumbers) const;
    /// Renumbers: node i becomes node permutation[i].
    /// @throws std::invalid_argument "invalid permutation" when it is none of this many nodes
    void permute(const TPermutation<int>& permutation);
    /// The strongly connected components, numbered as the classes of the result.
    /// @param dag  receives, unless null, a node for each component with its members (std::vector<int>, ascending) as
    ///             payload, and the edges between components
    /// Source: Tarjan, SIAM J. Comput. 1 (1972).
    CDisjointSets make_SCC_DAG(CDiGraph* dag) const;
    /// A spanning forest of the undirected view with the smallest sum of weights, of the edges as they are directed
    /// here, with all payloads. Of edges of one weight the first stays; NaN counts as infinite. Source: Kruskal 1956.
    [[nodiscard]] CDiGraph MST(const std::function<double(int, int)>& weight) const;

    // --- Traversal ---

    /// Depth-first search from every node that is still white after a reset of the marks. Leaves colour, discovery and
    /// finish time (from 0, counted together) and predecessor in the nodes. (Cormen et al., section 22.3.)
    /// @param discovered, finished  called with the node number at these moments; may be empty
    void DFS(const std::function<void(int)>& discovered = {}, const std::function<void(int)>& finished = {});
    /// The same from one node only.
    void DFS(int source, const std::function<void(int)>& discovered = {},
             const std::function<void(int)>& finished = {});

    // --- Order and layers ---

    /// Orders the nodes so that all edges lead forwards; of the nodes that may come next, the lowest number does.
    /// @param order   receives the order, or the size 0 when there is a cycle
    /// @param byNode  true: the entry of a node is its position; false: the entry at a position is the node
    /// @return        false when there is a cycle
    bool topological_sort(TPermutation<int>& order, bool byNode) const;
    /// An order also of a graph with cycles: all edges between strongly connected components lead forwards, and the
    /// nodes of a component stand together, sorted by `less`, by number without one.
    /// @param less  a strict weak order
    [[nodiscard]] TPermutation<int> topological_sort_cyclic(bool byNode,
                                                            const std::function<bool(int, int)>& less = {}) const;
    [[nodiscard]] bool is_acyclic() const;
    /// Layers by the longest path to a node without successors, which has layer 0: edges lead to lower layers.
    /// @param layers  receives the layer of each node
    /// @return        how many layers, or -1 when there is a cycle; `layers` is not written then
    int longest_path_layering(int* layers) const;
    /// Steps of a schedule of unit tasks as early as the edges permit: 0 without predecessors, else one after the last.
    /// @return  how many steps, or -1 as above
    int dag_schedule(int* steps) const;

    // --- Paths ---

    /// Shortest paths from `source` at costs that are not negative, up to the moment when `target` is reached; a
    /// `target` outside the graph stands for all nodes. With the source as target too, its distance is in the end that
    /// of the shortest cycle through other nodes, +infinity when there is none, and its predecessor the last node of
    /// this cycle. Of paths of one cost the one found first stays. An invalid source gives an empty record. Source:
    /// Dijkstra 1959.
    [[nodiscard]] SSSP_data dijkstra_SSSP(int source, int target, const EdgeCost& cost) const;
    /// Shortest paths between all pairs; negative costs are fine, negative cycles are not. Time n^3. Source: Floyd
    /// 1962.
    /// @param cycles  true: the diagonal holds the shortest cycle through each node; false: it is 0
    [[nodiscard]] APSP_data APSP(bool cycles, const EdgeCost& cost) const;
    /// The node that takes most edges to reach from v, the lowest of several; v itself when no edge leaves it.
    [[nodiscard]] int farthest_node(int v) const;
    /// Goes on to the farthest node as long as the way from there grows: an end of a long shortest path.
    [[nodiscard]] int search_farthest_node(int v) const;

    // --- Components and structure ---

    /// Connected components of the undirected view.
    [[nodiscard]] CDisjointSets find_CCs() const;
    [[nodiscard]] int count_CCs() const { return static_cast<int>(find_CCs().GetNumClasses()); }
    [[nodiscard]] int count_SCCs() const;
    /// Edges of the undirected view without which a component falls apart, by source and target, ascending.
    /// @param isSymmetric  true: two opposite edges are one undirected edge, and given once, from the lower number;
    ///                     false: they are two, of which neither is a bridge
    /// Source, here and below: Hopcroft and Tarjan, Comm. ACM 16 (1973).
    [[nodiscard]] std::vector<std::pair<int, int>> find_bridges(bool isSymmetric) const;
    /// Nodes of the undirected view without which a component falls apart, ascending.
    [[nodiscard]] std::vector<int> find_articulation_nodes() const;
    /// Cuts the Cuthill-McKee order into at most `blocks` stretches of equal length, give or take one node, so that
    /// most edges stay inside a block or lead to the next. @throws std::invalid_argument "invalid block count" below 1
    [[nodiscard]] CDisjointSets block_partition(int blocks) const;
    /// Colours the undirected view so that no edge joins nodes of one colour, greedily by descending degree: at most
    /// one colour more than the highest degree. Edges of a node to itself do not count. Source: Welsh and Powell 1967.
    [[nodiscard]] CDisjointSets node_coloring() const;
    /// @param colors  receives the colour of each node, from 0
    /// @return        how many colours
    int node_coloring(int* colors) const;

    // --- Ordering ---

    /// Renumbers along the levels of the undirected view, so that edges join near numbers (Cuthill and McKee 1969). A
    /// graph without edges gives the identity.
    /// @param byNode   as for `topological_sort`
    /// @param reverse  turns the array round in the end, whatever it holds
    /// @param width    receives, unless null, the size of the largest level: with it the order joins numbers less than
    ///                 2 * width apart
    [[nodiscard]] TPermutation<int> bandwidth_reduction(bool byNode, bool reverse, int* width = nullptr) const;

    // --- Text ---

    /// Writes the node count, then each node with edges, how many, and their targets; no payloads.
    void serialize(std::ostream& out) const;
    /// Reads what `serialize` writes, up to where the stream fails; a stream that has failed gives an empty graph.
    /// Numbers are read as `in >> number` does, in base 10 and the classic locale. Edges to nodes outside the graph are
    /// left out.
    /// @param maxUnproven  a short text can claim any number of nodes, of about 100 bytes each. Beyond this number the
    ///                     text has to hold one number for every eight nodes; if it does not, the graph is empty and
    ///                     the stream bad().
    [[nodiscard]] static CDiGraph deserialize(std::istream& in, int maxUnproven = 10000000);
    /// Writes the graph in the language of Graphviz, each strongly connected component in a dashed box. The file is
    /// written through its name: a link is followed, and an existing file keeps its owner and mode.
    /// @param edgeLabel, nodeLabel  asked for edges and nodes with a payload; may be empty. Labels go out as they are.
    /// @return false when the file cannot be written
    bool dump_GraphViz(const std::string& file, const std::string& name,
                       const std::function<std::string(const Edge&)>& edgeLabel = {},
                       const std::function<std::string(const Node&)>& nodeLabel = {},
                       const std::string& nodeAttributes = "shape = ellipse") const;

private:
    /// The edges of one node: in the order of their making, found by target in constant time.
    class CEdgeTable
    {
    public:
        CEdgeTable() = default;
        CEdgeTable(const CEdgeTable& other);
        CEdgeTable(CEdgeTable&&) noexcept = default;
        CEdgeTable& operator=(const CEdgeTable& other);
        CEdgeTable& operator=(CEdgeTable&&) noexcept = default;
        ~CEdgeTable() = default;

        [[nodiscard]] std::size_t Size() const { return m_edges.size() - m_gaps; }
        template <typename E>
        [[nodiscard]] TEdges<E> All() const
        {
            return TEdges<E>(m_edges.data() + m_first, m_edges.data() + m_edges.size(), Size());
        }
        /// The edge at this place or after it; null behind the last. Moves the place on behind it.
        [[nodiscard]] const Edge* Next(std::size_t& place) const;
        [[nodiscard]] Edge* Find(int target) const;
        /// For a target that is not there yet.
        Edge& Add(int source, int target);
        bool Erase(int target);
        /// Removes edges to `n` and beyond.
        void EraseFrom(int n);

    private:
        [[nodiscard]] std::ptrdiff_t findPlace(int target) const;
        [[nodiscard]] std::size_t findSlot(int target) const;
        void closeGaps();
        void rebuildSlots();

        /// Behind pointers, so that references outlive growth. An erased edge leaves a null: closing the gap at once
        /// would make erasing all edges take time n^2.
        std::vector<std::unique_ptr<Edge>> m_edges;
        std::size_t m_gaps = 0;   ///< at most half of the places
        std::size_t m_first = 0;  ///< before it are gaps only
        std::vector<int> m_slots; ///< position in m_edges or -1, hashed by target; empty while a search is as fast
    };

    struct CMK_Node
    {
        int number;
        int degree;
        int level;
    };
    class CCuthillMcKee;

    void checkNode(int v) const;
    [[nodiscard]] const CEdgeTable& table(int v) const { return m_edges[static_cast<std::size_t>(v)]; }
    [[nodiscard]] std::vector<std::vector<int>> neighbours() const;
    [[nodiscard]] std::vector<int> hopsFrom(int v) const;
    void visit(int source, int& time, const std::function<void(int)>& discovered,
               const std::function<void(int)>& finished);
    [[nodiscard]] int find_peripheral_node(const CDiGraph& transposed, const std::vector<int>& degrees,
                                           int start) const;

    std::vector<Node> m_nodes;
    std::vector<CEdgeTable> m_edges;
};

/// Walks the edges of one node in the order of their making.
template <typename E>
class CDiGraph::TEdgeIterator
{
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Edge;
    using difference_type = std::ptrdiff_t;
    using pointer = E*;
    using reference = E&;

    TEdgeIterator() = default;
    TEdgeIterator(const std::unique_ptr<Edge>* place, const std::unique_ptr<Edge>* end) : m_place(place), m_end(end) {}

    [[nodiscard]] E& operator*() const { return **m_place; }
    [[nodiscard]] E* operator->() const { return m_place->get(); }
    TEdgeIterator& operator++()
    {
        do ++m_place;
        while (m_place != m_end && !*m_place); // over the gaps of erased edges
        return *this;
    }
    TEdgeIterator operator++(int)
    {
        const TEdgeIterator before = *this;
        ++*this;
        return before;
    }
    [[nodiscard]] bool operator==(const TEdgeIterator&) const = default;

private:
    const std::unique_ptr<Edge>* m_place = nullptr;
    const std::unique_ptr<Edge>* m_end = nullptr;
};

/// The edges that leave one node, as a range; valid until an edge of this node is made or erased.
template <typename E>
class CDiGraph::TEdges
{
public:
    TEdges(const std::unique_ptr<Edge>* begin, const std::unique_ptr<Edge>* end, std::size_t size)
        : m_begin(begin), m_end(end), m_size(size)
    {
    }

    [[nodiscard]] TEdgeIterator<E> begin() const { return {m_begin, m_end}; }
    [[nodiscard]] TEdgeIterator<E> end() const { return {m_end, m_end}; }
    [[nodiscard]] std::size_t size() const { return m_size; }
    [[nodiscard]] bool empty() const { return m_size == 0; }

private:
    const std::unique_ptr<Edge>* m_begin;
    const std::unique_ptr<Edge>* m_end;
    std::size_t m_size;
};

/// Walks the nodes that can be reached from one, nearest first; `*it` is the node. A default-built one is the end:
///
///     for (CDiGraph::bfs_iterator it(graph, 0), end; it != end; ++it) use(it->number, it.depth());
class ZORVAN_API CDiGraph::bfs_iterator
{
public:
    bfs_iterator() = default;
    bfs_iterator(const CDiGraph& graph, int source);

    [[nodiscard]] const Node& operator*() const { return m_graph->node(m_queue[m_head].first); }
    [[nodiscard]] const Node* operator->() const { return &**this; }
    bfs_iterator& operator++();
    /// Edges on the way from the source.
    [[nodiscard]] int depth() const { return m_queue[m_head].second; }
    [[nodiscard]] bool operator==(const bfs_iterator& other) const;

private:
    const CDiGraph* m_graph = nullptr;
    std::vector<std::pair<int, int>> m_queue; ///< node and depth; what stands before the head is done
    std::size_t m_head = 0;
    std::vector<bool> m_isSeen;
};

/// The same, depth first: a node stands before those that are found through it, in the order of its edges.
class ZORVAN_API CDiGraph::dfs_iterator
{
public:
    dfs_iterator() = default;
    dfs_iterator(const CDiGraph& graph, int source);

    [[nodiscard]] const Node& operator*() const { return m_graph->node(m_path.back().first); }
    [[nodiscard]] const Node* operator->() const { return &**this; }
    dfs_iterator& operator++();
    /// Edges of the tree on the way from the source.
    [[nodiscard]] int depth() const { return static_cast<int>(m_path.size()) - 1; }
    [[nodiscard]] bool operator==(const dfs_iterator& other) const;

private:
    const CDiGraph* m_graph = nullptr;
    std::vector<std::pair<int, std::size_t>> m_path; ///< the nodes from the source on, each with its next edge
    std::vector<bool> m_isSeen;
};

} // namespace Zorvan
