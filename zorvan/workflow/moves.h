// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/movescan.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scan.h"
#include "zorvan/workflow/export.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace prereg {

/// Where the points of a file go, in its unit.
struct FileMove
{
    std::filesystem::path file;
    std::optional<Zorvan::FramePose> pose = {};
    std::map<std::size_t, Zorvan::FramePose> ofScans = {}; ///< by number, of a file of several that were placed singly
    std::string why = {};                                  ///< it has no place in the common frame; empty when it has
};

/// Where a scan stands in the frame of a cluster of a poses file; nothing for one that has no pose or is not in it.
/// @param scan        found by its name
/// @param dMmPerUnit  of the lengths that are wanted; not positive: that of the poses
[[nodiscard]] ZORVAN_WORKFLOW_API std::optional<Zorvan::FramePose> PlaceInCluster(const Zorvan::PosesFile& poses,
                                                                                  std::size_t cluster,
                                                                                  const std::filesystem::path& scan,
                                                                                  double dMmPerUnit = 0.0);

/// What a poses file has of a file of scans, in the frame of its primary cluster.
/// @param dMmPerUnit  of the scans; not positive: that of the poses
/// @return            nothing when the poses do not know the file
[[nodiscard]] ZORVAN_WORKFLOW_API std::optional<FileMove>
FindMove(const Zorvan::PosesFile& poses, const std::filesystem::path& file, double dMmPerUnit = 0.0);

/// See MoveScanFile. @throws CInputError
ZORVAN_WORKFLOW_API Zorvan::MoveResult Apply(const FileMove& move, const std::filesystem::path& to,
                                             const Zorvan::Hooks& hooks = Zorvan::Hooks::None());

} // namespace prereg
