// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>

namespace Zorvan {

/// Points on the faces of a mesh.
struct MeshSamples
{
    prereg::Vectors points;
    prereg::Vectors normals; ///< of the faces, unit length; the winding decides the side
    double dGrid = 0.0;      ///< sqrt(area / points) that was aimed at: the grid that was asked for, or a coarser one
    double dArea = 0.0;      ///< of all faces that could be sampled
};

/// A mesh as the surface that it is: its vertices stand where the modeller needed them, eight for a cube and thousands
/// in a fillet, while registration wants points that are spread as evenly as those of a scan. One point per square of
/// the grid, wherever the faces lie.
///
///     const auto cad = Zorvan::ReadScanFile("part.stl");
///     const auto surface = Zorvan::SampleMesh(cad, 0.3);
///
/// Faces share the points by area, in the order of the mesh: each begins where the sum of areas has passed the next
/// multiple of the share of a point, so the error of any part of the mesh is below one point for each time that its
/// boundary cuts the order. Where in a face they lie follows a low-discrepancy sequence (M. Roberts, "The unreasonable
/// effectiveness of quasirandom sequences", 2018), folded into the triangle. Nothing is random: same mesh and grid,
/// same bytes.
/// @param mesh     faces with a corner that is not finite, and those without area, get no points
/// @param dGrid    mm, > 0
/// @param uiMost   no more points than this: the grid grows until they suffice
/// @return         empty for a mesh without area
/// @throws std::invalid_argument when the grid is not positive and finite, or a face names a point that is not there
[[nodiscard]] ZORVAN_SCANS_API MeshSamples SampleMesh(const Scan& mesh, double dGrid, std::size_t uiMost = 2'000'000);

} // namespace Zorvan
