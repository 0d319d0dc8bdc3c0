// SPDX-License-Identifier: MIT
#pragma once

#include "virtualobject.h"

#include "zorvan/scans/scan.h"

namespace tools {

/// The whole surface of an object as triangles with sharp edges, looking outward, in the object's coordinates: what its
/// maker has in CAD. Closed, but for what reaches out of the ball around the object. Corners of cells that the surface
/// passes are put where its tangent planes meet. Source: T. Ju, F. Losasso, S. Schaefer, J. Warren, "Dual contouring of
/// Hermite data", ACM Trans. Graph. 21 (2002).
/// @param dCell  side of a cell, mm; what is thinner gets lost
[[nodiscard]] Zorvan::Scan MeshObject(const AVirtualObject& object, double dCell);

} // namespace tools
