// SPDX-License-Identifier: MIT
#pragma once

// Looks up nearest points again and again while a pose comes to rest. Not installed.

#include "zorvan/core/cpointset.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <vector>

namespace prereg {

/// The nearest points of a scan to points that move a little from one look-up to the next. Beside the nearest point the
/// tree says how far off the next one is: until a point has moved by half of the gap, nothing needs to be looked up.
/// What is found is what the tree finds, among equally near points too.
///
///     CNearestTracker tracker(fixPoints, tree, flt.size(), reachSq, 0.1F * spacing);
///     for (...) // each pose
///         for (std::size_t i = 0; i < flt.size(); ++i) use(tracker.Nearest(i, pose * flt[i]));
///
/// Used by one thread at a time.
class ZORVAN_API CNearestTracker
{
public:
    using Vector3 = kdtree::Vector<3>;

    /// @param points, tree  of the scan, the tree over the points; must outlive the tracker
    /// @param numMoved      points that will be looked up
    /// @param reachSq       squared, mm; as in a NearestQuery
    /// @param play          at most so far a point may move before it is looked up anew, mm
    CNearestTracker(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree, std::size_t numMoved, float reachSq,
                    float play);

    /// What FindNearest says of `moved`: an index into the points, or -1.
    /// @param i  of the moved point
    [[nodiscard]] int Nearest(std::size_t i, const Vector3& moved);

    /// Brings near the processor what `Nearest` will read of a point that it looked up before.
    void Expect(std::size_t i) const
    {
        if (m_known[i].index >= 0) __builtin_prefetch(&m_points[static_cast<std::size_t>(m_known[i].index)]);
    }

private:
    /// About one moved point.
    struct Known
    {
        Vector3 where;      ///< it was when it was looked up
        int index = -1;     ///< of the nearest point, until it has moved by
        float play = -1.0F; ///< so much; negative: not looked up yet
    };

    void lookUp(Known& known, const Vector3& moved) const;
    [[nodiscard]] int fromTree(const Vector3& moved) const;

    const Vectors& m_points;
    const Zorvan::TKdTree<3, 48>& m_tree;
    float m_reachSq;
    float m_reach;
    float m_play;
    std::vector<Known> m_known;
};

} // namespace prereg
