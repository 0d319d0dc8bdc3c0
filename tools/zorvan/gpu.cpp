// SPDX-License-Identifier: MIT
#include "gpu.h"
#include "options.h"

namespace tools {

void GpuOptions::AddTo(CCommand command)
{
    command.AddFlag("--gpu", isWanted,
                    "Compute features on the best OpenCL device (see zorvan devices); without one,\non the processor");
}

std::shared_ptr<prereg::CFPFHDataSource::GPUContext> GpuOptions::MakeContext(bool isQuiet) const
{
    if (!isWanted) return nullptr;
    auto context = std::make_shared<prereg::CFPFHDataSource::GPUContext>();
    if (*context) return context;
    Tell("--gpu: no OpenCL device that works; the processor computes the features", isQuiet);
    return nullptr;
}

} // namespace tools
