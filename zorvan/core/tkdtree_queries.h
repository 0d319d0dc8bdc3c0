// The searches of TKdTree, written once over the lanes of tkdtree_lanes.h. Included by one source file a width, inside
// an unnamed namespace, where `Lanes` is that width and WIDE the attribute that compiles one function for it; no
// include guard and no includes for that reason.

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

// The nearest point of a leaf. Each lane keeps its own best; the first point wins among equals, as if they had been
// looked at one by one. Returns the position in the leaf, or count when none is nearer.
WIDE inline std::uint32_t nearestInLeaf(const Leaf<3>& leaf, const Splat<3>& q, float& distSq)
{
    Lanes best = Lanes::Set1(distSq);
    Lanes bestBlock = Lanes::SetBits(0);
    Lanes anyNearer = Lanes::SetBits(0);
    forEachBlock<3>(leaf, q, [&](std::uint32_t i, Lanes dist, Lanes mask) WIDE {
        const Lanes nearer = (dist < best) & mask;
        best = Lanes::Select(best, dist, nearer);
        bestBlock = Lanes::Select(bestBlock, Lanes::SetBits(i), nearer);
        anyNearer = Lanes::Select(anyNearer, nearer, nearer);
    });
    const unsigned touched = anyNearer.Bits();
    if (touched == 0) return leaf.count;

    distSq = best.Smallest();
    float blocks[Lanes::width];
    bestBlock.Store(blocks);
    std::uint32_t position = leaf.count;
    for (unsigned lanes = (best == Lanes::Set1(distSq)).Bits() & touched; lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<unsigned>(std::countr_zero(lanes));
        position = std::min(position, std::bit_cast<std::uint32_t>(blocks[lane]) + lane);
    }
    return position;
}

WIDE inline float boxDistanceSq(const TKdTree<3, 48>::Node& node, simd::Float4 q)
{
    using namespace simd;
    const Float4 outside = Max(Max(Load(&node.low.x) - q, q - Load(&node.high.x)), Set1(0.0F));
    return Sum3(outside * outside);
}

WIDE inline float farthestCornerSq(const TKdTree<3, 48>::Node& node, simd::Float4 q)
{
    using namespace simd;
    const Float4 a = Load(&node.low.x) - q;
    const Float4 b = Load(&node.high.x) - q;
    return Sum3(Max(a * a, b * b));
}

// Far children wait on a stack of our own; a child is dropped when by then a nearer point is known.
WIDE void findNearest(const TKdTree<3, 48>::View& tree, NearestQuery& query)
{
    struct Waiting
    {
        std::uint32_t node;
        float distSq;
    };
    Waiting waiting[maxDepth];
    unsigned numWaiting = 0;

    const simd::Float4 q = simd::Load(&query.point.x);
    const Splat<3> splat(query.point);
    float distSq = query.distSq;
    std::uint32_t found = noPosition;
    std::uint32_t current = 0;
    while (true) {
        const auto& node = tree.nodes[current];
        if (node.IsLeaf()) {
            const std::uint32_t position = nearestInLeaf(leafOf<48, 3>(tree, node), splat, distSq);
            if (position != node.count) found = node.first + position;
        } else if (boxDistanceSq(node, q) <= distSq) {
            const float d = node.pivot - query.point[node.splitDim];
            const bool leftFirst = d >= 0;
            waiting[numWaiting++] = {leftFirst ? node.right : current + 1, d * d};
            current = leftFirst ? current + 1 : node.right;
            continue;
        }
        do {
            if (numWaiting == 0) {
                query.distSq = distSq;
                if (found != noPosition) query.index = static_cast<int>(tree.permutation[found]);
                return;
            }
        } while (!(distSq > waiting[--numWaiting].distSq));
        current = waiting[numWaiting].node;
    }
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
    const simd::Float4 q = simd::Load(&ball.center.x);
    const Splat<3> splat(ball.center);
    const Lanes radiusSq = Lanes::Set1(ball.radiusSq);
    std::uint32_t current = 0;
    while (true) {
        const auto& node = tree.nodes[current];
        if (node.IsLeaf()) {
            ballInLeaf(tree, node, splat, radiusSq, out);
        } else if (farthestCornerSq(node, q) <= ball.radiusSq) {
            const std::uint32_t* first = tree.permutation + node.first;
            out.insert(out.end(), first, first + node.count);
        } else if (!(boxDistanceSq(node, q) > ball.radiusSq)) {
            waiting[numWaiting++] = node.right;
            ++current;
            continue;
        }
        if (numWaiting == 0) return;
        current = waiting[--numWaiting];
    }
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
