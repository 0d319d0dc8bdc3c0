// SPDX-License-Identifier: MIT
#include "zorvan/features/cdirtymap.h"

#include <utility>

namespace prereg {

CDirtyMap::CDirtyMap(double cellSize) : m_cells(static_cast<float>(cellSize)) {}

void CDirtyMap::insert(kdtree::Vector<3> point) { ++m_cells.At(point).current; }

std::vector<kdtree::Range<3>> CDirtyMap::dirty()
{
    std::vector<kdtree::Range<3>> boxes;
    m_cells.Filter([&](const LatticeCell& cell, Counts& counts) {
        const unsigned before = std::exchange(counts.previous, std::exchange(counts.current, 0));
        if (before == counts.previous) return true;
        boxes.push_back(m_cells.Lattice().BoxOf(cell));
        return counts.previous != 0;
    });
    return boxes;
}

} // namespace prereg
