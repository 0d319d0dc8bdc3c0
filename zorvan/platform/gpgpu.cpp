// SPDX-License-Identifier: MIT
#include "zorvan/platform/gpgpu.h"

#include "zorvan/platform/gpgpu_opencl.h"

#include <mutex>
#include <utility>

namespace GPGPU {

namespace {

struct Installed
{
    std::mutex mutex;
    std::shared_ptr<IGPGPUAccessor> accessor;
};

Installed& installed()
{
    static Installed service;
    return service;
}

} // namespace

CGPGPUError::~CGPGPUError() = default;
IGPGPUBuffer::~IGPGPUBuffer() = default;
IGPGPUKernel::~IGPGPUKernel() = default;
IGPGPUQueue::~IGPGPUQueue() = default;
IGPGPUProgram::~IGPGPUProgram() = default;
IGPGPUContext::~IGPGPUContext() = default;
IGPGPUDevice::~IGPGPUDevice() = default;
IGPGPUAccessor::~IGPGPUAccessor() = default;

std::shared_ptr<IGPGPUAccessor> CGPGPUFactory::TechnologyAccess(EGPGPUTechnologies technology)
{
    if (technology != EGPGPUTechnologies::OpenCL) return nullptr;
    Installed& service = installed();
    const std::scoped_lock lock(service.mutex);
    return service.accessor != nullptr ? service.accessor : MakeOpenCLAccessor();
}

void CGPGPUFactory::Install(std::shared_ptr<IGPGPUAccessor> accessor)
{
    Installed& service = installed();
    const std::scoped_lock lock(service.mutex);
    service.accessor = std::move(accessor);
}

} // namespace GPGPU
