// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/platform/export.h"
#include "zorvan/platform/gpgpu.h"

#include <memory>

namespace prereg {

/// A compute device, made ready for features. Copies share it, and it serves one source at a time.
///
///     auto gpu = std::make_shared<CFPFHDataSource::GPUContext>();
///     CFPFHDataSource source(settings, numTasks, *gpu ? gpu : nullptr);
///
/// Features agree with those of this processor but for the order of summation, and for pairs so near the edge of a bin
/// that the approximate reciprocal root decides. An update of more than 750000 new points is computed by this processor
/// (logged).
class ZORVAN_API CFPFHDataSource::GPUContext
{
public:
    /// Looks for the best device of `GPGPU::CGPGPUFactory` and builds the kernels for it, which may take seconds. Ask
    /// for success by `operator bool`; a source that is given an empty context raises std::logic_error when it
    /// computes.
    GPUContext();

    explicit operator bool() const;

private:
    friend class CFPFHDataSource;

    std::shared_ptr<GPGPU::IGPGPUContext> m_context;
    std::shared_ptr<GPGPU::IGPGPUQueue> m_queue;
    std::shared_ptr<GPGPU::IGPGPUProgram> m_program;
    std::shared_ptr<GPGPU::IGPGPUKernel> m_spfhKernel;
    std::shared_ptr<GPGPU::IGPGPUKernel> m_fpfhKernel;
};

} // namespace prereg
