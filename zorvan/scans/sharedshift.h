// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"

#include <span>
#include <string>
#include <vector>

namespace Zorvan {

/// Puts the scans of a call about one shift: the first that is not zero of `known` and theirs. A scan that is far from
/// it, such as a model at the origin beside scans at coordinates of a map, keeps its own.
/// @param known  that of scans that are there already, mm
/// @return the shift, mm; zeros when all scans are near the origin
ZORVAN_SCANS_API Position ShareShift(std::span<SurfelScan* const> scans, const Position& known = {});

/// The scans of a call, about one shift.
struct ScansRead
{
    std::vector<SurfelScan> scans;
    std::vector<std::string> refused; ///< why files were left out
    Position shift = {};              ///< mm
};

/// Reads each scan of some files and puts them about one shift.
/// @param known        shift of scans that are there already, mm
/// @param isKeptGoing  leaves out files that cannot be read, but not all
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API ScansRead ReadTogether(std::span<const std::string> files, const ScanOptions& options,
                                                      const Position& known = {}, bool isKeptGoing = false,
                                                      const Hooks& hooks = Hooks::None());

/// What is taken off the coordinates of a frame that scans have poses in (mm): `shift` of the scans, unless the first
/// scan with a pose lies elsewhere there. Then its place, in whole metres; zeros near the origin.
/// @param poses  one a scan, null or without a pose where none is known
[[nodiscard]] ZORVAN_SCANS_API Position FrameShiftFor(std::span<const SurfelScan> scans,
                                                      std::span<const ScanPose* const> poses, const Position& shift);

/// One line for people; empty for zeros.
[[nodiscard]] ZORVAN_SCANS_API std::string ShiftWords(const Position& shift, double dMmPerUnit);

} // namespace Zorvan
