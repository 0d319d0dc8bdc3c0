// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scan.h"

namespace Zorvan {

/// The rotation of a single-precision pose, made one in double.
[[nodiscard]] ZORVAN_SCANS_API FramePose ToFramePose(const prereg::CTrafo& pose);
[[nodiscard]] ZORVAN_SCANS_API prereg::CTrafo ToTrafo(const FramePose& pose);

/// With all digits that are known. The scan has a pose.
[[nodiscard]] ZORVAN_SCANS_API FramePose ExactPoseOf(const ScanPose& scan);

/// What a scan has that its frame is named after.
[[nodiscard]] ZORVAN_SCANS_API ScanPose IdentityPose();

/// Whether single precision steps by more than some micrometres at the translation of the pose.
[[nodiscard]] ZORVAN_SCANS_API bool IsFar(const ScanPose& scan);

/// The pose between points about `from` (of the scan) and about `to` (of the cluster); see `Scan::shift`. Without
/// shifts the one that the file has.
[[nodiscard]] ZORVAN_SCANS_API prereg::CTrafo PoseAbout(const ScanPose& scan, const Position& from, const Position& to);
/// `flt` in the frame of `fix`, between points about their shifts.
[[nodiscard]] ZORVAN_SCANS_API prereg::CTrafo PoseAbout(const ScanPose& fix, const ScanPose& flt,
                                                        const Position& fixShift, const Position& fltShift);

/// Gives the scan a pose in its own coordinates.
ZORVAN_SCANS_API void SetPose(ScanPose& scan, const FramePose& pose);
/// Gives the scan a pose that was found between points about shifts.
ZORVAN_SCANS_API void SetPoseAbout(ScanPose& scan, const prereg::CTrafo& pose, const Position& from,
                                   const Position& to);

} // namespace Zorvan
