// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Zorvan {

/// A uniform grid for queries with a bounded radius: a query looks at no more than 27 cells, each a linear read. Holds
/// its own copy of the points; results are indices into the caller's array. Built once, then read-only: any number of
/// threads may query it.
///
/// A point that is not finite, or more than 16777216 cells, leave the grid empty, without a message: ask `Empty()`.
///
/// Two things that callers live with. A grid of one or two cells along x or y can give an index more than once from
/// `QueryRange`. And cells are numbered by an approximate reciprocal, so far along an axis their numbers and their
/// boxes drift apart, and a neighbour across a cell face can be missed: of those within the cell size, none was on an
/// axis of 100 cells, 1 in 36,000 on one of 300, 1 in 800 of 1,000 and 1 in 40 of 3,000 (one cell size, one processor;
/// both decide).
class ZORVAN_API CSearchGrid
{
public:
    /// Cell numbers along x, y, z; the fourth keeps it one vector register wide.
    struct alignas(16) IVector3D
    {
        std::int32_t x = 0;
        std::int32_t y = 0;
        std::int32_t z = 0;
        std::int32_t spare = 0;
    };

    struct Statistics
    {
        std::uint32_t cellsX = 0;
        std::uint32_t cellsY = 0;
        std::uint32_t cellsZ = 0;
        std::uint32_t occupiedCells = 0;
        std::uint32_t points = 0;
        double meanPointsPerCell = 0.0;   ///< over the occupied cells
        double stdDevPointsPerCell = 0.0; ///< sample standard deviation; 0 below two occupied cells
    };

    CSearchGrid() = default;
    CSearchGrid(double cellSize, const kdtree::Vector<3>* points, std::size_t n);
    CSearchGrid(double cellSize, const float* xyz, std::size_t n);
    CSearchGrid(double cellSize, const std::array<float, 3>* points, std::size_t n);
    CSearchGrid(const CSearchGrid& other) = default;
    /// Leaves the other one empty; so does the assignment.
    CSearchGrid(CSearchGrid&& other) noexcept;
    CSearchGrid& operator=(const CSearchGrid& other) = default;
    CSearchGrid& operator=(CSearchGrid&& other) noexcept;
    ~CSearchGrid() = default;

    [[nodiscard]] bool Empty() const { return m_numCubes == 0; }
    [[nodiscard]] std::size_t Size() const { return m_sortedPoints.size(); }
    /// Box of the points, widened by a margin that grows with the coordinates.
    [[nodiscard]] kdtree::Range<3> GetAABB() const { return {m_bboxMin, m_bboxMax}; }
    /// The caller's index of each point in cell order.
    [[nodiscard]] const std::uint32_t* GetPermutation() const { return m_permutation.data(); }
    /// The largest squared radius that may be asked for.
    [[nodiscard]] float GetQueryRadiusSupremumSq() const { return m_queryRadiusSupremumSq; }
    [[nodiscard]] std::size_t GetMemUsage() const;
    [[nodiscard]] Statistics GetStatistics() const;

    /// The caller's index of the nearest point strictly nearer than the radius, or -1. The radius is cut to the
    /// supremum.
    /// @param distSq  null, or receives the squared distance; +Infinity when there is no point
    int Query_NN(const kdtree::Vector<3>& q, float maxDistSq, float* distSq) const;

    /// Appends the caller's indices of all points with squared distance <= the squared radius. The radius is **not**
    /// cut: a ball larger than the supremum silently misses points.
    void QueryRange(std::vector<unsigned>& out, const kdtree::Ball<3>& ball) const;

protected:
    /// The grid as it lies in memory, for a device that searches by itself. Valid as long as the grid.
    struct Tables
    {
        IVector3D dims;
        kdtree::Vector<3> cellSize;
        kdtree::Vector<3> invCellSize;
        kdtree::Vector<3> bboxMin;
        kdtree::Vector<3> bboxMax;
        /// Ordinal of the occupied cell by linear index, or 0xFFFFFFFF; ascending, so occupied cells of one row that
        /// lie side by side hold one stretch of the points.
        std::span<const std::uint32_t> cubes;
        std::span<const std::uint32_t> cellStart; ///< first position of each occupied cell, and the end
        std::span<const std::uint32_t> permutation;
        std::span<const kdtree::Vector<3>> sortedPoints;
    };
    [[nodiscard]] Tables getTables() const
    {
        return {m_dims,  m_cellSize,  m_invCellSize, m_bboxMin,     m_bboxMax,
                m_cubes, m_cellStart, m_permutation, m_sortedPoints};
    }

    /// Cell of p, not clamped to the grid.
    [[nodiscard]] IVector3D getCubeIdx(const kdtree::Vector<3>& p) const;
    /// The cell that holds a point of the grid.
    [[nodiscard]] IVector3D getClampedCubeIdx(const kdtree::Vector<3>& p) const;
    [[nodiscard]] kdtree::Range<3> getBBox(const IVector3D& idx) const;
    /// Linear index of a cell in wrapping arithmetic. Exact, no hash: no collisions inside the grid.
    [[nodiscard]] std::uint32_t hashCubeIdx(const IVector3D& idx) const;
    /// Where the cell's points start, with where they end behind it; null when it is empty or outside.
    [[nodiscard]] const std::uint32_t* getCube(const IVector3D& idx) const;
    /// The 27 directions to a cell and its neighbours, nearest first.
    [[nodiscard]] static const IVector3D& getNeighborDir(unsigned k);

private:
    struct Nearest
    {
        float distSq;
        std::uint32_t position;
    };

    void build(double cellSize, const kdtree::Vector<3>* points, std::size_t n);
    bool computeBox(const kdtree::Vector<3>* points, std::size_t n);
    bool computeDims();
    void sortIntoCells(const kdtree::Vector<3>* points, std::size_t n);
    void abort();
    void swap(CSearchGrid& other) noexcept;
    void search_NN(const kdtree::Vector<3>& q, const std::uint32_t* cube, Nearest& nearest) const;
    void search_Ball(const kdtree::Ball<3>& ball, const std::uint32_t* cube, std::vector<unsigned>& out) const;

    float m_queryRadiusSupremumSq = 0.0F;
    kdtree::Vector<3> m_cellSize;
    kdtree::Vector<3> m_invCellSize;
    kdtree::Vector<3> m_bboxMin = kdtree::EmptyRange().low;
    kdtree::Vector<3> m_bboxMax = kdtree::EmptyRange().high;
    IVector3D m_dims;
    std::uint32_t m_numCubes = 0;
    std::vector<std::uint32_t> m_cubes;     ///< ordinal of the occupied cell, or 0xFFFFFFFF
    std::vector<std::uint32_t> m_cellStart; ///< first position of each occupied cell, and the end
    std::vector<std::uint32_t> m_permutation;
    std::vector<kdtree::Vector<3>> m_sortedPoints;
    std::uint32_t m_numOccupied = 0;
};

} // namespace Zorvan
