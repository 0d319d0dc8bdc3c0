// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace Zorvan {

/// From which size on a file is thinned while it is read, and what is kept of it then.
struct ThinLimits
{
    std::uint64_t uiMostBytes = std::uint64_t{256} << 20U; ///< a file of more is not read as a whole
    std::size_t uiMostPoints = 4000000;                    ///< that are kept of it, 1/1000 of the extent apart or less
};

/// Whether a file is too large to be read as a whole, and of a kind that can be thinned: PLY without faces and range
/// grid, PCD that is no image, LAS, E57, PTX, PTS, XYZ and XYZN. False for what cannot be read.
[[nodiscard]] ZORVAN_SCANS_API bool IsReadThinned(const std::filesystem::path& file, const ThinLimits& limits = {});

/// A scan of which the first point in each cell of a lattice was kept, see CThinnedCloud.
struct ThinnedScan
{
    Scan scan; ///< without colours and intensities
    std::uint64_t uiRead = 0;
    std::uint64_t uiNotFinite = 0;
    double dCell = 0.0; ///< in the unit of the file; 0: all points are there
};

/// Reads a file in blocks, all scans in it as one. Some 300 MB are in memory, with a compressed PCD its bytes as well.
/// @param hooks  hears of bytes
/// @throws CInputError  also when the hooks stop it: a part of a file is no scan
[[nodiscard]] ZORVAN_SCANS_API ThinnedScan ReadThinned(const std::filesystem::path& file, const ThinLimits& limits = {},
                                                       const Hooks& hooks = Hooks::None());

} // namespace Zorvan
