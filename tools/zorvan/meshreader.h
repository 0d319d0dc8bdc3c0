#pragma once

#include "scan.h"

#include <filesystem>
#include <string_view>

namespace tools {

/// Reads STL (text or binary): triangles; the normals of the file are dropped, since they follow from the triangles.
/// Every corner is a point of its own: see `JoinEqualPoints`.
/// @throws CInputError, "truncated" for a binary file shorter than its count promises
[[nodiscard]] Scan ReadStl(std::string_view bytes, const std::filesystem::path& file);

/// Reads OBJ: vertices, normals where every face has them, polygons cut into triangles; points alone when there are no
/// faces. No other file is opened, whatever materials it names. Corners of faces are points of their own: see
/// `JoinEqualPoints`.
/// @throws CInputError
[[nodiscard]] Scan ReadObj(std::string_view bytes, const std::filesystem::path& file);

} // namespace tools
