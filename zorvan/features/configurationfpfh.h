// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/platform/export.h"

#include <functional>
#include <string>

namespace prereg {

/// Settings of the features and of the search for a pose without a start. Lengths in millimetres, angles in radians;
/// distances between histograms have no unit. The defaults suit an intraoral scanner; `Scale` carries them over to
/// other data.
struct ZORVAN_API ConfigurationFPFH
{
    unsigned int uiNumPolygons = 20;                ///< polygons that a search tries at most
    unsigned int uiNumPolygonVertices = 10;         ///< of one polygon; clusters of features come in their place
    unsigned int uiNumNeighbors = 10;               ///< candidates in the fixed set for one polygon vertex
    double dMaxPolygonDiameter = -1.0;              ///< ball around a polygon; < 0: no ball, but clusters of features
    double dMaxPolygonVertexError = 1.0;            ///< worse vertices of a matched polygon are dropped
    double dFeatureRadius = 1.5;                    ///< neighbourhood that one feature describes
    double dFeatureClusteringBandwidth = -1.0;      ///< histogram distance of mean shift; <= 0: k-means
    double dGridSize = 300 * 0.001;                 ///< grid that thins the points; 0: all are kept
    double dFeatureGridSize = 300 * 0.001;          ///< grid that thins the features; 0: all are kept
    double dTrafoPositionClusteringBandwidth = 5.0; ///< poses nearer than this support each other
    double dTrafoOrientationClusteringBandwidth = -1.0; ///< the same for their turns, in radians; <= 0: not looked at
    unsigned int uiTrafoClusteringQuorum = 5;           ///< so many poses that agree end the search; 0: never
    double dVerifyTrafoMaxFeatureDistance = 0.4; ///< histogram distance of similar features; <= 0: no verification
    double dVerifyTrafoMinConfidence = -1.0;     ///< share of similar features needed; <= 0: no verification
    ConfigurationICP icpConfig;                  ///< of the ICP runs inside the search

    /// Exact comparison of all fields.
    friend bool operator==(const ConfigurationFPFH&, const ConfigurationFPFH&) = default;

    /// The same settings for data `factor` times as large: lengths by the factor, `dMaxPolygonDiameter` unless it is
    /// negative; histogram distances, angles, ratios and counts stay.
    [[nodiscard]] ConfigurationFPFH Scale(double factor) const;
    [[nodiscard]] bool SupportsOracleCheck() const { return icpConfig.SupportsOracleCheck(); }
};

/// The first setting that makes no sense, in `icpConfig` too, and why: "dGridSize needs a finite number"; else what is
/// wrong between the sizes of features and grids; empty when nothing is.
[[nodiscard]] ZORVAN_API std::string WhatIsWrong(const ConfigurationFPFH& config);

/// The same for each setting by itself: of settings that others will be merged into.
[[nodiscard]] ZORVAN_API std::string WhatIsWrongWithFields(const ConfigurationFPFH& config);

/// What keeps features from being computed: a radius without squares in single precision, or a grid that is larger than
/// what it serves.
/// @param named  the words for a size: its key and its length in mm, in the reader's units
[[nodiscard]] ZORVAN_API std::string
WhatIsWrongWithSizes(const ConfigurationFPFH& config,
                     const std::function<std::string(const char* key, double mm)>& named);

} // namespace prereg
