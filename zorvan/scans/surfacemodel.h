// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

namespace Zorvan {

/// What a file with triangles is taken for.
enum class EMesh
{
    Auto,  ///< see IsSurfaceModel
    Model, ///< a surface, wherever its corners stand; wants faces
    Scan   ///< points that a sensor has measured
};

/// Whether a mesh is a model of a surface (CAD, or scans that were merged into one skin), and not what one look of a
/// sensor saw:
/// - it is closed, or nearly so: its open edges together are shorter than the side of a square of its area. The rim of
///   what is seen from one side is longer: 3.5 sides around a flat disc, 1.8 where all of it lies 75 degrees steep;
/// - or more than half of its area lies in triangles ten times as large as the median one: flats of a part whose
///   fillets are made of slivers, with seams that do not close. A sensor spreads its points evenly.
/// Corners that are one point share one index: see JoinEqualPoints. False without faces.
[[nodiscard]] ZORVAN_SCANS_API bool IsSurfaceModel(const Scan& mesh);

/// Turns all faces over where the inside of a closed mesh has been made its outside: where its volume is negative. Open
/// ones stay.
ZORVAN_SCANS_API void TurnOutward(Scan& mesh);

} // namespace Zorvan
