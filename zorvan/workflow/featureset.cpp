// SPDX-License-Identifier: MIT
#include "zorvan/workflow/featureset.h"

#include "zorvan/platform/cpufeatures.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/workflow/featuresizes.h"

namespace prereg {

std::shared_ptr<const CFPFHPointSet> ComputeFeatureSet(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config,
                                                       unsigned uiNumTasks, double dMmPerUnit, const GpuContext& gpu)
{
    return ComputeFeatureSet(scan, config, uiNumTasks, dMmPerUnit, gpu, Zorvan::Hooks::None());
}

std::shared_ptr<const CFPFHPointSet> ComputeFeatureSet(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config,
                                                       unsigned uiNumTasks, double dMmPerUnit, const GpuContext& gpu,
                                                       const Zorvan::Hooks& hooks)
{
    if (Zorvan::GetSimd() != Zorvan::ESimd::Avx)
        throw Zorvan::CInputError(
            "a search without a start pose needs a processor with AVX; align two scans with --initial");
    CheckFeatureSizes(scan, config, dMmPerUnit);
    CFPFHDataSource source(config, uiNumTasks, gpu);
    const bool isDone = source.Load(scan.points.data(), scan.normals.data(), nullptr, scan.points.size(), hooks);
    if (!isDone && hooks.IsAborted()) return nullptr;
    return std::make_shared<const CFPFHPointSet>(source);
}

} // namespace prereg
