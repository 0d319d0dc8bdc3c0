// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/ringlines.h"

#include <cstddef>
#include <vector>

namespace Zorvan {

/// Points with their normals.
struct SurfaceSamples
{
    prereg::Vectors points;
    prereg::Vectors normals;
};

/// The surface that a spinning sensor saw, between its rings too. Along a ring the points are dense and noisy, across
/// it they are sparse: so each ring is smoothed over as far as columns lie apart, and rings are joined where one
/// surface goes on from one to the next. All in the inverse of the range over azimuth and elevation, in which planes
/// are straight.
///
///     if (const auto rings = FindRings(points, sensor)) {
///         const CRingSurface surface(*rings);
///         scan.normals = surface.NormalsOf(points.size()); // zero where nothing holds one
///     }
///
/// Columns are as far apart as a square is wide that has as many points of the scan as the surface has samples, or as
/// much noise of the ranges makes necessary. Immutable; same rings, same surface.
class ZORVAN_SCANS_API CRingSurface
{
public:
    explicit CRingSurface(RingLines lines);

    /// Of the points of the scan, unit length, towards the sensor. Zero where no neighbouring ring lies on the same
    /// surface.
    [[nodiscard]] prereg::Vectors NormalsOf(std::size_t numPoints) const;
    /// The surface in equal steps along the rings and across, where it holds a normal.
    [[nodiscard]] SurfaceSamples Sample() const;

private:
    /// Where a ring crosses a column.
    struct Node
    {
        double dInverse = 0.0; ///< of the range; 0: no surface
        double dAlong = 0.0;   ///< its derivative by the azimuth
        double dAcross = 0.0;  ///< by the elevation, where it is held
        std::size_t uiRun = 0;
        bool isHeld = false;     ///< the surface goes on to the ring above or below
        bool isJoinedUp = false; ///< to the one above

        [[nodiscard]] explicit operator bool() const { return dInverse > 0.0; }
    };

    void chooseColumns();
    void fitRing(std::size_t ring);
    void fitRun(std::size_t ring, std::size_t run);
    void joinRings(std::size_t lower);
    void slopeAcross(std::size_t ring, std::size_t column);
    [[nodiscard]] Vector3 normalAt(const Ring& ring, std::size_t row, std::size_t run, double azimuth) const;
    [[nodiscard]] bool isOneSurface(std::size_t lower, std::size_t column) const;
    [[nodiscard]] double tiltUp(std::size_t lower, std::size_t column) const;
    [[nodiscard]] double gapAbove(std::size_t ring) const;
    [[nodiscard]] Node& at(std::size_t ring, std::size_t column) { return m_nodes[ring * m_columns + column]; }
    [[nodiscard]] const Node& at(std::size_t ring, std::size_t column) const
    {
        return m_nodes[ring * m_columns + column];
    }
    [[nodiscard]] double azimuthOf(std::size_t column) const
    {
        return m_first + m_column * static_cast<double>(column);
    }
    void addSample(const Node& node, double azimuth, double elevation, SurfaceSamples& samples) const;
    [[nodiscard]] Node between(std::size_t lower, std::size_t column, double share) const;

    RingLines m_lines;
    double m_column = 0.0; ///< azimuth between columns
    double m_first = 0.0;
    double m_tiltNoise = 0.0; ///< of the tilt between two rings, radians
    std::size_t m_columns = 0;
    std::vector<Node> m_nodes; ///< ring by ring
};

} // namespace Zorvan
