// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/pointlistener.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string_view>
#include <vector>

namespace Zorvan {

/// Reads the scans of an E57 file (ASTM E2807), each in its own frame with its pose.
///
/// Taken are cartesian coordinates, or spherical ones without those, of floats, doubles, integers and scaled integers;
/// normals (nor:normalX, ...), colours within their limits, intensities as they are. Points that the file marks as
/// invalid are left out, also scans without points; images and other fields are passed over. A scan with a pose, or
/// with spherical coordinates, has its sensor in the origin of its frame. Every page that is read is checked.
///
/// @param bytes  the whole file
/// @throws CInputError naming the byte or the scan; never allocates more than a few times the file
[[nodiscard]] ZORVAN_SCANS_API std::vector<Scan> ReadE57(std::string_view bytes, const std::filesystem::path& file);

/// Hands all of its points to whoever listens, in place of keeping them: some megabytes are in memory, whatever its
/// size.
/// @throws CInputError, and Stopped where the hooks stop it
ZORVAN_SCANS_API void StreamE57(const std::filesystem::path& file, IPointListener& listener, const Hooks& hooks);

} // namespace Zorvan
