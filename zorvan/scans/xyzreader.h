// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string_view>

namespace Zorvan {

/// Reads points as text, one a line: x y z, or x y z nx ny nz when the first line has six columns or more; further
/// columns are passed over. Columns are separated by blanks, tabs, commas or semicolons; empty lines and lines that
/// begin with '#' are skipped. The classic locale holds.
/// @throws CInputError naming the line
[[nodiscard]] ZORVAN_SCANS_API Scan ReadXyz(std::string_view bytes, const std::filesystem::path& file);

} // namespace Zorvan
