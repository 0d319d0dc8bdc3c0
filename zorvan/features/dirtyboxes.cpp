// SPDX-License-Identifier: MIT
#include "zorvan/features/dirtyboxes.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

constexpr double drift = 0.001; // more than the relative error of the approximate reciprocal
constexpr double nearFace = 0.499;

// Beyond the range the last cell, and the lowest for NaN (no radius, an infinite one), as the lattice has it.
std::int32_t toCell(double number)
{
    constexpr double lowest = std::numeric_limits<std::int32_t>::min();
    constexpr double highest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(number >= lowest ? std::min(number, highest) : lowest);
}

} // namespace

CDirtyBoxes::CDirtyBoxes(const std::vector<kdtree::Range<3>>& boxes, float cellSize)
    : m_boxes(cellSize), m_hull(kdtree::EmptyRange()), m_cellSize(cellSize)
{
    for (const auto& box : boxes) {
        const Vector3 center = 0.5F * (box.low + box.high);
        const LatticeCell cell{toCell(std::nearbyint(center.x / m_cellSize)),
                               toCell(std::nearbyint(center.y / m_cellSize)),
                               toCell(std::nearbyint(center.z / m_cellSize))};
        m_boxes.At(cell) = box;
        m_hull = {Min(m_hull.low, box.low), Max(m_hull.high, box.high)};
    }
    if (boxes.empty()) return;
    const float far = std::max(m_hull.high.Length(), m_hull.low.Length());
    const Vector3 slack = Vector3::Filled(static_cast<float>(m_cellSize + drift * far));
    m_hull = {m_hull.low - slack, m_hull.high + slack};
}

CDirtyBoxes::Span CDirtyBoxes::cellsAt(float coordinate) const
{
    const double position = coordinate / m_cellSize;
    const double nearest = std::nearbyint(position);
    const std::int64_t cell = toCell(nearest);
    return {position - nearest < -nearFace ? cell - 1 : cell, position - nearest > nearFace ? cell + 1 : cell};
}

unsigned CDirtyBoxes::countInHull(const Vector3& p) const
{
    const Span xs = cellsAt(p.x);
    const Span ys = cellsAt(p.y);
    const Span zs = cellsAt(p.z);
    unsigned count = 0;
    for (std::int64_t x = xs.first; x <= xs.last; ++x) {
        for (std::int64_t y = ys.first; y <= ys.last; ++y) {
            for (std::int64_t z = zs.first; z <= zs.last; ++z) {
                const auto* box = m_boxes.Find(
                    {static_cast<std::int32_t>(x), static_cast<std::int32_t>(y), static_cast<std::int32_t>(z)});
                if (box != nullptr && isInside(*box, p)) ++count;
            }
        }
    }
    return count == 0 && isInDirtyCell(p) ? 1 : count;
}

bool CDirtyBoxes::isInDirtyCell(const Vector3& p) const { return m_boxes.Find(m_boxes.Lattice().CellOf(p)) != nullptr; }

} // namespace prereg
