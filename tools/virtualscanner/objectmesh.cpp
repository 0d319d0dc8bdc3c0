// SPDX-License-Identifier: MIT
#include "objectmesh.h"

#include "zorvan/numerics/symsolvers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace tools {

namespace {

using Zorvan::Vector3;

constexpr std::uint32_t uiNone = std::numeric_limits<std::uint32_t>::max();

class CDualContouring
{
public:
    CDualContouring(const AVirtualObject& object, double cell)
        : m_object(object),
          m_cell(static_cast<float>(cell)),
          m_side(static_cast<std::size_t>(std::ceil(2.0 * static_cast<double>(object.GetTraits().radius) / cell)) + 3),
          m_low(object.GetTraits().middle - Vector3(1, 1, 1) * (0.5F * m_cell * static_cast<float>(m_side - 1))),
          m_isInside(m_side * m_side * m_side),
          m_corners(m_isInside.size(), uiNone)
    {
    }

    Zorvan::Scan Mesh()
    {
        forAll(m_side, [&](const Place& at) { m_isInside[index(at)] = m_object.Distance(pointAt(at)) < 0.0F; });
        forAll(m_side - 1, [&](const Place& at) { addCorner(at); });
        forAll(m_side - 1, [&](const Place& at) {
            for (std::size_t axis = 0; axis < 3; ++axis) addQuad(at, axis);
        });
        return std::move(m_mesh);
    }

private:
    using Place = std::array<std::size_t, 3>;

    template <typename Work>
    static void forAll(std::size_t side, const Work& work)
    {
        for (std::size_t z = 0; z < side; ++z)
            for (std::size_t y = 0; y < side; ++y)
                for (std::size_t x = 0; x < side; ++x) work(Place{x, y, z});
    }

    [[nodiscard]] std::size_t index(const Place& at) const { return (at[2] * m_side + at[1]) * m_side + at[0]; }
    [[nodiscard]] Vector3 pointAt(const Place& at) const
    {
        return m_low +
               Vector3(static_cast<float>(at[0]), static_cast<float>(at[1]), static_cast<float>(at[2])) * m_cell;
    }
    [[nodiscard]] static Place shifted(Place at, std::size_t axis)
    {
        ++at[axis];
        return at;
    }

    /// Where the surface passes between an inner and an outer point.
    [[nodiscard]] Vector3 crossing(Vector3 inside, Vector3 outside) const
    {
        for (int i = 0; i < 20; ++i) {
            const Vector3 middle = (inside + outside) * 0.5F;
            (m_object.Distance(middle) < 0.0F ? inside : outside) = middle;
        }
        return outside;
    }

    /// The crossings of the surface with the twelve edges of a cell.
    [[nodiscard]] std::vector<Vector3> crossings(const Place& at) const
    {
        std::vector<Vector3> points;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const std::size_t u = (axis + 1) % 3;
            const std::size_t v = (axis + 2) % 3;
            for (const Place& low : {at, shifted(at, u), shifted(at, v), shifted(shifted(at, u), v)}) {
                const Place high = shifted(low, axis);
                const bool isLowInside = m_isInside[index(low)];
                if (isLowInside == m_isInside[index(high)]) continue;
                points.push_back(isLowInside ? crossing(pointAt(low), pointAt(high))
                                             : crossing(pointAt(high), pointAt(low)));
            }
        }
        return points;
    }

    /// Where the planes at the points meet, from the middle of these; along directions in which they hardly differ, as
    /// those of a flat or rounded surface do, not away from it.
    std::array<double, 3> cornerFrom(const std::vector<Vector3>& points, const Vector3& middle) const
    {
        constexpr double dLeast = 0.1;  // singular value, of the largest
        std::array<double, 6> normal{}; // packed sum of n n'
        std::array<double, 3> right{};
        for (const Vector3& p : points) {
            const Vector3 n = m_object.Normal(p);
            const auto offset = static_cast<double>(Dot(n, p - middle));
            for (unsigned row = 0, at = 0; row < 3; ++row) {
                right[row] += static_cast<double>(n[row]) * offset;
                for (unsigned column = 0; column <= row; ++column, ++at)
                    normal[at] += static_cast<double>(n[row]) * static_cast<double>(n[column]);
            }
        }
        std::array<double, 3> values{};
        std::array<double, 9> vectors{};
        std::array<double, 6> work{};
        Zorvan::symsolvers::JacobiIteration(normal.data(), values.data(), vectors.data(), 3, 50, work.data());
        const double least = dLeast * dLeast * *std::ranges::max_element(values);
        std::array<double, 3> step{};
        for (std::size_t k = 0; k < 3; ++k) {
            if (!(values[k] > least)) continue;
            double along = 0.0;
            for (std::size_t row = 0; row < 3; ++row) along += vectors[3 * row + k] * right[row] / values[k];
            for (std::size_t row = 0; row < 3; ++row) step[row] += along * vectors[3 * row + k];
        }
        return step;
    }

    void addCorner(const Place& at)
    {
        const std::vector<Vector3> points = crossings(at);
        if (points.empty()) return;
        Vector3 middle;
        for (const Vector3& p : points) middle = middle + p * (1.0F / static_cast<float>(points.size()));
        const std::array<double, 3> step = cornerFrom(points, middle);
        const Vector3 low = pointAt(at);
        Vector3 corner;
        for (unsigned k = 0; k < 3; ++k)
            corner[k] = std::clamp(middle[k] + static_cast<float>(step[k]), low[k], low[k] + m_cell);
        m_corners[index(at)] = static_cast<std::uint32_t>(m_mesh.points.size());
        m_mesh.points.push_back(corner);
    }

    /// Joins the corners of the four cells around an edge that the surface passes.
    void addQuad(const Place& at, std::size_t axis)
    {
        const std::size_t u = (axis + 1) % 3;
        const std::size_t v = (axis + 2) % 3;
        const bool isInside = m_isInside[index(at)];
        if (at[u] == 0 || at[v] == 0 || isInside == m_isInside[index(shifted(at, axis))]) return;
        const auto corner = [&](std::size_t du, std::size_t dv) {
            Place cell = at;
            cell[u] -= du;
            cell[v] -= dv;
            return m_corners[index(cell)];
        };
        std::array<std::uint32_t, 4> quad{corner(1, 1), corner(0, 1), corner(0, 0), corner(1, 0)};
        if (!isInside) std::swap(quad[1], quad[3]);
        m_mesh.faces.push_back({quad[0], quad[1], quad[2]});
        m_mesh.faces.push_back({quad[0], quad[2], quad[3]});
    }

    const AVirtualObject& m_object;
    float m_cell;
    std::size_t m_side; ///< points of the lattice along each axis
    Vector3 m_low;
    std::vector<bool> m_isInside;
    std::vector<std::uint32_t> m_corners; ///< of the cells, by their low point
    Zorvan::Scan m_mesh;
};

} // namespace

Zorvan::Scan MeshObject(const AVirtualObject& object, double dCell) { return CDualContouring(object, dCell).Mesh(); }

} // namespace tools
