// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <span>

namespace Zorvan {

/// What to take off coordinates before they become floats. A float has 24 bits: at the northing of a map grid in metres
/// it steps by half a metre. Zero unless the middle of the points is further from the origin than 64 times their
/// extent (then rounding would reach 4e-6 of the extent, and sums of squares would lose more); else their middle,
/// rounded to a power of ten above the extent, so that it reads well and axes that are near keep their coordinates.
/// Middle and extent come from quantiles over at most 4096 finite points, taken at equal steps: some stray points at
/// the origin change nothing. Same points in the same order, same shift.
[[nodiscard]] ZORVAN_SCANS_API Position ShiftFor(std::span<const Position> points);

/// Makes `points` those of the scan, about the shift that suits them.
ZORVAN_SCANS_API void SetPoints(Scan& scan, std::span<const Position> points);

/// Takes the shift that suits the points off them. Digits that single precision has lost do not come back.
ZORVAN_SCANS_API void ShiftFarPoints(Scan& scan);

/// Goes over to another shift, sensor too: zeros bring the coordinates of the file back, with the rounding of a float.
ZORVAN_SCANS_API void SetShift(Scan& scan, const Position& shift);

/// The one shift for the scans of a call: the first that is not zero, so that adding scans at the end does not change
/// it. Scans with a shift of zero are near the origin and stay there; one that is moved to a shift far from its own
/// loses digits, as it would near the origin.
[[nodiscard]] ZORVAN_SCANS_API Position CommonShift(std::span<const Position> shifts);

/// A pose between shifted coordinates as one between those of the files: p' = R p + t in both.
/// @param pose   from (points about `from`) to (points about `to`)
[[nodiscard]] ZORVAN_SCANS_API FramePose WithoutShifts(const FramePose& pose, const Position& from, const Position& to);

} // namespace Zorvan
