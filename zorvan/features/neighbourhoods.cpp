// SPDX-License-Identifier: MIT
#include "zorvan/features/neighbourhoods.h"

#include "zorvan/platform/simd.h"

#include <algorithm>

namespace prereg::detail {

namespace {

using Vector3 = kdtree::Vector<3>;

constexpr std::size_t padding = 8;

std::vector<Vector3> pick(const std::vector<Vector3>& points, const std::vector<std::uint32_t>& indices)
{
    std::vector<Vector3> picked;
    picked.reserve(indices.size());
    for (const std::uint32_t i : indices) picked.push_back(points[i]);
    return picked;
}

} // namespace

CNeighbourGrid::CNeighbourGrid(double radius, const std::vector<Vector3>& points,
                               const std::vector<std::uint32_t>& indices)
    : CSearchGrid(radius * cellGrain, pick(points, indices).data(), indices.size()), m_indices(Size())
{
    for (std::size_t k = 0; k < m_indices.size(); ++k) m_indices[k] = indices[GetPermutation()[k]];
}

unsigned CNeighbourGrid::CellsAround(const Vector3& p, Cells& cells) const
{
    const IVector3D base = getClampedCubeIdx(p);
    unsigned n = 0;
    for (unsigned k = 0; k < cells.size(); ++k) {
        const IVector3D& direction = getNeighborDir(k);
        const auto* cube = getCube({base.x + direction.x, base.y + direction.y, base.z + direction.z, 0});
        if (cube == nullptr) continue;
        // In a grid of one or two cells across, a step over its edge wraps into a cell that is met anyway.
        const bool isKnown =
            std::any_of(cells.begin(), cells.begin() + n, [&](const Cell& cell) { return cell.first == cube[0]; });
        if (!isKnown) cells[n++] = {cube[0], cube[1]};
    }
    return n;
}

void Candidates::Reserve(std::size_t n)
{
    if (x.size() >= n + padding) return;
    for (auto* coordinates : {&x, &y, &z}) coordinates->resize(n + padding);
    surfels.resize(n + padding);
    index.resize(n + padding);
}

void Candidates::Push(const Surfel& surfel, std::uint32_t callersIndex)
{
    x[count] = surfel.point.x;
    y[count] = surfel.point.y;
    z[count] = surfel.point.z;
    surfels[count] = surfel;
    index[count++] = callersIndex;
}

void Scratch::Reserve(std::size_t n)
{
    if (neighbours.size() >= n + padding) return;
    neighbours.resize(n + padding);
    weights.resize(n + padding);
}

void CNeighbourhood::Enter(std::uint32_t position)
{
    if (position < m_cell.first || position >= m_cell.last) gather(position);
    m_self = position - m_cell.first;
}

void CNeighbourhood::gather(std::uint32_t position)
{
    CNeighbourGrid::Cells cells;
    const unsigned n = m_grid.CellsAround(m_points[m_grid.IndexOf(position)], cells);
    std::size_t total = 0;
    for (unsigned k = 0; k < n; ++k) total += cells[k].last - cells[k].first;

    m_cell = cells[0]; // the point's own: its candidates come first, so a position is also a place among them
    m_candidates.Reserve(total);
    m_scratch.Reserve(total);
    m_candidates.count = 0;
    for (unsigned k = 0; k < n; ++k) {
        for (std::uint32_t i = cells[k].first; i < cells[k].last; ++i) {
            const std::uint32_t j = m_grid.IndexOf(i);
            m_candidates.Push({m_points[j], m_normals[j]}, j);
        }
    }
}

unsigned CNeighbourhood::CountPairs(CPointFeatureHistogram& histogram)
{
    if (Zorvan::simd::IsWide()) return countPairsAvx(m_candidates, m_self, m_radiusSq, m_scratch, histogram.AsArray());
    // Histograms stay as they are without AVX; the neighbours count all the same.
    unsigned numNeighbours = 0;
    const Vector3& p = m_candidates.surfels[m_self].point;
    for (std::size_t k = 0; k < m_candidates.count; ++k) {
        if (DistanceSq(m_candidates.surfels[k].point, p) <= m_radiusSq) ++numNeighbours;
    }
    return numNeighbours;
}

void CNeighbourhood::SumHistograms(float weight, const SimplifiedHistogram* histograms, CPointFeatureHistogram& feature)
{
    if (!Zorvan::simd::IsWide()) return;
    sumHistogramsAvx(m_candidates, m_self, m_radiusSq, weight, histograms, m_scratch, feature.AsArray());
}

} // namespace prereg::detail
