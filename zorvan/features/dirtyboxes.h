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
    [[nodiscard]] unsigned Count(const kdtree::Vector<3>& p) const;

private:
    struct Span
    {
        std::int64_t first;
        std::int64_t last;
    };

    [[nodiscard]] bool isInDirtyCell(const kdtree::Vector<3>& p) const;
    /// Cells along one axis whose boxes may hold the coordinate.
    [[nodiscard]] Span cellsAt(float coordinate) const;

    TLatticeMap<kdtree::Range<3>> m_boxes;
    kdtree::Range<3> m_hull; ///< beyond it, no point belongs to a dirty cell or box
    double m_cellSize;
};

} // namespace prereg
