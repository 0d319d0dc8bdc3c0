// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>

namespace Zorvan {

/// Makes one point of all points at exactly the same place: the first of them stays, with the sum of their normals and
/// its own colour and intensity, and faces that lose their area go. The order is kept; a scan without such points stays
/// as it is. All points are finite.
/// @return the number of points that went
///
/// Formats that give every corner of a face a vertex of its own need it before normals can be taken from the faces, and
/// searches for neighbours stay fast, since none of them meets a heap of equal points.
ZORVAN_SCANS_API std::size_t JoinEqualPoints(Scan& scan);

} // namespace Zorvan
