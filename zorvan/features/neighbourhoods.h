// SPDX-License-Identifier: MIT
#pragma once

// Who the neighbours of a feature point are, and the two sums over them that make a feature. The grid is shared, each
// task has a CNeighbourhood of its own and goes through the points cell by cell: all points of a cell have the same
// candidates, gathered once into a few kilobytes.

#include "zorvan/core/csearchgrid.h"
#include "zorvan/core/vector.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/cpointfeaturehistogram.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg::detail {

using SimplifiedHistogram = CFPFHDataSource::SimplifiedHistogram;

/// Cells are this much wider than the radius. The grid rounds by an approximate reciprocal of its cell size, which can
/// make cells narrower than asked for by 4 in 10,000, and a neighbour could then lie two cells away.
inline constexpr double cellGrain = 1.001;

struct alignas(32) Surfel
{
    kdtree::Vector<3> point;
    kdtree::Vector<3> normal;
};

/// Finds the cells that may hold points within the radius.
class CNeighbourGrid : private Zorvan::CSearchGrid
{
public:
    /// Positions of the points of one cell, in the order of the grid.
    struct Cell
    {
        std::uint32_t first;
        std::uint32_t last; ///< behind the end
    };
    using Cells = std::array<Cell, 27>;

    /// @param indices  of the points that take part; ascending
    CNeighbourGrid(double radius, const std::vector<kdtree::Vector<3>>& points,
                   const std::vector<std::uint32_t>& indices);

    using CSearchGrid::Empty;
    using CSearchGrid::Size;
    /// Of the point at a position of the grid.
    [[nodiscard]] std::uint32_t IndexOf(std::uint32_t position) const { return m_indices[position]; }

    /// The cell of p, if it is not empty, and those around it, nearest first, each once.
    /// @return  how many
    unsigned CellsAround(const kdtree::Vector<3>& p, Cells& cells) const;

private:
    std::vector<std::uint32_t> m_indices; ///< by position
};

/// The candidates of the points of one cell: coordinates by themselves for the test of distance, whole surfels for the
/// pairs. Readable eight entries past the end.
struct Candidates
{
    std::vector<float> x;
    std::vector<float> y;
    std::vector<float> z;
    std::vector<Surfel> surfels;
    std::vector<std::uint32_t> index; ///< in the caller's arrays
    std::size_t count = 0;

    void Reserve(std::size_t n);
    void Push(const Surfel& surfel, std::uint32_t callersIndex);
};

/// Room for the neighbours of one point: which candidates they are, and a number for each candidate.
struct Scratch
{
    std::vector<std::uint32_t> neighbours;
    std::vector<float> weights;

    void Reserve(std::size_t n);
};

/// Counts the pairs of candidate `self` with all others within the radius into `bins`, as `Update` does.
/// @return  the number of neighbours, `self` among them
unsigned countPairsAvx(const Candidates& candidates, std::size_t self, float radiusSq, Scratch& scratch,
                       CPointFeatureHistogram::Bins& bins);

/// Sum over the neighbours of `self` at a distance > 0 of their histograms, weighted by `weight` over the distance, as
/// `Add` does. @param histograms  by the caller's index
void sumHistogramsAvx(const Candidates& candidates, std::size_t self, float radiusSq, float weight,
                      const SimplifiedHistogram* histograms, Scratch& scratch, CPointFeatureHistogram::Bins& sum);

/// Walks the neighbourhoods of many points; made for positions that come cell by cell.
class CNeighbourhood
{
public:
    CNeighbourhood(const CNeighbourGrid& grid, const kdtree::Vector<3>* points, const kdtree::Vector<3>* normals,
                   float radiusSq)
        : m_grid(grid), m_points(points), m_normals(normals), m_radiusSq(radiusSq)
    {
    }

    /// Makes the point at this position of the grid the one that the others ask about.
    void Enter(std::uint32_t position);
    /// @return  the number of neighbours, the point itself among them
    unsigned CountPairs(CPointFeatureHistogram& histogram);
    void SumHistograms(float weight, const SimplifiedHistogram* histograms, CPointFeatureHistogram& feature);

private:
    void gather(std::uint32_t position);

    const CNeighbourGrid& m_grid;
    const kdtree::Vector<3>* m_points;
    const kdtree::Vector<3>* m_normals;
    const float m_radiusSq;
    CNeighbourGrid::Cell m_cell{0, 0}; ///< whose candidates are gathered
    std::size_t m_self = 0;
    Candidates m_candidates;
    Scratch m_scratch;
};

} // namespace prereg::detail
