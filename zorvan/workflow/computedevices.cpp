// SPDX-License-Identifier: MIT
#include "zorvan/workflow/computedevices.h"

#include "zorvan/platform/gpgpu.h"
#include "zorvan/scans/textnumber.h"

namespace prereg {

std::vector<std::string> DescribeComputeDevices()
{
    constexpr double dBytesPerGib = 1024.0 * 1024.0 * 1024.0;
    const auto accessor = GPGPU::CGPGPUFactory::TechnologyAccess(GPGPU::EGPGPUTechnologies::OpenCL);
    if (accessor == nullptr) return {};
    std::vector<std::string> lines;
    for (const auto& device : accessor->GetDevices()) {
        const auto about = device->Describe();
        lines.push_back(about.name + ": " + about.type + ", " + std::to_string(about.computeUnits) +
                        " compute units, " + Zorvan::ToText(static_cast<double>(about.memory) / dBytesPerGib, 3) +
                        " GiB, " + about.platform);
    }
    return lines;
}

} // namespace prereg
