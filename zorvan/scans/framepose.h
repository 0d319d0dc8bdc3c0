// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <optional>

namespace Zorvan {

/// R v
[[nodiscard]] ZORVAN_SCANS_API Position Rotate(const FramePose& pose, const Position& v);
/// R v + position
[[nodiscard]] ZORVAN_SCANS_API Position Transform(const FramePose& pose, const Position& v);
/// First `inner`, then `outer`.
[[nodiscard]] ZORVAN_SCANS_API FramePose Compose(const FramePose& outer, const FramePose& inner);
/// The other way round.
[[nodiscard]] ZORVAN_SCANS_API FramePose Inverse(const FramePose& pose);

/// With a unit quaternion; nothing when any number is not finite or the quaternion has no length.
[[nodiscard]] ZORVAN_SCANS_API std::optional<FramePose> Normalized(const FramePose& pose);

/// The pose with these rows; nothing when they are no rotation within 0.001.
[[nodiscard]] ZORVAN_SCANS_API std::optional<FramePose> FromRows(const std::array<Position, 3>& rotation,
                                                                 const Position& position);
/// The rows of R.
[[nodiscard]] ZORVAN_SCANS_API std::array<Position, 3> RotationRows(const FramePose& pose);

} // namespace Zorvan
