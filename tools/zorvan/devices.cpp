// SPDX-License-Identifier: MIT
#include "commands.h"

#include "zorvan/workflow/computedevices.h"

#include <cstddef>
#include <iostream>
#include <string>
#include <vector>

namespace tools {

namespace {

int listDevices()
{
    const std::vector<std::string> devices = prereg::DescribeComputeDevices();
    if (devices.empty()) {
        std::cout << "no OpenCL device; --gpu would change nothing (a graphics driver brings one, and on Debian the "
                     "package pocl-opencl-icd makes one of the processor)\n";
        return NotEveryScan;
    }
    for (std::size_t i = 0; i < devices.size(); ++i)
        std::cout << devices[i] << (i == 0 ? " (the one that --gpu takes)\n" : "\n");
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
