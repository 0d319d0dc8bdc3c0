// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/features/cfpfhdatasource_gpu.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"

#include <memory>

namespace prereg {

using GpuContext = std::shared_ptr<CFPFHDataSource::GPUContext>;

/// The scan with its features; see `IsTooLean` for whether it is any good.
/// @param dMmPerUnit  for the lengths in messages
/// @param gpu         null: the processor computes
/// @throws CInputError when the processor cannot compute features, or the sizes make no sense for this scan
[[nodiscard]] ZORVAN_WORKFLOW_API std::shared_ptr<const CFPFHPointSet>
ComputeFeatureSet(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config, unsigned uiNumTasks,
                  double dMmPerUnit, const GpuContext& gpu = nullptr);

/// @return  null when the hooks stop it
[[nodiscard]] ZORVAN_WORKFLOW_API std::shared_ptr<const CFPFHPointSet>
ComputeFeatureSet(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config, unsigned uiNumTasks,
                  double dMmPerUnit, const GpuContext& gpu, const Zorvan::Hooks& hooks);

} // namespace prereg
