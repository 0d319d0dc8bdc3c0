// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/posesfile.h"

#include <nlohmann/json.hpp>

namespace Zorvan {

/// The shortest decimal number with so many digits; JSON would show all seventeen of the double behind it. Null for
/// what is not finite.
[[nodiscard]] ZORVAN_SCANS_API nlohmann::ordered_json JsonNumber(double value, int digits = 9);

/// Four rows of four numbers, the translation in file units; null for an invalid pose.
[[nodiscard]] ZORVAN_SCANS_API nlohmann::ordered_json JsonPose(const prereg::CTrafo& pose, double dMmPerUnit);

/// The same with all digits that are known, where the pose is far from the origin.
[[nodiscard]] ZORVAN_SCANS_API nlohmann::ordered_json JsonPose(const ScanPose& scan, double dMmPerUnit, bool isFar);

} // namespace Zorvan
