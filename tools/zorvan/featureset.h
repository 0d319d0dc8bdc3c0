#pragma once

#include "scanreader.h"

#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"

#include <memory>

namespace tools {

/// The scan with its features; see `IsTooLean` for whether it is any good.
/// @param dMmPerUnit  for the lengths in messages
/// @throws CInputError when the processor cannot compute features, or the sizes make no sense for this scan
[[nodiscard]] std::shared_ptr<const prereg::CFPFHPointSet> ComputeFeatureSet(const SurfelScan& scan,
                                                                             const prereg::ConfigurationFPFH& config,
                                                                             unsigned uiNumTasks, double dMmPerUnit);

} // namespace tools
