// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/gpgpu.h"

namespace GPGPU {

/// The devices that the system's OpenCL loader finds. @return  null when there is none
std::shared_ptr<IGPGPUAccessor> MakeOpenCLAccessor();

} // namespace GPGPU
