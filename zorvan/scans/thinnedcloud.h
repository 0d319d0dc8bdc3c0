// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Zorvan {

/// Points that come one after another, of which so many are kept as may be: all of them while there is room, then the
/// first one in each cell of a lattice, which is made coarser whenever the room is full again. Cells of a lattice lie
/// in cells of the next, so what is left is the first point of each last cell in the order of the file, whenever the
/// lattice grew. Points with a coordinate that is not finite are passed over.
///
///     CThinnedCloud cloud(4000000);
///     while (next(place)) cloud.TakePoint(place, nullptr);
///     const Scan scan = cloud.ToScan();
///
/// Some 50 bytes for each point that may be kept, whatever the number of those that come.
class ZORVAN_SCANS_API CThinnedCloud
{
public:
    /// @param uiMost  at least 16
    explicit CThinnedCloud(std::size_t uiMost);

    /// @param normal  null where there is none
    void TakePoint(const Position& place, const Position* normal);
    /// Its frame in that of the points.
    void SetSensor(const std::optional<FramePose>& sensor) { m_sensor = sensor; }

    /// How many came, and how many of them were not finite.
    [[nodiscard]] std::uint64_t NumTaken() const { return m_taken; }
    [[nodiscard]] std::uint64_t NumNotFinite() const { return m_notFinite; }
    /// Edge of a cell, in the unit of the points, a power of two; 0 while all are kept.
    [[nodiscard]] double GetCell() const { return m_cell; }
    /// The points about the shift that suits them; nothing is left here. Normals when all points had one.
    [[nodiscard]] Scan ToScan();

private:
    using Cell = std::array<double, 3>;

    [[nodiscard]] Cell cellOf(const Position& place) const;
    /// @return false when the cell of the place has a point already
    bool claim(const Position& place);
    void coarsen();
    [[nodiscard]] double firstCell() const;

    std::size_t m_most;
    std::vector<Position> m_places;
    prereg::Vectors m_normals;
    bool m_hasNormals = true;
    std::vector<std::uint32_t> m_slots; ///< open addressing: numbers of points; empty before there is a lattice
    std::uint32_t m_next = 0;           ///< the number of the next point that claims a cell
    double m_cell = 0.0;
    std::uint64_t m_taken = 0;
    std::uint64_t m_notFinite = 0;
    std::optional<FramePose> m_sensor;
};

} // namespace Zorvan
