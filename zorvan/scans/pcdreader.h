// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/pcdheader.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace Zorvan {

/// Reads a PCD file, versions 0.5 to 0.7: text, binary (little endian) and compressed.
///
/// Taken are x, y, z and, when all three are there, normal_x, normal_y, normal_z; rgb or rgba, and intensity. Points
/// keep their order and number, those that are NaN too. Neighbouring pixels of an image (HEIGHT above 1) are joined to
/// triangles, see `FacesFromRangeGrid`. The view point becomes the sensor; that of 0 0 0 1 0 0 0 only for an image,
/// since programs write it when they know of none. Points far from the origin come about a shift.
///
/// @param bytes  the whole file
/// @throws CInputError naming the line (text) or byte (binary), and never allocates more than the file can hold
[[nodiscard]] ZORVAN_SCANS_API Scan ReadPcd(std::string_view bytes, const std::filesystem::path& file);

/// The points of a compressed file, field by field.
/// @param body  what stands behind the header: the sizes, and the block
[[nodiscard]] ZORVAN_SCANS_API std::string ExpandPcd(const PcdHeader& header, std::string_view body,
                                                     const std::filesystem::path& file);

} // namespace Zorvan
