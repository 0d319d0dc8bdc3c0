// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"

#include <string>
#include <vector>

namespace prereg {

/// "NAME: GPU, 24 compute units, 8 GiB, PLATFORM" for each device that can compute features, the one first that is
/// taken.
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::string> DescribeComputeDevices();

} // namespace prereg
