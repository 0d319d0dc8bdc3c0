// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan {

/// A caller's index with its squared distance to the query.
struct IndexAndDist
{
    std::uint32_t index;
    float distSq;
};

/// What `FindNearest` is asked and what it answers.
struct NearestQuery
{
    kdtree::Vector<3> point;
    int index = -1;      ///< in: -1; out: the caller's index of the nearest point, or -1
    float distSq = 0.0F; ///< in: squared search radius; out: squared distance of the nearest point
};

/// A bucketed k-d tree over its own, reordered copy of the points; results are indices into the caller's array. Built
/// once, then read-only: any number of threads may query it.
///
///     const TKdTree<3, 48> tree(points.data(), points.size());
///     NearestQuery query{p, -1, radius * radius};
///     tree.FindNearest(query);
///     if (query.index >= 0) use(points[query.index]);
///
/// Points that are not finite are left out silently; compare `Size()` with what you gave. Nodes split in the middle of
/// their widest dimension. No query allocates but for its result.
template <unsigned Dim, unsigned LeafSize>
class ZORVAN_API TKdTree
{
public:
    using Point = kdtree::Vector<Dim>;
    /// What follows with `requires(Dim == 3)` exists for points in space only.
    static constexpr bool isSpatial = Dim == 3;

    /// One record for both kinds of node. Children and ranges are positions in the tree's own arrays, so that a copy of
    /// the tree is a copy of its arrays.
    struct alignas(64) Node
    {
        Point low; ///< bounding box of the node's points
        Point high;
        std::uint32_t first = 0; ///< the node's range in tree order
        std::uint32_t count = 0;
        std::uint32_t right = 0; ///< the right child; the left one follows its parent. 0 marks a leaf
        std::uint32_t splitDim = 0;
        float pivot = 0.0F; ///< left: coordinates below; right: the others

        [[nodiscard]] bool IsLeaf() const { return right == 0; }
    };

    /// The tree's arrays, as the query code reads them.
    struct View
    {
        const Node* nodes;   ///< parent before children, the root first
        const float* coords; ///< leaf by leaf; inside a leaf all values of one dimension after the other
        const std::uint32_t* permutation;
    };

    TKdTree() = default;
    /// Copies n points and builds; null or n = 0 gives an empty tree. At most 2^31 - 1 points.
    /// @throws std::length_error for more
    TKdTree(const Point* points, std::size_t n);

    /// Points held: what was given, less those that are not finite.
    [[nodiscard]] std::uint32_t Size() const { return static_cast<std::uint32_t>(m_permutation.size()); }
    [[nodiscard]] bool Empty() const { return m_permutation.empty(); }
    /// Bytes: 20 a point, 80 a node, 32 for the tree.
    [[nodiscard]] std::size_t GetMemUsage() const { return Size() * std::size_t{20} + 32 + m_nodes.size() * 80; }
    /// Caller's indices in tree order.
    [[nodiscard]] const std::vector<std::uint32_t>& GetPermutation() const { return m_permutation; }

    /// Box of the points held; low +Inf and high -Inf for an empty tree.
    [[nodiscard]] kdtree::Range<3> GetAABB() const requires(Dim == 3);

    /// The nearest point strictly nearer than the radius in the query; a radius of 0 finds nothing.
    void FindNearest(NearestQuery& query) const requires(Dim == 3);

    /// As FindNearest, and returns the squared distance of the next point: no other than the nearest one lies below it.
    /// It is looked for up to `slack` farther than the nearest point, or than the radius where no point is in reach;
    /// then that is what is returned. Until the query has moved by half of the gap between both distances, the nearest
    /// point stays what it is. An empty tree returns +Infinity.
    /// @param slack  >= 0, also +Infinity
    float FindNearestAndNext(NearestQuery& query, float slack) const requires(Dim == 3);

    /// Brings near the processor what searches around these points will read, many at a time so that their waits
    /// overlap. Changes no result; does nothing below 1,000,000 points, where it would cost more than it saves
    /// (4,000,000 points, random order: 1.3 times as fast).
    void Prefetch(const Point* queries, std::size_t n) const requires(Dim == 3);

    /// Appends all points with squared distance <= the squared radius, in tree order; `out` is not cleared.
    void FindInBall(std::vector<unsigned>& out, const kdtree::Ball<3>& ball) const requires(Dim == 3);

    /// The caller's index of that point in the ball which is nearest to the line through its centre along `direction`
    /// (of any length but zero); the first one in tree order among equals, -1 for an empty ball. What going through
    /// `FindInBall` would give, at a cost that does not grow with the points in the ball.
    [[nodiscard]] int FindNearestToLine(const kdtree::Ball<3>& ball, const kdtree::Vector<3>& direction) const
        requires(Dim == 3);

    /// Replaces `out` by at most k points within the radius, nearest first.
    ///
    /// The search is approximate: it leaves out a far branch once the worst of the hits so far is nearer than the
    /// branch, even when there are fewer than k hits yet. So it can return fewer than k although more lie within the
    /// radius, and callers check the count. Its speed comes from this.
    void FindKNearest(const Point& q, std::vector<IndexAndDist>& out, int k, float radiusSq) const;

private:
    [[nodiscard]] View view() const { return {m_nodes.data(), m_coords.data(), m_permutation.data()}; }
    void buildNode(std::vector<Point>& points, std::uint32_t first, std::uint32_t count, unsigned depth);
    void storeLeaf(const std::vector<Point>& points, std::uint32_t first, std::uint32_t count);

    std::vector<Node> m_nodes;
    std::vector<float> m_coords; ///< padded at the end, so that wide loads stay inside
    std::vector<std::uint32_t> m_permutation;
};

extern template class TKdTree<3, 48>;
extern template class TKdTree<33, 4096>;

} // namespace Zorvan
