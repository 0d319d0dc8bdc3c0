// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace Zorvan {

/// Reads STL (text or binary): triangles, and larger facets of a text cut into them as fans; the normals of the file
/// are dropped, since they follow from the triangles. Every corner is a point of its own: see `JoinEqualPoints`.
/// @throws CInputError naming the line of a text; "truncated" for a binary file shorter than its count promises, and
/// for a
///         text whose last solid does not end
[[nodiscard]] ZORVAN_SCANS_API Scan ReadStl(std::string_view bytes, const std::filesystem::path& file);

/// Whether an STL file is text. @param bytes  the file, or its beginning
[[nodiscard]] ZORVAN_SCANS_API bool IsTextStl(std::string_view bytes, std::uint64_t fileSize);

} // namespace Zorvan
