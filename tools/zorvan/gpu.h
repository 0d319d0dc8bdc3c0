// SPDX-License-Identifier: MIT
#pragma once

#include "commandline.h"

#include "zorvan/features/cfpfhdatasource_gpu.h"

#include <memory>

namespace tools {

/// Where features are computed.
struct GpuOptions
{
    bool isWanted = false;

    void AddTo(CCommand command);
    /// The best device, made ready. Null when none is wanted, and also when none works: the processor then does the
    /// work, and one line says so unless `isQuiet`.
    [[nodiscard]] std::shared_ptr<prereg::CFPFHDataSource::GPUContext> MakeContext(bool isQuiet) const;
};

} // namespace tools
