// SPDX-License-Identifier: MIT
#pragma once

#include "sensoreffects.h"
#include "virtualobject.h"

#include "zorvan/scans/scan.h"

#include <cstddef>

namespace tools {

struct RingScanSettings
{
    unsigned uiSeed = 1;
    unsigned uiView = 0;
    double dNoise = 0.1;   ///< standard deviation along the ray, mm
    double dSpacing = 0.3; ///< along a ring, mm at the middle of the object
    double dMissing = 0.0;
    double dOutliers = 0.0; ///< share of the points that lie anywhere along their ray
    unsigned uiNumThreads = 1;
};

/// What a spinning sensor sees: points ring by ring from below, in the order of the spin, without faces and normals.
/// All lie on cones of equal elevation around z, with the sensor in the origin.
/// @param pose  sensor to object coordinates, as of `PlacesAround`
[[nodiscard]] Zorvan::Scan ScanRings(const AVirtualObject& object, const prereg::CTrafo& pose, const Rings& rings,
                                     const RingScanSettings& settings);

} // namespace tools
