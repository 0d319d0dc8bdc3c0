// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string_view>

namespace Zorvan {

/// Reads OBJ: vertices, normals where every corner of every face has one, polygons cut into triangles as fans; points
/// alone when there are no faces. Materials are not looked for. Corners of faces are points of their own: see
/// `JoinEqualPoints`.
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API Scan ReadObj(std::string_view bytes, const std::filesystem::path& file);

} // namespace Zorvan
