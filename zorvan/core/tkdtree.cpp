// SPDX-License-Identifier: MIT
#include "zorvan/core/tkdtree.h"

#include "zorvan/core/tkdtree_kernels.h"
#include "zorvan/platform/simd.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <type_traits>

namespace Zorvan {

namespace detail {

namespace {

using Lanes = simd::Float4;
#define WIDE

#include "zorvan/core/tkdtree_queries.inl"

#undef WIDE

} // namespace

const KdTreeKernels baselineKernels = {"sse4",
                                       &findNearest,
                                       &findNearestAndNext,
                                       &findInBall,
                                       &findNearestToLine,
                                       &findKNearest<3, 48>,
                                       &findKNearest<33, 4096>};

const KdTreeKernels& ActiveKernels() { return simd::IsWide() ? avxKernels : baselineKernels; }

} // namespace detail

namespace {

// Half an extent of at most 2^-22 counts as none: the points are one point.
constexpr float coincident = 2.3841858e-7F;
// Queries that walk down side by side: more than the loads a core keeps open.
constexpr std::size_t walkers = 16;

template <unsigned Dim>
bool isFinite(const kdtree::Vector<Dim>& p)
{
    for (unsigned d = 0; d < Dim; ++d) {
        if (!kdtree::IsFinite(p[d])) return false;
    }
    return true;
}

template <unsigned Dim>
kdtree::Range<Dim> boxOf(const kdtree::Vector<Dim>* points, std::uint32_t count)
{
    kdtree::Range<Dim> box{points[0], points[0]};
    for (std::uint32_t i = 1; i < count; ++i) {
        for (unsigned d = 0; d < Dim; ++d) {
            box.low[d] = std::min(box.low[d], points[i][d]);
            box.high[d] = std::max(box.high[d], points[i][d]);
        }
    }
    return box;
}

template <>
kdtree::Range<3> boxOf<3>(const kdtree::Vector<3>* points, std::uint32_t count)
{
    simd::Float4 low = simd::Float4::Load(&points[0].x);
    simd::Float4 high = low;
    for (std::uint32_t i = 1; i < count; ++i) {
        const simd::Float4 p = simd::Float4::Load(&points[i].x);
        low = simd::Min(low, p);
        high = simd::Max(high, p);
    }
    kdtree::Range<3> box;
    low.Store(&box.low.x);
    high.Store(&box.high.x);
    return box;
}

struct Split
{
    unsigned dim = 0;
    float pivot = 0.0F;
    float halfExtent = 0.0F;
};

// The middle of the widest dimension, the lowest one among equals.
template <unsigned Dim>
Split widestSplit(const kdtree::Range<Dim>& box)
{
    Split split{0, 0.0F, -1.0F};
    for (unsigned d = 0; d < Dim; ++d) {
        const float half = (box.high[d] - box.low[d]) / 2;
        if (half > split.halfExtent) split = {d, (box.high[d] + box.low[d]) / 2, half};
    }
    return split;
}

void prefetchBytes(const void* first, std::size_t bytes)
{
    constexpr std::size_t cacheLine = 64;
    const char* p = static_cast<const char*>(first);
    for (std::size_t offset = 0; offset < bytes; offset += cacheLine) __builtin_prefetch(p + offset);
}

// Walks some queries down side by side: while one waits for its next node, the others go on.
template <typename Node>
std::array<const Node*, walkers> leavesOf(const Node* nodes, const kdtree::Vector<3>* queries, std::size_t n)
{
    std::array<const Node*, walkers> current{};
    std::fill_n(current.begin(), n, nodes);
    for (bool anyMoved = true; anyMoved;) {
        anyMoved = false;
        for (std::size_t k = 0; k < n; ++k) {
            const Node& node = *current[k];
            if (node.IsLeaf()) continue;
            current[k] = queries[k][node.splitDim] <= node.pivot ? &node + 1 : nodes + node.right;
            __builtin_prefetch(current[k]);
            anyMoved = true;
        }
    }
    return current;
}

// Moves all items that pass to the front, with their permutation; returns how many.
template <unsigned Dim, typename Pass>
std::uint32_t partition(kdtree::Vector<Dim>* points, std::uint32_t* permutation, std::uint32_t count, Pass pass)
{
    std::uint32_t left = 0;
    std::uint32_t right = count;
    while (true) {
        while (left < right && pass(points[left])) ++left;
        while (left < right && !pass(points[right - 1])) --right;
        if (left == right) return left;
        --right;
        std::swap(points[left], points[right]);
        std::swap(permutation[left], permutation[right]);
        ++left;
    }
}

} // namespace

template <unsigned Dim, unsigned LeafSize>
TKdTree<Dim, LeafSize>::TKdTree(const Point* points, std::size_t n)
{
    if (points == nullptr || n == 0) return;
    if (n > std::numeric_limits<std::int32_t>::max()) throw std::length_error("too many points for a k-d tree");

    std::vector<Point> copy(points, points + n);
    m_permutation.resize(n);
    std::iota(m_permutation.begin(), m_permutation.end(), 0U);
    if (!std::all_of(copy.begin(), copy.end(), isFinite<Dim>)) {
        const std::uint32_t kept =
            partition<Dim>(copy.data(), m_permutation.data(), static_cast<std::uint32_t>(n), isFinite<Dim>);
        copy.resize(kept);
        m_permutation.resize(kept);
        m_permutation.shrink_to_fit();
    }
    if (copy.empty()) return;

    m_coords.resize(copy.size() * Dim + detail::loadPadding);
    m_nodes.reserve(copy.size() / (LeafSize / 4) + 1);
    buildNode(copy, 0, Size(), 0);
    m_nodes.shrink_to_fit();
}

template <unsigned Dim, unsigned LeafSize>
void TKdTree<Dim, LeafSize>::buildNode(std::vector<Point>& points, std::uint32_t first, std::uint32_t count,
                                       unsigned depth)
{
    const std::size_t self = m_nodes.size();
    Node& node = m_nodes.emplace_back();
    const auto box = boxOf<Dim>(points.data() + first, count);
    node.low = box.low;
    node.high = box.high;
    node.first = first;
    node.count = count;
    if constexpr (Dim == 3) node.low.w = node.high.w = 0.0F;
    if (count <= LeafSize || depth + 1 >= detail::maxDepth) return storeLeaf(points, first, count);

    const Split split = widestSplit(box);
    if (split.halfExtent <= coincident) return storeLeaf(points, first, count);
    const std::uint32_t left = partition<Dim>(points.data() + first, m_permutation.data() + first, count,
                                              [&split](const Point& p) { return p[split.dim] < split.pivot; });
    if (left == 0 || left == count) return storeLeaf(points, first, count);

    node.splitDim = split.dim;
    node.pivot = split.pivot;
    buildNode(points, first, left, depth + 1);
    m_nodes[self].right = static_cast<std::uint32_t>(m_nodes.size());
    buildNode(points, first + left, count - left, depth + 1);
}

template <unsigned Dim, unsigned LeafSize>
void TKdTree<Dim, LeafSize>::storeLeaf(const std::vector<Point>& points, std::uint32_t first, std::uint32_t count)
{
    float* coords = m_coords.data() + std::size_t{first} * Dim;
    for (unsigned d = 0; d < Dim; ++d) {
        for (std::uint32_t i = 0; i < count; ++i) *coords++ = points[first + i][d];
    }
}

template <unsigned Dim, unsigned LeafSize>
kdtree::Range<3> TKdTree<Dim, LeafSize>::GetAABB() const requires(Dim == 3)
{
    if constexpr (isSpatial) {
        if (Empty()) return kdtree::EmptyRange();
        const Node& root = m_nodes.front();
        if (root.IsLeaf()) return {root.low, root.high};
        // By centre and half extent, as the box of a large set has always been given.
        const auto center = (root.high + root.low) * 0.5F;
        const auto half = (root.high - root.low) * 0.5F;
        return {center - half, center + half};
    }
    return kdtree::EmptyRange();
}

template <unsigned Dim, unsigned LeafSize>
void TKdTree<Dim, LeafSize>::FindNearest(NearestQuery& query) const requires(Dim == 3)
{
    if constexpr (isSpatial) {
        if (!Empty()) detail::ActiveKernels().findNearest(view(), query);
    }
}

template <unsigned Dim, unsigned LeafSize>
float TKdTree<Dim, LeafSize>::FindNearestAndNext(NearestQuery& query, float slack) const requires(Dim == 3)
{
    float nextSq = std::numeric_limits<float>::infinity();
    if constexpr (isSpatial) {
        if (!Empty()) detail::ActiveKernels().findNearestAndNext(view(), query, slack, nextSq);
    }
    return nextSq;
}

template <unsigned Dim, unsigned LeafSize>
void TKdTree<Dim, LeafSize>::Prefetch(const Point* queries, std::size_t n) const requires(Dim == 3)
{
    if constexpr (isSpatial) {
        // Below this the way down costs more than the waits it saves (random queries: 1.5 times the time at 200,000
        // points, even at 1,000,000).
        constexpr std::uint32_t fitsTheCache = 1'000'000;
        if (Size() <= fitsTheCache) return;
        for (std::size_t done = 0; done < n; done += walkers) {
            const std::size_t count = std::min(walkers, n - done);
            const auto leaves = leavesOf(m_nodes.data(), queries + done, count);
            for (std::size_t k = 0; k < count; ++k) {
                const std::size_t points = std::min(leaves[k]->count, LeafSize);
                prefetchBytes(m_coords.data() + std::size_t{leaves[k]->first} * Dim, points * Dim * sizeof(float));
                prefetchBytes(m_permutation.data() + leaves[k]->first, points * sizeof(std::uint32_t));
            }
        }
    }
}

template <unsigned Dim, unsigned LeafSize>
void TKdTree<Dim, LeafSize>::FindInBall(std::vector<unsigned>& out, const kdtree::Ball<3>& ball) const
    requires(Dim == 3)
{
    if constexpr (isSpatial) {
        if (!Empty()) detail::ActiveKernels().findInBall(view(), ball, out);
    }
}

template <unsigned Dim, unsigned LeafSize>
int TKdTree<Dim, LeafSize>::FindNearestToLine(const kdtree::Ball<3>& ball, const kdtree::Vector<3>& direction) const
    requires(Dim == 3)
{
    if constexpr (isSpatial) {
        return Empty() ? -1 : detail::ActiveKernels().findNearestToLine(view(), ball, direction);
    }
    return -1;
}

template <unsigned Dim, unsigned LeafSize>
void TKdTree<Dim, LeafSize>::FindKNearest(const Point& q, std::vector<IndexAndDist>& out, int k, float radiusSq) const
{
    out.clear();
    if (Empty() || k <= 0) return;
    const auto limit = static_cast<std::size_t>(k);
    if constexpr (Dim == 3)
        detail::ActiveKernels().findKNearest3(view(), q, out, limit, radiusSq);
    else
        detail::ActiveKernels().findKNearest33(view(), q, out, limit, radiusSq);
    std::sort_heap(out.begin(), out.end(), detail::nearerFirst);
}

template class TKdTree<3, 48>;
template class TKdTree<33, 4096>;

} // namespace Zorvan
