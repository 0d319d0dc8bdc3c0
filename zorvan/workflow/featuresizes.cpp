// SPDX-License-Identifier: MIT
#include "zorvan/workflow/featuresizes.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <limits>
#include <string>

namespace prereg {

namespace {

constexpr double dMaxCells = 16e6; // of the search for neighbours; the library has no room for more

double cellsOf(const Zorvan::SurfelScan& scan, double cellSize)
{
    Zorvan::Vector3 low = Zorvan::Vector3::Filled(std::numeric_limits<float>::infinity());
    Zorvan::Vector3 high = -low;
    for (const Zorvan::Vector3& p : scan.points) {
        low = Min(low, p);
        high = Max(high, p);
    }
    const Zorvan::Vector3 extent = high - low;
    double cells = 1.0;
    for (const float side : {extent.x, extent.y, extent.z}) cells *= static_cast<double>(side) / cellSize + 1.0;
    return cells;
}

} // namespace

void CheckFeatureSizes(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config, double dMmPerUnit)
{
    const auto named = [&](const char* name, double mm) {
        return std::string(name) + " (" + Zorvan::ToText(mm / dMmPerUnit) + " " + Zorvan::UnitName(dMmPerUnit) + ")";
    };
    const auto refuse = [&](const std::string& why) {
        throw Zorvan::CInputError(scan.file, why, "give another --grid, or other sizes with --settings");
    };
    if (const std::string why = WhatIsWrongWithSizes(config, named); !why.empty()) refuse(why);
    if (cellsOf(scan, config.dFeatureRadius) > dMaxCells)
        refuse(named("dFeatureRadius", config.dFeatureRadius) + " is too small for the extent of the scan");
}

} // namespace prereg
