// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <vector>

namespace Zorvan {

/// Puts the scan into the frame that its file shares: points, normals and sensor move with `pose`, which goes, and the
/// shift is chosen anew.
ZORVAN_SCANS_API void PutInFileFrame(Scan& scan);

/// All scans of a file as one, in the frame that they share, about the shift of the first. Normals, colours and
/// intensities stay where every scan has them, the sensor where there is one scan.
/// @param scans  none of them empty of points
[[nodiscard]] ZORVAN_SCANS_API Scan JoinScans(std::vector<Scan> scans);

} // namespace Zorvan
