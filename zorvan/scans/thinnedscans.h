// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/thinreading.h"

#include <vector>

namespace Zorvan {

/// As `ReadThinned`, but each scan of a file in its own frame, with its pose; none of them without points. The limits
/// hold for each.
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API std::vector<ThinnedScan>
ReadEachThinned(const std::filesystem::path& file, const ThinLimits& limits = {}, const Hooks& hooks = Hooks::None());

} // namespace Zorvan
