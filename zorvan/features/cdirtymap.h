// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/features/latticemap.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <vector>

namespace prereg {

/// Tells where a surface changed between two rounds of points, cell by cell of a coarse lattice: a cell is dirty when
/// another number of points fell into it than in the round before. Points that move inside their cell are not seen.
///
///     for (const auto& p : surface) map.insert(p);
///     for (const auto& box : map.dirty()) rebuild(box); // closes the round
class ZORVAN_API CDirtyMap
{
public:
    /// @param cellSize  edge of a cell in mm
    explicit CDirtyMap(double cellSize = 1.0);

    void insert(kdtree::Vector<3> point);
    /// Boxes of the cells that changed since the last call, in the order in which the cells were first met.
    [[nodiscard]] std::vector<kdtree::Range<3>> dirty();
    /// Cells known: those that held points in the last closed round, or got some since.
    [[nodiscard]] std::size_t cells() const { return m_cells.Size(); }
    void reset() { m_cells.Clear(); }
    [[nodiscard]] float cellSize() const { return m_cells.Lattice().CellSize(); }

private:
    struct Counts
    {
        unsigned int current = 0;
        unsigned int previous = 0;
    };

    TLatticeMap<Counts> m_cells;
};

} // namespace prereg
