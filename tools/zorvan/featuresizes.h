#pragma once

#include "scanreader.h"

#include "zorvan/features/configurationfpfh.h"

namespace tools {

/// Refuses sizes that the library would refuse with a word to the log, or compute nothing useful from.
/// @param dMmPerUnit  for the lengths in the message
/// @throws CInputError that says which size and what to do
void CheckFeatureSizes(const SurfelScan& scan, const prereg::ConfigurationFPFH& config, double dMmPerUnit);

} // namespace tools
