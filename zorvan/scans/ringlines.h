// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/vectors.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace Zorvan {

/// A point as a spinning sensor measured it: azimuth in radians, range in the unit of the scan.
struct RingPoint
{
    double dAzimuth = 0.0;
    double dRange = 0.0;
    std::uint32_t uiIndex = 0; ///< in the scan
};

/// What one beam of a spinning sensor met on a turn.
struct Ring
{
    double dElevation = 0.0;       ///< radians
    std::vector<RingPoint> points; ///< by azimuth
    /// Stretches of the points on which the surface goes on, as [begin, end). What lies off both of its neighbours is
    /// in none of them.
    std::vector<std::pair<std::size_t, std::size_t>> runs = {};
};

/// A scan, ring by ring from below.
struct RingLines
{
    Vector3 sensor;
    double dMiddle =
        0.0;             ///< azimuth about which the others are counted, so that the scan lies within half a turn of it
    double dStep = 0.0;  ///< azimuth from point to point, median
    double dGap = 0.0;   ///< elevation from ring to ring, median
    double dRange = 0.0; ///< median
    double dNoise = 0.0; ///< standard deviation of the ranges, from their second differences along the rings
    std::vector<Ring> rings;
};

/// Tells the rings of a spinning sensor apart by the gaps between their elevations: within a ring those are at most a
/// third as large as the least between two rings. Points may come in any order and with any noise of their ranges.
/// @param sensor  about which z axis it spun
/// @return        nothing where the elevations show no gaps, or fewer than four rings
[[nodiscard]] ZORVAN_SCANS_API std::optional<RingLines> FindRings(const prereg::Vectors& points, const Vector3& sensor);

} // namespace Zorvan
