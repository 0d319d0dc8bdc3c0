// SPDX-License-Identifier: MIT
#include "zorvan/scans/rangegrid.h"

#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <limits>

namespace Zorvan {

namespace {

constexpr float fLongestEdge = 8.0F; // of the median edge; a slope of 80 degrees still passes

using Corners = std::array<std::int32_t, 4>; // counter-clockwise from the low left one

class CGridMesher
{
public:
    CGridMesher(const prereg::Vectors& points, const RangeGrid& grid) : m_points(points), m_grid(grid) {}

    std::vector<Face> Mesh()
    {
        m_maxEdgeSq = medianEdgeSq() * fLongestEdge * fLongestEdge;
        for (std::size_t row = 0; row + 1 < m_grid.rows; ++row) {
            for (std::size_t column = 0; column + 1 < m_grid.columns; ++column) addSquare(corners(row, column));
        }
        return std::move(m_faces);
    }

private:
    [[nodiscard]] std::int32_t cell(std::size_t row, std::size_t column) const
    {
        return m_grid.cells[row * m_grid.columns + column];
    }

    [[nodiscard]] Corners corners(std::size_t row, std::size_t column) const
    {
        return {cell(row, column), cell(row, column + 1), cell(row + 1, column + 1), cell(row + 1, column)};
    }

    [[nodiscard]] float edgeSq(std::int32_t a, std::int32_t b) const
    {
        return kdtree::DistanceSq(m_points[static_cast<std::size_t>(a)], m_points[static_cast<std::size_t>(b)]);
    }

    // Edges along the rows say enough. A length that is not a number must not reach the comparison of nth_element.
    [[nodiscard]] float medianEdgeSq() const
    {
        std::vector<float> edges;
        for (std::size_t row = 0; row < m_grid.rows; ++row) {
            for (std::size_t column = 0; column + 1 < m_grid.columns; ++column) {
                if (cell(row, column) < 0 || cell(row, column + 1) < 0) continue;
                const float length = edgeSq(cell(row, column), cell(row, column + 1));
                if (kdtree::IsFinite(length)) edges.push_back(length);
            }
        }
        if (edges.empty()) return std::numeric_limits<float>::infinity();
        const auto middle = edges.begin() + static_cast<std::ptrdiff_t>(edges.size() / 2);
        std::nth_element(edges.begin(), middle, edges.end());
        return *middle;
    }

    void addSquare(const Corners& c)
    {
        const auto missing = std::count_if(c.begin(), c.end(), [](std::int32_t i) { return i < 0; });
        if (missing > 1) return;
        if (missing == 1)
            addThree(c);
        else if (edgeSq(c[0], c[2]) <= edgeSq(c[1], c[3]))
            addPair(c[0], c[1], c[2], c[3]);
        else
            addPair(c[1], c[2], c[3], c[0]);
    }

    void addThree(const Corners& c)
    {
        Corners there{};
        std::copy_if(c.begin(), c.end(), there.begin(), [](std::int32_t i) { return i >= 0; });
        addTriangle(there[0], there[1], there[2]);
    }

    void addPair(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d)
    {
        addTriangle(a, b, c);
        addTriangle(a, c, d);
    }

    void addTriangle(std::int32_t a, std::int32_t b, std::int32_t c)
    {
        const float longest = std::max({edgeSq(a, b), edgeSq(b, c), edgeSq(c, a)});
        if (!(longest <= m_maxEdgeSq)) return;
        m_faces.push_back(
            {static_cast<std::uint32_t>(a), static_cast<std::uint32_t>(b), static_cast<std::uint32_t>(c)});
    }

    const prereg::Vectors& m_points;
    const RangeGrid& m_grid;
    float m_maxEdgeSq = 0.0F;
    std::vector<Face> m_faces;
};

} // namespace

std::vector<Face> FacesFromRangeGrid(const prereg::Vectors& points, const RangeGrid& grid)
{
    return CGridMesher(points, grid).Mesh();
}

} // namespace Zorvan
