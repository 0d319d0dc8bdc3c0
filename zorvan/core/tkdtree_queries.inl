// SPDX-License-Identifier: MIT
// The searches of TKdTree, written once over the lanes of simd.h and simd_avx.h. Included by one source file per width,
// inside an unnamed namespace, so that no search of one width can be taken for that of another. There `Lanes` is the
// width and WIDE the attribute that compiles one function for it. All widths add in the same order, so they find the
// same points and the same squared distances.

template <unsigned Dim>
struct Leaf
{
    const float* coords; // all values of dimension 0, then of dimension 1, ...
    std::uint32_t count;
};

template <unsigned LeafSize, unsigned Dim>
WIDE Leaf<Dim> leafOf(const typename TKdTree<Dim, LeafSize>::View& tree,
                      const typename TKdTree<Dim, LeafSize>::Node& node)
{
    return {tree.coords + std::size_t{node.first} * Dim, node.count};
}

// Squared distances of the points i .. i + width - 1, in groups of three dimensions.
template <unsigned Dim>
WIDE inline Lanes squaredDistances(const Leaf<Dim>& leaf, const Lanes* q, std::uint32_t i)
{
    const float* p = leaf.coords + i;
    Lanes sum = Lanes::Set1(0.0F);
    for (unsigned d = 0; d < Dim; d += 3, p += std::size_t{3} * leaf.count) {
        const Lanes a = Lanes::Load(p) - q[d];
        const Lanes b = Lanes::Load(p + leaf.count) - q[d + 1];
        const Lanes c = Lanes::Load(p + std::size_t{2} * leaf.count) - q[d + 2];
        const Lanes group = (a * a + b * b) + c * c;
        sum = d == 0 ? group : sum + group;
    }
    return sum;
}

template <unsigned Dim>
struct Splat
{
    Lanes lanes[Dim];

    WIDE explicit Splat(const kdtree::Vector<Dim>& q)
    {
        for (unsigned d = 0; d < Dim; ++d) lanes[d] = Lanes::Set1(q[d]);
    }
};

// Calls visit(i, distances, mask) for each block of points; the mask leaves out lanes behind the last point.
template <unsigned Dim, typename Visit>
WIDE inline void forEachBlock(const Leaf<Dim>& leaf, const Splat<Dim>& q, Visit visit)
{
    const std::uint32_t whole = leaf.count - leaf.count % Lanes::width;
    for (std::uint32_t i = 0; i < whole; i += Lanes::width) {
        visit(i, squaredDistances(leaf, q.lanes, i), Lanes::First(Lanes::width));
    }
    if (whole < leaf.count) visit(whole, squaredDistances(leaf, q.lanes, whole), Lanes::First(leaf.count - whole));
}

// Of these lanes, the position that comes first in the leaf. Each lane holds the first position of its block.
WIDE inline std::uint32_t firstPosition(Lanes block, unsigned lanes)
{
    float blocks[Lanes::width];
    block.Store(blocks);
    std::uint32_t position = noPosition;
    for (; lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<unsigned>(std::countr_zero(lanes));
        position = std::min(position, std::bit_cast<std::uint32_t>(blocks[lane]) + lane);
    }
    return position;
}

// The smallest value met, and where. Each lane keeps its own; the first point wins among equals, as if they had been
// looked at one by one.
struct LanesMinimum
{
    Lanes best;
    Lanes block = Lanes::SetBits(0);
    Lanes touched = Lanes::SetBits(0);

    WIDE explicit LanesMinimum(float below) : best(Lanes::Set1(below)) {}

    WIDE void Offer(std::uint32_t i, Lanes value, Lanes mask)
    {
        const Lanes smaller = (value < best) & mask;
        best = Select(best, value, smaller);
        block = Select(block, Lanes::SetBits(i), smaller);
        touched = Select(touched, smaller, smaller);
    }

    // Position of the minimum in the leaf, its value to `value`; noPosition when nothing was below the start value.
    [[nodiscard]] WIDE std::uint32_t Reduce(float& value) const
    {
        const unsigned lanes = touched.Bits();
        if (lanes == 0) return noPosition;
        value = best.Smallest();
        return firstPosition(block, (best == Lanes::Set1(value)).Bits() & lanes);
    }
};

// Position of the leaf's point that is nearer than distSq, if any, and its distance.
WIDE inline std::uint32_t nearestInLeaf(const Leaf<3>& leaf, const Splat<3>& q, float& distSq)
{
    LanesMinimum minimum(distSq);
    forEachBlock<3>(leaf, q, [&](std::uint32_t i, Lanes dist, Lanes mask) WIDE { minimum.Offer(i, dist, mask); });
    return minimum.Reduce(distSq);
}

WIDE inline float boxDistanceSq(const TKdTree<3, 48>::Node& node, simd::Float4 q)
{
    using namespace simd;
    const Float4 outside = Max(Max(Float4::Load(&node.low.x) - q, q - Float4::Load(&node.high.x)), Float4::Set1(0.0F));
    return Sum3(outside * outside);
}

WIDE inline float farthestCornerSq(const TKdTree<3, 48>::Node& node, simd::Float4 q)
{
    using namespace simd;
    const Float4 a = Float4::Load(&node.low.x) - q;
    const Float4 b = Float4::Load(&node.high.x) - q;
    return Sum3(Max(a * a, b * b));
}

// Visits leaves that may hold a point within the reach, the near ones first; a visit may make the reach smaller. Far
// children wait on a stack of our own; a child is dropped when by then the reach has become too small for it.
template <typename VisitLeaf>
WIDE inline void walkNearFirst(const TKdTree<3, 48>::View& tree, const kdtree::Vector<3>& point, const float& reachSq,
                               VisitLeaf visitLeaf)
{
    struct Waiting
    {
        std::uint32_t node;
        float distSq;
    };
    Waiting waiting[maxDepth];
    unsigned numWaiting = 0;

    const simd::Float4 q = simd::Float4::Load(&point.x);
    std::uint32_t current = 0;
    while (true) {
        const auto& node = tree.nodes[current];
        if (!(boxDistanceSq(node, q) < reachSq)) {
            // Nothing in reach. Also asked of leaves: over a dense cloud, seen from afar, most are dropped by it.
        } else if (node.IsLeaf()) {
            visitLeaf(node);
        } else {
            const float d = node.pivot - point[node.splitDim];
            const bool leftFirst = d >= 0;
            waiting[numWaiting++] = {leftFirst ? node.right : current + 1, d * d};
            current = leftFirst ? current + 1 : node.right;
            continue;
        }
        do {
            if (numWaiting == 0) return;
        } while (!(reachSq > waiting[--numWaiting].distSq));
        current = waiting[numWaiting].node;
    }
}

WIDE inline void answer(const TKdTree<3, 48>::View& tree, std::uint32_t found, float distSq, NearestQuery& query)
{
    query.distSq = distSq;
    if (found != noPosition) query.index = static_cast<int>(tree.permutation[found]);
}

WIDE void findNearest(const TKdTree<3, 48>::View& tree, NearestQuery& query)
{
    const Splat<3> splat(query.point);
    float distSq = query.distSq;
    std::uint32_t found = noPosition;
    walkNearFirst(tree, query.point, distSq, [&](const TKdTree<3, 48>::Node& node) WIDE {
        const std::uint32_t position = nearestInLeaf(leafOf<48, 3>(tree, node), splat, distSq);
        if (position != noPosition) found = node.first + position;
    });
    answer(tree, found, distSq, query);
}

// The two smallest values of a leaf, and where the smaller one is; the first point wins among equals.
struct LanesTwoSmallest
{
    Lanes best;
    Lanes second;
    Lanes block;

    WIDE LanesTwoSmallest()
        : best(Lanes::Set1(std::numeric_limits<float>::infinity())), second(best), block(Lanes::SetBits(0))
    {
    }

    WIDE void Offer(std::uint32_t i, Lanes value, Lanes mask)
    {
        const Lanes offered = Select(Lanes::Set1(std::numeric_limits<float>::infinity()), value, mask);
        const Lanes smaller = offered < best;
        second = Min(second, Max(best, offered));
        best = Min(best, offered);
        block = Select(block, Lanes::SetBits(i), smaller);
    }

    // Of the leaf; the smaller value to `value`, the other to `next`.
    WIDE std::uint32_t Reduce(float& value, float& next) const
    {
        value = best.Smallest();
        const Lanes isSmallest = best == Lanes::Set1(value);
        const Lanes others = Select(best, Lanes::Set1(std::numeric_limits<float>::infinity()), isSmallest);
        const unsigned lanes = isSmallest.Bits();
        const bool isAlone = (lanes & (lanes - 1)) == 0;
        next = isAlone ? Min(second, others).Smallest() : value;
        return firstPosition(block, lanes);
    }
};

// As findNearest, but keeps looking for the next point, up to `slack` farther than the nearest one.
WIDE void findNearestAndNext(const TKdTree<3, 48>::View& tree, NearestQuery& query, float slack, float& nextSq)
{
    const Splat<3> splat(query.point);
    const auto farther = [slack](float distSq) {
        const float dist = std::sqrt(distSq) + slack;
        return dist * dist;
    };
    float distSq = query.distSq;
    nextSq = farther(distSq);
    std::uint32_t found = noPosition;
    walkNearFirst(tree, query.point, nextSq, [&](const TKdTree<3, 48>::Node& node) WIDE {
        LanesTwoSmallest smallest;
        forEachBlock<3>(leafOf<48, 3>(tree, node), splat,
                        [&](std::uint32_t i, Lanes dist, Lanes mask) WIDE { smallest.Offer(i, dist, mask); });
        float nearest = 0.0F;
        float next = 0.0F;
        const std::uint32_t position = smallest.Reduce(nearest, next);
        if (!(nearest < distSq)) {
            nextSq = std::min(nextSq, nearest);
            return;
        }
        if (found != noPosition) next = std::min(next, distSq);
        found = node.first + position;
        distSq = nearest;
        nextSq = std::min({nextSq, next, farther(distSq)});
    });
    answer(tree, found, distSq, query);
}

WIDE void ballInLeaf(const TKdTree<3, 48>::View& tree, const TKdTree<3, 48>::Node& node, const Splat<3>& q,
                     Lanes radiusSq, std::vector<unsigned>& out)
{
    const std::uint32_t* permutation = tree.permutation + node.first;
    forEachBlock<3>(leafOf<48, 3>(tree, node), q, [&](std::uint32_t i, Lanes dist, Lanes mask) WIDE {
        for (unsigned inside = ((dist <= radiusSq) & mask).Bits(); inside != 0; inside &= inside - 1) {
            out.push_back(permutation[i + static_cast<unsigned>(std::countr_zero(inside))]);
        }
    });
}

WIDE void findInBall(const TKdTree<3, 48>::View& tree, const kdtree::Ball<3>& ball, std::vector<unsigned>& out)
{
    std::uint32_t waiting[maxDepth];
    unsigned numWaiting = 0;
    const simd::Float4 q = simd::Float4::Load(&ball.center.x);
    const Splat<3> splat(ball.center);
    const Lanes radiusSq = Lanes::Set1(ball.radiusSq);
    std::uint32_t current = 0;
    while (true) {
        const auto& node = tree.nodes[current];
        if (boxDistanceSq(node, q) > ball.radiusSq) {
            // Nothing in reach.
        } else if (farthestCornerSq(node, q) <= ball.radiusSq) {
            const std::uint32_t* first = tree.permutation + node.first;
            out.insert(out.end(), first, first + node.count);
        } else if (node.IsLeaf()) {
            ballInLeaf(tree, node, splat, radiusSq, out);
        } else {
            waiting[numWaiting++] = node.right;
            ++current;
            continue;
        }
        if (numWaiting == 0) return;
        current = waiting[--numWaiting];
    }
}

// Squared distances to a line through the query, times the squared length of its direction: |(p - q) x direction|^2.
WIDE inline Lanes lineDistances(const Leaf<3>& leaf, const Splat<3>& q, const Splat<3>& direction, std::uint32_t i)
{
    const float* p = leaf.coords + i;
    const Lanes x = Lanes::Load(p) - q.lanes[0];
    const Lanes y = Lanes::Load(p + leaf.count) - q.lanes[1];
    const Lanes z = Lanes::Load(p + std::size_t{2} * leaf.count) - q.lanes[2];
    const Lanes a = y * direction.lanes[2] - z * direction.lanes[1];
    const Lanes b = z * direction.lanes[0] - x * direction.lanes[2];
    const Lanes c = x * direction.lanes[1] - y * direction.lanes[0];
    return (a * a + b * b) + c * c;
}

// A point in the ball that is nearest to the line through its centre.
class LineSearch
{
public:
    WIDE LineSearch(const TKdTree<3, 48>::View& tree, const kdtree::Ball<3>& ball, const kdtree::Vector<3>& direction)
        : m_tree(tree),
          m_ball(ball),
          m_direction(direction),
          m_length(direction.Length()),
          m_q(simd::Float4::Load(&ball.center.x)),
          m_splat(ball.center),
          m_splatDirection(direction)
    {
    }

    WIDE std::uint32_t Run()
    {
        std::uint32_t waiting[maxDepth];
        unsigned numWaiting = 0;
        std::uint32_t current = 0;
        while (true) {
            const auto& node = m_tree.nodes[current];
            if (boxDistanceSq(node, m_q) > m_ball.radiusSq || isFartherThanFound(node)) {
                // Nothing better in here.
            } else if (node.IsLeaf()) {
                visitLeaf(node);
            } else {
                const bool leftFirst = m_ball.center[node.splitDim] <= node.pivot;
                waiting[numWaiting++] = leftFirst ? node.right : current + 1;
                current = leftFirst ? current + 1 : node.right;
                continue;
            }
            if (numWaiting == 0) return m_found;
            current = waiting[--numWaiting];
        }
    }

private:
    // By the sphere around the box; the slack covers the rounding of both sides.
    [[nodiscard]] WIDE bool isFartherThanFound(const TKdTree<3, 48>::Node& node) const
    {
        constexpr float slack = 1e-5F;
        const kdtree::Vector<3> half = (node.high - node.low) * 0.5F;
        const kdtree::Vector<3> off = node.low + half - m_ball.center;
        const float radius = half.Length();
        const float reach = (radius + slack * (radius + off.Length())) * m_length;
        const float nearest = kdtree::Cross(off, m_direction).Length() - reach;
        return nearest > 0 && nearest * nearest > m_smallest;
    }

    // Leaves come nearest first, but the first point in tree order wins among equals.
    WIDE void visitLeaf(const TKdTree<3, 48>::Node& node)
    {
        const Leaf<3> leaf = leafOf<48, 3>(m_tree, node);
        const Lanes radiusSq = Lanes::Set1(m_ball.radiusSq);
        LanesMinimum minimum(std::nextafter(m_smallest, std::numeric_limits<float>::infinity()));
        forEachBlock<3>(leaf, m_splat, [&](std::uint32_t i, Lanes dist, Lanes mask) WIDE {
            const Lanes inside = (dist <= radiusSq) & mask;
            minimum.Offer(i, lineDistances(leaf, m_splat, m_splatDirection, i), inside);
        });
        float value = 0.0F;
        const std::uint32_t position = minimum.Reduce(value);
        if (position == noPosition) return;
        if (value < m_smallest || node.first + position < m_found) m_found = node.first + position;
        m_smallest = value;
    }

    const TKdTree<3, 48>::View& m_tree;
    const kdtree::Ball<3>& m_ball;
    const kdtree::Vector<3>& m_direction;
    const float m_length;
    const simd::Float4 m_q;
    const Splat<3> m_splat;
    const Splat<3> m_splatDirection;
    float m_smallest = std::numeric_limits<float>::infinity();
    std::uint32_t m_found = noPosition;
};

WIDE int findNearestToLine(const TKdTree<3, 48>::View& tree, const kdtree::Ball<3>& ball,
                           const kdtree::Vector<3>& direction)
{
    const std::uint32_t found = LineSearch(tree, ball, direction).Run();
    return found == noPosition ? -1 : static_cast<int>(tree.permutation[found]);
}

// k nearest with incremental distances (Arya and Mount, DCC 1993): `offset` holds, dimension by dimension, how far the
// query lies from the current branch.
template <unsigned Dim, unsigned LeafSize>
class KNearestSearch
{
public:
    using Tree = TKdTree<Dim, LeafSize>;

    WIDE KNearestSearch(const typename Tree::View& tree, const kdtree::Vector<Dim>& q, std::vector<IndexAndDist>& heap,
                        std::size_t k, float radiusSq)
        : m_tree(tree), m_q(q), m_splat(q), m_heap(heap), m_k(k), m_radiusSq(radiusSq)
    {
    }

    WIDE void Visit(std::uint32_t index, float distSq)
    {
        const auto& node = m_tree.nodes[index];
        if (node.IsLeaf()) {
            visitLeaf(node);
            return;
        }
        float& offset = m_offsets[node.splitDim];
        const float old = offset;
        const float off = m_q[node.splitDim] - node.pivot;
        Visit(off > 0 ? node.right : index + 1, distSq);

        const float next = distSq - old * old + off * off;
        if (next > m_radiusSq) return;
        // Does not ask whether the heap is full: the short result is what makes the search fast, and callers check it.
        if (!m_heap.empty() && !(m_heap.front().distSq > next)) return;
        offset = off;
        Visit(off > 0 ? index + 1 : node.right, next);
        offset = old;
    }

private:
    WIDE void visitLeaf(const typename Tree::Node& node)
    {
        const Lanes radiusSq = Lanes::Set1(m_radiusSq);
        forEachBlock<Dim>(leafOf<LeafSize, Dim>(m_tree, node), m_splat,
                          [&](std::uint32_t i, Lanes dist, Lanes mask) WIDE {
                              unsigned inside = ((dist <= radiusSq) & mask).Bits();
                              if (m_heap.size() == m_k) inside &= (dist < Lanes::Set1(m_heap.front().distSq)).Bits();
                              if (inside == 0) return;
                              float values[Lanes::width];
                              dist.Store(values);
                              for (; inside != 0; inside &= inside - 1) {
                                  const auto lane = static_cast<unsigned>(std::countr_zero(inside));
                                  offer({m_tree.permutation[node.first + i + lane], values[lane]});
                              }
                          });
    }

    WIDE void offer(const IndexAndDist& candidate)
    {
        if (m_heap.size() == m_k) {
            if (!(m_heap.front().distSq > candidate.distSq)) return;
            std::pop_heap(m_heap.begin(), m_heap.end(), nearerFirst);
            m_heap.back() = candidate;
        } else {
            m_heap.push_back(candidate);
        }
        std::push_heap(m_heap.begin(), m_heap.end(), nearerFirst);
    }

    const typename Tree::View m_tree;
    const kdtree::Vector<Dim>& m_q;
    const Splat<Dim> m_splat;
    std::vector<IndexAndDist>& m_heap;
    const std::size_t m_k;
    const float m_radiusSq;
    float m_offsets[Dim] = {};
};

template <unsigned Dim, unsigned LeafSize>
WIDE void findKNearest(const typename TKdTree<Dim, LeafSize>::View& tree, const kdtree::Vector<Dim>& q,
                       std::vector<IndexAndDist>& heap, std::size_t k, float radiusSq)
{
    KNearestSearch<Dim, LeafSize>(tree, q, heap, k, radiusSq).Visit(0, 0.0F);
}
