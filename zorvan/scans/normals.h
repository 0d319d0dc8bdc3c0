// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"
#include "zorvan/scans/vectors.h"

#include <optional>

namespace Zorvan {

/// Where the normals of a scan come from.
enum class ENormalSource
{
    File,
    Faces,
    PlaneFit
};

/// Where the sensor stood, in the unit of the scan; without a place it looks from far along +z.
using Sensor = std::optional<Vector3>;

/// Normals for all points of a scan without any: from its faces when it has some (smoothed over 1/200 of the extent
/// when the edges are shorter than a quarter of that), else from planes through neighbours. Points without a normal get
/// a zero vector. The points are finite and none appears twice. Where no sensor is known and the points lie on rings
/// about the origin, the sensor stood there: `scan.sensor` holds that then, and normals are those of `CRingSurface`.
ZORVAN_SCANS_API ENormalSource ComputeNormals(Scan& scan, const Sensor& sensor);

/// Mean of the normals of the faces around each point, weighted by their area; zero for points without a face. The
/// winding of the faces decides the side. Only when most of the area (70 %) looks away from the sensor is the whole
/// scan turned over: a closed surface, of which the sensor sees one half, keeps its outside.
[[nodiscard]] ZORVAN_SCANS_API prereg::Vectors NormalsFromFaces(const Scan& scan, const Sensor& sensor);

/// Normal of the plane through each point's nearest neighbours (12 of them, within 6 times the point spacing), turned
/// toward the sensor. Neighbours that lie on a line, as along the ring of a spinning sensor, are made more until they
/// span a surface (96 within 48 spacings at most). Zero with fewer than 5 neighbours, or when all of them lie on a
/// line.
[[nodiscard]] ZORVAN_SCANS_API prereg::Vectors NormalsFromPlaneFit(const prereg::Vectors& points, const Sensor& sensor);

} // namespace Zorvan
