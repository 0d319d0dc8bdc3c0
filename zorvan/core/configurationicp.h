// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <string>

namespace prereg {

/// Settings of every ICP. Lengths in millimetres, angles in radians. The defaults suit an intraoral scanner (points
/// some 0.1 mm apart, accurate to 0.005 mm); `Scale` carries them over to other data.
struct ZORVAN_API ConfigurationICP
{
    unsigned int uiMaxNumIterations = 10;                   ///< highest iteration number of the loop
    double dMinQueryRadius = 0.3;                           ///< smallest search radius for correspondences
    double dInitialQueryRadiusScaling = 26.666667;          ///< initial search radius = this * dMinQueryRadius
    unsigned int uiNumSamples = 500;                        ///< points drawn from the floating set per sampling pass
    double dNormalAngleTolerance = 20 * 0.0174532925199433; ///< largest angle between the normals of a pair
    double dMaxMovement = -1;                               ///< largest distance from the oracle pose; <= 0: no check
    double dMinOverlapRatio = 0.1;                          ///< smallest final overlap ratio
    double dMaxRMSE = 0.025;                 ///< largest final RMSE, also the scale of the final overlap test
    double dMinOverlapArea = 0;              ///< smallest overlap area in mm^2, for callers that estimate it
    double dMinSmallBigRatio = 0.6;          ///< smallest share of pairs found within the small radius; <= 0: no check
    double dSmallBigQueryRadiusScaling = 10; ///< big radius = this * dMinQueryRadius
    double dInlierScaling = 0.675;           ///< scale of the robust inlier threshold
    double dMaxStdDev = 0.02;                ///< largest final slip; <= 0: no check
    double dPointAccuracy = 0.005;           ///< assumed standard deviation of a point's position

    /// Exact comparison of all fields.
    friend bool operator==(const ConfigurationICP&, const ConfigurationICP&) = default;

    /// The same settings for data f times as large: lengths by f, the area by f^2, `dMaxMovement` only when it is
    /// positive; ratios, counts and angles stay.
    [[nodiscard]] ConfigurationICP Scale(double f) const;
    [[nodiscard]] bool SupportsOracleCheck() const { return dMaxMovement > 0; }
};

/// The first setting that makes no sense, and why: "dMaxRMSE needs a finite number"; empty when all do.
[[nodiscard]] ZORVAN_API std::string WhatIsWrong(const ConfigurationICP& config);

} // namespace prereg
