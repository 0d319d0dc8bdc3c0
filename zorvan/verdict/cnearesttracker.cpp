// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cnearesttracker.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace prereg {

namespace {

/// Far above what rounding does to a distance, far below what a ball grows by it.
constexpr float fRounding = 1e-5F;

} // namespace

CNearestTracker::CNearestTracker(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree, std::size_t numMoved,
                                 float reachSq, float play)
    : m_points(points), m_tree(tree), m_reachSq(reachSq), m_play(play), m_known(numMoved)
{
    for (Known& known : m_known) known.count = uiNever;
}

int CNearestTracker::Nearest(std::size_t i, const Vector3& moved)
{
    Known& known = m_known[i];
    const bool isNear = known.count != uiNever && DistanceSq(known.where, moved) <= m_play * m_play;
    if (isNear && known.count == uiOnce) remember(known, moved);
    if (isNear && known.count <= uiMost) return fromCandidates(known, moved);
    if (!isNear) {
        known.where = moved;
        known.count = uiOnce;
    }
    return fromTree(moved);
}

int CNearestTracker::fromTree(const Vector3& moved) const
{
    Zorvan::NearestQuery query{moved, -1, m_reachSq};
    m_tree.FindNearest(query);
    return query.index;
}

/// With the nearest point at a distance d, that of any place within the play of this one lies within d and twice the
/// play of it.
void CNearestTracker::remember(Known& known, const Vector3& moved)
{
    constexpr float fMore = 1.0F + fRounding;
    const float reach = fMore * (std::sqrt(m_reachSq) + m_play);
    Zorvan::NearestQuery query{moved, -1, reach * reach};
    m_tree.FindNearest(query);
    known.where = moved;
    known.count = 0;
    if (query.index < 0) return;
    const float radius = fMore * (std::sqrt(query.distSq) + 2.0F * m_play);
    m_found.clear();
    m_tree.FindInBall(m_found, {moved, radius * radius});
    if (m_found.size() > uiMost) {
        known.count = static_cast<std::uint32_t>(uiMost) + 1; // the tree knows best
        return;
    }
    std::copy(m_found.begin(), m_found.end(), known.candidates.begin());
    known.count = static_cast<std::uint32_t>(m_found.size());
}

/// Where rounding may decide, the tree does.
int CNearestTracker::fromCandidates(const Known& known, const Vector3& moved) const
{
    if (known.count == 0) return -1;
    float nearest = std::numeric_limits<float>::infinity();
    float second = nearest;
    std::uint32_t index = 0;
    for (std::uint32_t k = 0; k < known.count; ++k) {
        const float distSq = DistanceSq(m_points[known.candidates[k]], moved);
        second = std::min(second, std::max(nearest, distSq));
        if (!(distSq < nearest)) continue;
        nearest = distSq;
        index = known.candidates[k];
    }
    const bool isClear = second > nearest * (1.0F + fRounding) && std::abs(nearest - m_reachSq) > fRounding * m_reachSq;
    if (!isClear) return fromTree(moved);
    return nearest < m_reachSq ? static_cast<int>(index) : -1;
}

} // namespace prereg
