// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"
#include "zorvan/workflow/primitivefit.h"

#include <string>

namespace prereg {

/// What a user knows of a radius, in file units: "radius=2.5". @param source  what messages name @throws CInputError
[[nodiscard]] ZORVAN_WORKFLOW_API RadiusLimits ReadFixedRadius(const std::string& source, const std::string& text,
                                                               double dMmPerUnit);
/// The same of two limits, the smaller one first: "radius=2:3".
[[nodiscard]] ZORVAN_WORKFLOW_API RadiusLimits ReadRadiusBounds(const std::string& source, const std::string& text,
                                                                double dMmPerUnit);

} // namespace prereg
