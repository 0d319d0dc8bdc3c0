// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>

namespace Zorvan {

/// Writes the faces as binary STL in millimetres, whole or not at all; points without a face are not written.
/// @throws CInputError when the file cannot be written
ZORVAN_SCANS_API void WriteStl(const std::filesystem::path& file, const Scan& mesh);

} // namespace Zorvan
