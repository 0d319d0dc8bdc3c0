#pragma once

#include "scan.h"

#include <filesystem>
#include <span>

namespace tools {

/// Writes points, normals and colours when there are any, and faces as binary little-endian PLY, whole or not at all.
/// @param unitsPerMm  factor from the scan's millimetres to the unit of the file
/// @param colours     empty, or one a point
/// @throws CInputError when the file cannot be written
void WritePly(const std::filesystem::path& file, const Scan& scan, double unitsPerMm = 1.0,
              std::span<const Rgb> colours = {});

} // namespace tools
