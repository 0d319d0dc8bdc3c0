// SPDX-License-Identifier: MIT
#include "zorvan/workflow/featureset.h"

#include "zorvan/platform/cpufeatures.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/workflow/featuresizes.h"

namespace prereg {

std::shared_ptr<const CFPFHPointSet> ComputeFeatureSet(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config,
                                                       unsigned uiNumTasks, double dMmPerUnit, const GpuContext& gpu)
{
    if (Zorvan::GetSimd() != Zorvan::ESimd::Avx)
        throw Zorvan::CInputError(
            "a search without a start pose needs a processor with AVX; align two scans with --initial");
    CheckFeatureSizes(scan, config, dMmPerUnit);
    CFPFHDataSource source(config, uiNumTasks, gpu);
    source.Load(scan.points, scan.normals, nullptr);
    return std::make_shared<const CFPFHPointSet>(source);
}

} // namespace prereg
