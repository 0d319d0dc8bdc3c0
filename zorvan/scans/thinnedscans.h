// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/pointlistener.h"
#include "zorvan/scans/thinreading.h"

#include <filesystem>
#include <vector>

namespace Zorvan {

/// As `ReadThinned`, but each scan of a file in its own frame, with its pose; none of them without points. The limits
/// hold for each.
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API std::vector<ThinnedScan>
ReadEachThinned(const std::filesystem::path& file, const ThinLimits& limits = {}, const Hooks& hooks = Hooks::None());

/// Walks through a file of points block by block, whatever its size: PLY, PCD (a compressed one is in memory), LAS,
/// E57, PTX, PTS, XYZ and XYZN. Of a PLY the vertices are told, with faces or without.
/// @throws CInputError  also when the hooks stop it
ZORVAN_SCANS_API void WalkPoints(const std::filesystem::path& file, IPointListener& listener, const Hooks& hooks);

} // namespace Zorvan
