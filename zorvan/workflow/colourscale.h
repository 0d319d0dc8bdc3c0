// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/scan.h"
#include "zorvan/workflow/export.h"

namespace prereg {

/// From dark blue at 0 over green to yellow at 1, growing ever lighter, so that it reads well in grey and without
/// telling red from green. Values outside get the end that they are beyond, NaN that of 0.
[[nodiscard]] ZORVAN_WORKFLOW_API Zorvan::Rgb ColourAt(double value);

} // namespace prereg
