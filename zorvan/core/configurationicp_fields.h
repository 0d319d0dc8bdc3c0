// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/settinginfo.h"

#include <concepts>
#include <type_traits>

namespace prereg {

/// Calls `visit(info, field)` for each setting of the ICP in the order of documents: the one list that writing,
/// reading, scaling, help and validity walk.
template <class Config, class Visitor>
requires std::same_as<std::remove_const_t<Config>, ConfigurationICP>
void VisitFields(Config& config, const Visitor& visit)
{
    using I = SettingInfo;
    using enum EScaling;
    using enum ESign;
    visit(I{"uiMaxNumIterations", "count", "highest iteration number"}, config.uiMaxNumIterations);
    visit(I{"dMinQueryRadius", "mm", "smallest search radius for pairs", Length, NotNegative}, config.dMinQueryRadius);
    visit(I{"dInitialQueryRadiusScaling", "factor", "first search radius over the smallest", None, NotNegative},
          config.dInitialQueryRadiusScaling);
    visit(I{"uiNumSamples", "count", "points drawn from the moving scan in each iteration"}, config.uiNumSamples);
    visit(I{"dNormalAngleTolerance", "radians", "largest angle between the normals of a pair", None, NotNegative},
          config.dNormalAngleTolerance);
    visit(I{"dMaxMovement", "mm", "largest distance from an expected pose; 0 or less: no check", LengthIfPositive},
          config.dMaxMovement);
    visit(I{"dMinOverlapRatio", "ratio", "smallest final overlap"}, config.dMinOverlapRatio);
    visit(I{"dMaxRMSE", "mm", "largest final RMSE", Length, NotNegative}, config.dMaxRMSE);
    visit(I{"dMinOverlapArea", "mm^2", "smallest overlap area", Area}, config.dMinOverlapArea);
    visit(I{"dMinSmallBigRatio", "ratio", "pairs that the small radius must find; 0 or less: no check"},
          config.dMinSmallBigRatio);
    visit(I{"dSmallBigQueryRadiusScaling", "factor", "big radius over the smallest", None, NotNegative},
          config.dSmallBigQueryRadiusScaling);
    visit(I{"dInlierScaling", "factor", "scale of the limit between inliers and outliers", None, NotNegative},
          config.dInlierScaling);
    visit(I{"dMaxStdDev", "mm", "largest final slip; 0 or less: no check", Length}, config.dMaxStdDev);
    visit(I{"dPointAccuracy", "mm", "standard deviation of a point's position", Length, NotNegative},
          config.dPointAccuracy);
}

} // namespace prereg
