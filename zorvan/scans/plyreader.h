// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string_view>

namespace Zorvan {

/// Reads a PLY file: ASCII, binary little and big endian, every scalar type, lists.
///
/// Taken are x, y, z and, when all three are there, nx, ny, nz and red, green, blue (or diffuse_red, ...) of the
/// element `vertex`, its intensity (or scalar_Intensity); polygons of `face` (`vertex_indices` or `vertex_index`), cut
/// into triangles as fans; and the cells of `range_grid`, joined to triangles when there are no faces. Everything else
/// is passed over. Vertices keep their order and number. Points far from the origin come about a shift.
///
/// @param bytes  the whole file
/// @throws CInputError naming the line (text) or byte (binary), and never allocates more than a few times the file
[[nodiscard]] ZORVAN_SCANS_API Scan ReadPly(std::string_view bytes, const std::filesystem::path& file);

} // namespace Zorvan
