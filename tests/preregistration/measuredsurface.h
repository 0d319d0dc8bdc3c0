// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/clouds.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/cfpfhpointset.h"

#include <memory>

namespace support {

/// A measurement of the same bumpy surface with its features, at points that depend on the seed.
inline std::shared_ptr<const prereg::CFPFHPointSet> Measure(std::uint32_t seed, std::size_t n = 12000)
{
    const auto s = BumpySurface(n, seed);
    prereg::CFPFHDataSource source(4.0, 0.4, 0.8, 1, nullptr);
    source.Load(s.points, s.normals, nullptr);
    return std::make_shared<const prereg::CFPFHPointSet>(source);
}

/// Settings that find such measurements in each other.
inline prereg::ConfigurationFPFH SearchSettings()
{
    prereg::ConfigurationFPFH config;
    config.dFeatureRadius = 4.0;
    config.dFeatureGridSize = 0.8;
    config.uiNumPolygons = 500;
    config.uiNumPolygonVertices = 5;
    config.dMaxPolygonDiameter = 15.0;
    config.dMaxPolygonVertexError = 0.8;
    config.dTrafoPositionClusteringBandwidth = 2.0;
    config.dTrafoOrientationClusteringBandwidth = 0.2;
    config.uiTrafoClusteringQuorum = 3;
    config.icpConfig.dMinQueryRadius = 0.8;
    config.icpConfig.dInitialQueryRadiusScaling = 2.5;
    config.icpConfig.uiNumSamples = 300;
    config.icpConfig.dMaxRMSE = 0.1;
    config.icpConfig.dMaxStdDev = 0.2;
    config.icpConfig.dSmallBigQueryRadiusScaling = 3;
    config.icpConfig.dInlierScaling = 3;
    return config;
}

} // namespace support
