// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>

namespace Zorvan {

struct MoveResult
{
    bool isStopped = false; ///< by the hooks; nothing is written then
    std::string words;      ///< for people: what had to be written otherwise than it was read; mostly empty
};

/// Writes a file of scans with all of its points moved and everything else in it as it is: unknown properties, faces,
/// colours, comments, the order of points. Normals are turned, what the file says of its sensor is moved. PLY, PCD,
/// LAS, STL, OBJ, PTS and XYZ get new coordinates, in double precision where single would round them; E57 and PTX hold
/// scans with poses, and get new poses. A compressed PCD is written without compression.
///
///     MoveScanFile("scan.las", "out/scan.las", pose);
///
/// A few megabytes are in memory, whatever the size of the file; a compressed PCD as a whole.
/// @param pose   from the frame of the file, in its unit
/// @param to     appears whole or not at all; ends as `from` does
/// @param hooks  hears of bytes
/// @throws CInputError
ZORVAN_SCANS_API MoveResult MoveScanFile(const std::filesystem::path& from, const std::filesystem::path& to,
                                         const FramePose& pose, const Hooks& hooks = Hooks::None());
/// The same for a file of several scans that are placed one by one: each gets the pose of its number (`Scan::number`)
/// from its own frame; a scan without one stays where it is.
ZORVAN_SCANS_API MoveResult MoveScanFile(const std::filesystem::path& from, const std::filesystem::path& to,
                                         const std::map<std::size_t, FramePose>& ofScans,
                                         const Hooks& hooks = Hooks::None());

} // namespace Zorvan
