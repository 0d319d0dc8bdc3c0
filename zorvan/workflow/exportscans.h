// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/posesfile.h"
#include "zorvan/workflow/export.h"

#include <cstddef>
#include <filesystem>
#include <span>

namespace prereg {

/// Writes the originals of the primary cluster, all points with their attributes, as one file: E57 holds them as scans
/// with their poses, PLY, PCD and LAS one cloud in the frame of the cluster. All of them are in memory; where they are
/// too large for that, `Zorvan::MoveScanFile` takes one file after the other.
/// @param to     its ending decides: .e57, .ply, .pcd or .las
/// @param files  of the scans, found by name in `poses`; of several scans in a file each is looked for
/// @param poses  of which the primary cluster counts, or else the first, as for `FindMove`
/// @return       how many scans are in it; nothing is written for none
/// @throws CInputError
ZORVAN_WORKFLOW_API std::size_t ExportScans(const std::filesystem::path& to,
                                            std::span<const std::filesystem::path> files,
                                            const Zorvan::PosesFile& poses);

} // namespace prereg
