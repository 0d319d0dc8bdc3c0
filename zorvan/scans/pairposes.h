// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/posesfile.h"

#include <filesystem>
#include <vector>

namespace Zorvan {

/// A file with points about a shift; see `Scan::shift`.
struct ShiftedFile
{
    std::filesystem::path name;
    Position shift = {};
};

/// Two scans in one frame; for the pose of one in the frame of the other see `PoseAbout`.
struct PairPoses
{
    ScanPose fix;
    ScanPose flt;
};

/// The poses that a file has of two scans. Where it has none of `fix`, that is the identity.
/// @param dDefaultMmPerUnit  of a file that names no unit
/// @throws CInputError when it has no pose of `flt`, or has the two in frames of their own
[[nodiscard]] ZORVAN_SCANS_API PairPoses ReadPairPoses(const std::filesystem::path& poses,
                                                       const std::filesystem::path& fix,
                                                       const std::filesystem::path& flt, double dDefaultMmPerUnit);

/// All poses of `flt` in the frame of `fix` that the file has, between points about their shifts: that of the clusters
/// first, then its candidates.
/// @throws CInputError when there is none
[[nodiscard]] ZORVAN_SCANS_API std::vector<prereg::CTrafo> ReadCandidatePoses(const std::filesystem::path& poses,
                                                                              const ShiftedFile& fix,
                                                                              const ShiftedFile& flt,
                                                                              double dDefaultMmPerUnit);

} // namespace Zorvan
