// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/configurationfpfh.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"

namespace prereg {

/// Refuses sizes that the library would refuse with a word to the log, or compute nothing useful from.
/// @param dMmPerUnit  for the lengths in the message
/// @throws CInputError that says which size and what to do
ZORVAN_WORKFLOW_API void CheckFeatureSizes(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config,
                                           double dMmPerUnit);

} // namespace prereg
