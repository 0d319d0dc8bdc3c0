// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

namespace Zorvan {

/// Normals as they are at the scale of `cell` (mm): each the mean of its neighbours' within about that distance, for
/// scans whose noise is not small against their point spacing, so that the faces between neighbours say little.
/// Neighbours that look the other way belong to another surface and do not count; zero normals stay zero.
ZORVAN_SCANS_API void SmoothNormals(const prereg::Vectors& points, double cell, prereg::Vectors& normals);

} // namespace Zorvan
