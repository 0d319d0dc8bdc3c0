// SPDX-License-Identifier: MIT
#pragma once

// Looks up nearest points again and again while a pose comes to rest. Not installed.

#include "zorvan/core/cpointset.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg {

/// The nearest points of a scan to points that move a little from one look-up to the next. Of a point that has hardly
/// moved since it was last looked up, all points that can become the nearest one while it moves no further are
/// remembered; mostly that is one, or none is in reach. What is found is what the tree finds, among equally near points
/// too.
///
///     CNearestTracker tracker(fixPoints, tree, flt.size(), reachSq, 0.25F * spacing);
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
    /// @param play          how far a point may move before it is looked up anew, mm
    CNearestTracker(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree, std::size_t numMoved, float reachSq,
                    float play);

    /// What FindNearest says of `moved`: an index into the points, or -1.
    /// @param i  of the moved point
    [[nodiscard]] int Nearest(std::size_t i, const Vector3& moved);

private:
    static constexpr std::size_t uiMost = 7;

    /// About one moved point.
    struct Known
    {
        Vector3 where;           ///< it was when it was looked up
        std::uint32_t count = 0; ///< of the candidates
        std::array<std::uint32_t, uiMost> candidates{};
    };
    enum : std::uint32_t
    {
        uiNever = 1000, ///< instead of a count: not looked up yet, or too many to remember
        uiOnce          ///< looked up, candidates not asked for
    };

    [[nodiscard]] int fromTree(const Vector3& moved) const;
    void remember(Known& known, const Vector3& moved);
    [[nodiscard]] int fromCandidates(const Known& known, const Vector3& moved) const;

    const Vectors& m_points;
    const Zorvan::TKdTree<3, 48>& m_tree;
    float m_reachSq;
    float m_play;
    std::vector<Known> m_known;
    std::vector<unsigned> m_found; ///< kept for its memory
};

} // namespace prereg
