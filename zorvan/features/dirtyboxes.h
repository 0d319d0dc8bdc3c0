// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/features/latticemap.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg {

/// The boxes that a dirty map gave, made ready to be asked for many points.
class CDirtyBoxes
{
public:
    /// @param cellSize  of the map that made the boxes
    CDirtyBoxes(const std::vector<kdtree::Range<3>>& boxes, float cellSize);

    [[nodiscard]] bool Empty() const { return m_boxes.Size() == 0; }

    /// How many boxes hold the point; one that lies on a face that two boxes share counts for both. A point that no box
    /// holds, but whose cell is dirty, counts once: far from the origin, cells (rounded by an approximate reciprocal)
    /// and boxes drift apart, and a point between them must not be lost. A point that is not finite goes by its cell.
    [[nodiscard]] unsigned Count(const kdtree::Vector<3>& p) const
    {
        // Inline up to here: most points lie far from what changed.
        if (isInside(m_hull, p)) return countInHull(p);
        return !p.IsFinite() && isInDirtyCell(p) ? 1 : 0;
    }

private:
    struct Span
    {
        std::int64_t first;
        std::int64_t last;
    };

    [[nodiscard]] static bool isInside(const kdtree::Range<3>& box, const kdtree::Vector<3>& p)
    {
        return p.x >= box.low.x && p.y >= box.low.y && p.z >= box.low.z && p.x <= box.high.x && p.y <= box.high.y &&
               p.z <= box.high.z;
    }
    [[nodiscard]] unsigned countInHull(const kdtree::Vector<3>& p) const;
    [[nodiscard]] bool isInDirtyCell(const kdtree::Vector<3>& p) const;
    /// Cells along one axis whose boxes may hold the coordinate.
    [[nodiscard]] Span cellsAt(float coordinate) const;

    TLatticeMap<kdtree::Range<3>> m_boxes;
    kdtree::Range<3> m_hull; ///< beyond it, no point belongs to a dirty cell or box
    double m_cellSize;
};

} // namespace prereg
