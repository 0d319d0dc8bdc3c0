#include "featuresizes.h"

#include "inputerror.h"
#include "posesfile.h"
#include "textnumber.h"
#include "vectors.h"

#include <limits>
#include <string>

namespace tools {

namespace {

constexpr double dMaxCells = 16e6; // of the search for neighbours; the library has no room for more

double cellsOf(const SurfelScan& scan, double cellSize)
{
    Vector3 low = Vector3::Filled(std::numeric_limits<float>::infinity());
    Vector3 high = -low;
    for (const Vector3& p : scan.points) {
        low = Min(low, p);
        high = Max(high, p);
    }
    const Vector3 extent = high - low;
    double cells = 1.0;
    for (const float side : {extent.x, extent.y, extent.z}) cells *= static_cast<double>(side) / cellSize + 1.0;
    return cells;
}

} // namespace

void CheckFeatureSizes(const SurfelScan& scan, const prereg::ConfigurationFPFH& config, double dMmPerUnit)
{
    const auto named = [&](const char* name, double mm) {
        return std::string(name) + " (" + ToText(mm / dMmPerUnit) + " " + UnitName(dMmPerUnit) + ")";
    };
    const auto refuse = [&](const std::string& why) {
        throw CInputError(scan.file, why, "give another --grid, or other sizes with --settings");
    };
    if (const std::string why = prereg::WhatIsWrongWithSizes(config, named); !why.empty()) refuse(why);
    if (cellsOf(scan, config.dFeatureRadius) > dMaxCells)
        refuse(named("dFeatureRadius", config.dFeatureRadius) + " is too small for the extent of the scan");
}

} // namespace tools
