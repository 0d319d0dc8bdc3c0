// SPDX-License-Identifier: MIT
#include "commands.h"

#include "zorvan/platform/gpgpu.h"
#include "zorvan/scans/textnumber.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

constexpr double dBytesPerGib = 1024.0 * 1024.0 * 1024.0;

std::vector<std::shared_ptr<GPGPU::IGPGPUDevice>> findDevices()
{
    const auto accessor = GPGPU::CGPGPUFactory::TechnologyAccess(GPGPU::EGPGPUTechnologies::OpenCL);
    if (accessor == nullptr) return {};
    return accessor->GetDevices();
}

int listDevices()
{
    const auto devices = findDevices();
    if (devices.empty()) {
        std::cout << "no OpenCL device; --gpu would change nothing (a graphics driver brings one, and on Debian the "
                     "package pocl-opencl-icd makes one of the processor)\n";
        return NotEveryScan;
    }
    bool isFirst = true;
    for (const auto& device : devices) {
        const auto about = device->Describe();
        std::cout << about.name << ": " << about.type << ", " << about.computeUnits << " compute units, "
                  << Zorvan::ToText(static_cast<double>(about.memory) / dBytesPerGib, 3) << " GiB, " << about.platform
                  << (isFirst ? " (the one that --gpu takes)" : "") << '\n';
        isFirst = false;
    }
    return Done;
}

} // namespace

void AddDevices(CCommand app)
{
    CCommand command = app.AddCommand("devices", "List the compute devices that --gpu can use");
    command.SetFooter("Exit code 0: there is one; 1: there is none.\n\n"
                      "Example:\n"
                      "  zorvan devices");
    command.SetAction(listDevices);
}

} // namespace tools
