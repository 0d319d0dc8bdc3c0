// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/latticemap.h"

#include <vector>

namespace prereg::detail {

/// Records one for each cell of a grid, or one for each point when the grid size is <= 0.
template <typename Record>
class TCells
{
public:
    explicit TCells(double gridSize) : m_hasGrid(gridSize > 0), m_grid(static_cast<float>(gridSize)) {}

    Record& At(const kdtree::Vector<3>& p) { return m_hasGrid ? m_grid.At(p) : m_single.emplace_back(); }

    template <typename Visit>
    void ForEach(Visit visit) const
    {
        for (const Record& record : m_hasGrid ? m_grid.Records() : m_single) visit(record);
    }

private:
    bool m_hasGrid;
    TLatticeMap<Record> m_grid;
    std::vector<Record> m_single;
};

/// Several point sets in a common frame. Points of a cell are averaged; the first set to reach a cell with a feature
/// supplies it.
struct Merge
{
    TCells<CFPFHDataSource::GridCell> points;
    TCells<CFPFHDataSource::PFHGridCell> features;

    Merge(double gridSize, double featureGridSize) : points(gridSize), features(featureGridSize) {}

    /// @param trafo  set to common frame
    void Add(const CFPFHPointSet& set, const CTrafo& trafo, unsigned numTasks);
};

} // namespace prereg::detail
