// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cnearesttracker.h"

#include <algorithm>
#include <cmath>

namespace prereg {

namespace {

/// Far above what rounding does to a distance, far below what matters of a play.
constexpr float fRounding = 1e-5F;

} // namespace

CNearestTracker::CNearestTracker(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree, std::size_t numMoved,
                                 float reachSq, float play)
    : m_points(points), m_tree(tree), m_reachSq(reachSq), m_reach(std::sqrt(reachSq)), m_play(play), m_known(numMoved)
{
}

int CNearestTracker::Nearest(std::size_t i, const Vector3& moved)
{
    Known& known = m_known[i];
    if (known.play < 0.0F || !(DistanceSq(known.where, moved) < known.play * known.play)) lookUp(known, moved);
    if (known.index < 0) return -1;
    const float distSq = DistanceSq(m_points[static_cast<std::size_t>(known.index)], moved);
    if (std::abs(distSq - m_reachSq) <= fRounding * m_reachSq) return fromTree(moved); // rounding may decide
    return distSq < m_reachSq ? known.index : -1;
}

/// A play further than the reach, so that the answer holds there, too.
void CNearestTracker::lookUp(Known& known, const Vector3& moved) const
{
    const float reach = m_reach + m_play;
    Zorvan::NearestQuery query{moved, -1, reach * reach};
    const float next = std::sqrt(m_tree.FindNearestAndNext(query, 2.0F * m_play));
    const float gap = query.index < 0 ? next - m_reach : 0.5F * (next - std::sqrt(query.distSq));
    known = {moved, query.index, std::clamp(gap - fRounding * next, 0.0F, m_play)};
}

int CNearestTracker::fromTree(const Vector3& moved) const
{
    Zorvan::NearestQuery query{moved, -1, m_reachSq};
    m_tree.FindNearest(query);
    return query.index;
}

} // namespace prereg
