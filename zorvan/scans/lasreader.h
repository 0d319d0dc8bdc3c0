// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string_view>

namespace Zorvan {

/// Reads a LAS file, versions 1.0 to 1.4, point formats 0 to 10; LAZ is refused.
///
/// Taken are the coordinates with scale and offset, the intensity and the colours; fields that are zero for all points
/// are as if they were not there, since a format has them all or none. Colours of 16 bits become bytes, and those of a
/// file whose values are all below 256 are taken for bytes. Times, classes, returns, waves and extra bytes are passed
/// over. Points keep their order and number and come about a shift when they are far from the origin.
///
/// @param bytes  the whole file
/// @throws CInputError naming the byte, and never allocates more than a few times the file
[[nodiscard]] ZORVAN_SCANS_API Scan ReadLas(std::string_view bytes, const std::filesystem::path& file);

} // namespace Zorvan
