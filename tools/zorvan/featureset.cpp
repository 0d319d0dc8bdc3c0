#include "featureset.h"

#include "featuresizes.h"
#include "inputerror.h"

#include "zorvan/platform/cpufeatures.h"

namespace tools {

std::shared_ptr<const prereg::CFPFHPointSet> ComputeFeatureSet(const SurfelScan& scan,
                                                               const prereg::ConfigurationFPFH& config,
                                                               unsigned uiNumTasks, double dMmPerUnit,
                                                               const GpuContext& gpu)
{
    if (Zorvan::GetSimd() != Zorvan::ESimd::Avx)
        throw CInputError("a search without a start pose needs a processor with AVX; align two scans with --initial");
    CheckFeatureSizes(scan, config, dMmPerUnit);
    prereg::CFPFHDataSource source(config, uiNumTasks, gpu);
    source.Load(scan.points, scan.normals, nullptr);
    return std::make_shared<const prereg::CFPFHPointSet>(source);
}

} // namespace tools
