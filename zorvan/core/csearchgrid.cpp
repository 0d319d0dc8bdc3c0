// SPDX-License-Identifier: MIT
#include "zorvan/core/csearchgrid.h"

#include "zorvan/platform/simd.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

namespace Zorvan {

namespace {

using Vector3 = kdtree::Vector<3>;
using IVector3D = CSearchGrid::IVector3D;

constexpr std::uint32_t emptyCell = 0xFFFFFFFF;
constexpr std::uint64_t maxCubes = 0x1000000; // bounds the table of cells at 64 MiB
constexpr unsigned numDirections = 27;

constexpr std::array<IVector3D, numDirections> directions = {{
    {0, 0, 0},   {-1, 0, 0},   {0, -1, 0},  {0, 0, -1},  {1, 0, 0},  {0, 1, 0},   {0, 0, 1},  {-1, -1, 0}, {-1, 0, -1},
    {0, -1, -1}, {1, 1, 0},    {1, 0, 1},   {0, 1, 1},   {-1, 1, 0}, {-1, 0, 1},  {0, -1, 1}, {1, -1, 0},  {1, 0, -1},
    {0, 1, -1},  {-1, -1, -1}, {-1, -1, 1}, {-1, 1, -1}, {-1, 1, 1}, {1, -1, -1}, {1, -1, 1}, {1, 1, -1},  {1, 1, 1},
}};

IVector3D operator+(const IVector3D& a, const IVector3D& b)
{
    // Wrapping: a query far outside has cell numbers at the end of their range.
    const auto add = [](std::int32_t x, std::int32_t y) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(x) + static_cast<std::uint32_t>(y));
    };
    return {add(a.x, b.x), add(a.y, b.y), add(a.z, b.z), 0};
}

// As the processor's own conversion: whatever does not fit becomes the lowest number.
std::int32_t toInt(float value)
{
    constexpr float limit = 2147483648.0F;
    if (value >= -limit && value < limit) return static_cast<std::int32_t>(value);
    return std::numeric_limits<std::int32_t>::min();
}

float boxDistanceSq(const kdtree::Range<3>& box, const Vector3& q)
{
    const Vector3 outside = Max(Max(box.low - q, q - box.high), Vector3());
    return outside.LengthSq();
}

// Squared distance to the nearest face, of a point inside the box.
float faceDistanceSq(const kdtree::Range<3>& box, const Vector3& q)
{
    const Vector3 d = Min(q - box.low, box.high - q);
    const float nearest = std::min({d.x, d.y, d.z});
    return nearest * nearest;
}

// Grows with the coordinates, so that a point on the box lies inside the last cell in single precision too.
float marginFor(const kdtree::Range<3>& box)
{
    const float m = std::max({std::abs(box.low.x), std::abs(box.low.y), std::abs(box.low.z), std::abs(box.high.x),
                              std::abs(box.high.y), std::abs(box.high.z)});
    return std::exp2(std::ceil(std::log2(m + 1)) + 2 - 19);
}

template <typename Point>
std::vector<Vector3> toVectors(const Point* points, std::size_t n)
{
    std::vector<Vector3> result;
    if (points == nullptr) return result;
    result.reserve(n);
    for (std::size_t i = 0; i < n; ++i) result.emplace_back(points[i][0], points[i][1], points[i][2]);
    return result;
}

} // namespace

CSearchGrid::CSearchGrid(double cellSize, const Vector3* points, std::size_t n) { build(cellSize, points, n); }

CSearchGrid::CSearchGrid(double cellSize, const float* xyz, std::size_t n)
{
    std::vector<Vector3> points;
    points.reserve(n);
    for (std::size_t i = 0; xyz != nullptr && i < n; ++i)
        points.emplace_back(xyz[3 * i], xyz[3 * i + 1], xyz[3 * i + 2]);
    build(cellSize, points.data(), points.size());
}

CSearchGrid::CSearchGrid(double cellSize, const std::array<float, 3>* points, std::size_t n)
{
    const auto vectors = toVectors(points, n);
    build(cellSize, vectors.data(), vectors.size());
}

CSearchGrid::CSearchGrid(CSearchGrid&& other) noexcept { swap(other); }

CSearchGrid& CSearchGrid::operator=(CSearchGrid&& other) noexcept
{
    CSearchGrid taken(std::move(other));
    swap(taken);
    return *this;
}

void CSearchGrid::swap(CSearchGrid& other) noexcept
{
    const auto members = [](CSearchGrid& grid) {
        return std::tie(grid.m_queryRadiusSupremumSq, grid.m_cellSize, grid.m_invCellSize, grid.m_bboxMin,
                        grid.m_bboxMax, grid.m_dims, grid.m_numCubes, grid.m_cubes, grid.m_cellStart,
                        grid.m_permutation, grid.m_sortedPoints, grid.m_numOccupied);
    };
    auto mine = members(*this);
    auto theirs = members(other);
    mine.swap(theirs);
}

void CSearchGrid::build(double cellSize, const Vector3* points, std::size_t n)
{
    const auto size = static_cast<float>(cellSize);
    m_cellSize = Vector3::Filled(size);
    m_invCellSize = Vector3::Filled(simd::ApproximateReciprocal(size));
    m_queryRadiusSupremumSq = std::nextafter(static_cast<float>(cellSize * cellSize), FLT_MAX);
    if (points == nullptr || n == 0 || n > std::numeric_limits<std::int32_t>::max() || !computeBox(points, n) ||
        !computeDims()) {
        abort();
        return;
    }
    sortIntoCells(points, n);
}

bool CSearchGrid::computeBox(const Vector3* points, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) {
        if (!points[i].IsFinite()) return false;
        m_bboxMin = Min(m_bboxMin, points[i]);
        m_bboxMax = Max(m_bboxMax, points[i]);
    }
    const Vector3 margin = Vector3::Filled(marginFor({m_bboxMin, m_bboxMax}));
    m_bboxMin = m_bboxMin - margin;
    m_bboxMax = m_bboxMax + margin;
    return true;
}

bool CSearchGrid::computeDims()
{
    const Vector3 cells = (m_bboxMax - m_bboxMin) * m_invCellSize;
    std::array<std::uint64_t, 3> dims{};
    std::uint64_t cubes = 1;
    for (unsigned i = 0; i < 3; ++i) {
        // Also catches the NaN and Inf of a cell size of 0 and of coordinates near the end of their range.
        if (!(cells[i] <= static_cast<float>(maxCubes))) return false;
        dims[i] = static_cast<std::uint64_t>(std::ceil(std::max(cells[i], 1.0F)));
        cubes *= dims[i];
        if (cubes > maxCubes) return false;
    }
    m_dims = {static_cast<std::int32_t>(dims[0]), static_cast<std::int32_t>(dims[1]),
              static_cast<std::int32_t>(dims[2]), 0};
    m_numCubes = static_cast<std::uint32_t>(cubes);
    return true;
}

void CSearchGrid::sortIntoCells(const Vector3* points, std::size_t n)
{
    // Counting sort by linear cell index: stable, so points of one cell keep their order.
    std::vector<std::uint32_t> linear(n);
    std::vector<std::uint32_t> next(m_numCubes + std::size_t{1}, 0);
    for (std::size_t i = 0; i < n; ++i) {
        linear[i] = hashCubeIdx(getClampedCubeIdx(points[i]));
        ++next[linear[i]];
    }

    m_cubes.assign(m_numCubes, emptyCell);
    std::uint32_t start = 0;
    for (std::uint32_t cube = 0; cube < m_numCubes; ++cube) {
        const std::uint32_t count = next[cube];
        next[cube] = start;
        if (count == 0) continue;
        m_cubes[cube] = m_numOccupied++;
        m_cellStart.push_back(start);
        start += count;
    }
    m_cellStart.push_back(static_cast<std::uint32_t>(n));

    m_permutation.resize(n);
    m_sortedPoints.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t position = next[linear[i]]++;
        m_permutation[position] = static_cast<std::uint32_t>(i);
        m_sortedPoints[position] = points[i];
    }
}

void CSearchGrid::abort()
{
    m_queryRadiusSupremumSq = 0.0F;
    m_cellSize = {};
    m_invCellSize = {};
    m_dims = {};
    m_numCubes = 0;
    m_numOccupied = 0;
}

CSearchGrid::IVector3D CSearchGrid::getClampedCubeIdx(const Vector3& p) const
{
    const IVector3D idx = getCubeIdx(p);
    return {std::clamp(idx.x, 0, m_dims.x - 1), std::clamp(idx.y, 0, m_dims.y - 1), std::clamp(idx.z, 0, m_dims.z - 1),
            0};
}

CSearchGrid::IVector3D CSearchGrid::getCubeIdx(const Vector3& p) const
{
    using simd::Float4;
    const Float4 offset = Float4::Load(&p.x) - Float4::Load(&m_bboxMin.x);
    Vector3 floors;
    simd::Floor(offset * Float4::Load(&m_invCellSize.x)).Store(&floors.x);
    return {toInt(floors.x), toInt(floors.y), toInt(floors.z), 0};
}

kdtree::Range<3> CSearchGrid::getBBox(const IVector3D& idx) const
{
    const Vector3 cell(static_cast<float>(idx.x), static_cast<float>(idx.y), static_cast<float>(idx.z));
    const Vector3 low = cell * m_cellSize + m_bboxMin;
    return {low, low + m_cellSize};
}

std::uint32_t CSearchGrid::hashCubeIdx(const IVector3D& idx) const
{
    const auto x = static_cast<std::uint32_t>(idx.x);
    const auto y = static_cast<std::uint32_t>(idx.y);
    const auto z = static_cast<std::uint32_t>(idx.z);
    return (static_cast<std::uint32_t>(m_dims.y) * z + y) * static_cast<std::uint32_t>(m_dims.x) + x;
}

const std::uint32_t* CSearchGrid::getCube(const IVector3D& idx) const
{
    // Only the linear index is tested: a neighbour past a face wraps into another row. That is harmless, since every
    // candidate is measured where it really lies.
    const std::uint32_t linear = hashCubeIdx(idx);
    if (linear >= m_numCubes || m_cubes[linear] == emptyCell) return nullptr;
    return &m_cellStart[m_cubes[linear]];
}

const CSearchGrid::IVector3D& CSearchGrid::getNeighborDir(unsigned k) { return directions[k]; }

std::size_t CSearchGrid::GetMemUsage() const
{
    return 144 + 4 * (std::size_t{m_numCubes} + m_numOccupied + 1 + 5 * Size());
}

CSearchGrid::Statistics CSearchGrid::GetStatistics() const
{
    Statistics result;
    result.cellsX = static_cast<std::uint32_t>(m_dims.x);
    result.cellsY = static_cast<std::uint32_t>(m_dims.y);
    result.cellsZ = static_cast<std::uint32_t>(m_dims.z);
    result.occupiedCells = m_numOccupied;
    result.points = static_cast<std::uint32_t>(Size());

    // Running mean and variance: Welford, Technometrics 4 (1962).
    double squares = 0.0;
    for (std::uint32_t cell = 0; cell < m_numOccupied; ++cell) {
        const double count = m_cellStart[cell + 1] - m_cellStart[cell];
        const double delta = count - result.meanPointsPerCell;
        result.meanPointsPerCell += delta / (cell + 1.0);
        squares += delta * (count - result.meanPointsPerCell);
    }
    if (m_numOccupied > 1) result.stdDevPointsPerCell = std::sqrt(squares / (m_numOccupied - 1.0));
    return result;
}

void CSearchGrid::search_NN(const Vector3& q, const std::uint32_t* cube, Nearest& nearest) const
{
    for (std::uint32_t i = cube[0]; i < cube[1]; ++i) {
        const float distSq = DistanceSq(m_sortedPoints[i], q);
        if (distSq < nearest.distSq) nearest = {distSq, i};
    }
}

int CSearchGrid::Query_NN(const Vector3& q, float maxDistSq, float* distSq) const
{
    Nearest nearest{std::min(maxDistSq, m_queryRadiusSupremumSq), emptyCell};
    const IVector3D base = getCubeIdx(q);
    for (unsigned k = 0; k < numDirections; ++k) {
        const IVector3D idx = base + getNeighborDir(k);
        if (const std::uint32_t* cube = getCube(idx); cube != nullptr) {
            if (k == 0 || boxDistanceSq(getBBox(idx), q) < nearest.distSq) search_NN(q, cube, nearest);
        }
        if (k == 0 && nearest.position != emptyCell && faceDistanceSq(getBBox(base), q) >= nearest.distSq) break;
    }
    const bool isFound = nearest.position != emptyCell;
    if (distSq != nullptr) *distSq = isFound ? nearest.distSq : std::numeric_limits<float>::infinity();
    return isFound ? static_cast<int>(m_permutation[nearest.position]) : -1;
}

void CSearchGrid::search_Ball(const kdtree::Ball<3>& ball, const std::uint32_t* cube, std::vector<unsigned>& out) const
{
    for (std::uint32_t i = cube[0]; i < cube[1]; ++i) {
        if (DistanceSq(m_sortedPoints[i], ball.center) <= ball.radiusSq) out.push_back(m_permutation[i]);
    }
}

void CSearchGrid::QueryRange(std::vector<unsigned>& out, const kdtree::Ball<3>& ball) const
{
    const IVector3D base = getCubeIdx(ball.center);
    for (unsigned k = 0; k < numDirections; ++k) {
        const IVector3D idx = base + getNeighborDir(k);
        if (const std::uint32_t* cube = getCube(idx); cube != nullptr) {
            if (k == 0 || !(ball.radiusSq < boxDistanceSq(getBBox(idx), ball.center))) search_Ball(ball, cube, out);
        }
        if (k == 0 && faceDistanceSq(getBBox(base), ball.center) >= ball.radiusSq) break;
    }
}

} // namespace Zorvan
