// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp_fields.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/platform/export.h"

#include <vector>

namespace prereg {

/// Calls `visit(info, field)` for each setting of the search in the order of documents; `icpConfig` comes last, whole.
template <class Config, class Visitor>
requires std::same_as<std::remove_const_t<Config>, ConfigurationFPFH>
void VisitFields(Config& config, const Visitor& visit)
{
    using I = SettingInfo;
    using enum EScaling;
    using enum ESign;
    // A search asks between two polygons whether to stop. The work for one grows with the vertices and with the third
    // power of the neighbours, and takes about a tenth of a second at a hundred each.
    visit(I{"uiNumPolygons", "count", "most polygons that a search tries"}, config.uiNumPolygons);
    visit(I{"uiNumPolygonVertices", "count", "vertices of a polygon", None, Any, 100}, config.uiNumPolygonVertices);
    visit(I{"uiNumNeighbors", "count", "similar features tried for a vertex", None, Any, 100}, config.uiNumNeighbors);
    visit(I{"dMaxPolygonDiameter", "mm", "ball around a polygon; below 0: none, features are clustered",
            LengthIfPositive},
          config.dMaxPolygonDiameter);
    visit(I{"dMaxPolygonVertexError", "mm", "worse vertices of a polygon are dropped", Length, NotNegative},
          config.dMaxPolygonVertexError);
    visit(I{"dFeatureRadius", "mm", "neighbourhood that a feature describes", Length, NotNegative},
          config.dFeatureRadius);
    visit(I{"dFeatureClusteringBandwidth", "histogram distance", "mean shift of features; 0 or less: k-means"},
          config.dFeatureClusteringBandwidth);
    visit(I{"dGridSize", "mm", "grid that thins the points; 0: keep all", Length, NotNegative}, config.dGridSize);
    visit(I{"dFeatureGridSize", "mm", "grid that thins the features; 0: keep all", Length, NotNegative},
          config.dFeatureGridSize);
    visit(I{"dTrafoPositionClusteringBandwidth", "mm", "poses nearer than this agree", Length, NotNegative},
          config.dTrafoPositionClusteringBandwidth);
    visit(I{"dTrafoOrientationClusteringBandwidth", "radians", "the same for their turns; 0 or less: off"},
          config.dTrafoOrientationClusteringBandwidth);
    visit(I{"uiTrafoClusteringQuorum", "count", "so many poses that agree end the search; 0: never"},
          config.uiTrafoClusteringQuorum);
    visit(I{"dVerifyTrafoMaxFeatureDistance", "histogram distance", "of similar features; 0 or less: no check"},
          config.dVerifyTrafoMaxFeatureDistance);
    visit(I{"dVerifyTrafoMinConfidence", "ratio", "similar features that a pose needs; 0 or less: no check"},
          config.dVerifyTrafoMinConfidence);
    visit(I{"icpConfig", "", "settings of the ICP"}, config.icpConfig);
}

/// All settings, those of the ICP last and without `icpConfig`; no two have the same name.
[[nodiscard]] ZORVAN_API std::vector<SettingInfo> AllSettings();

} // namespace prereg
