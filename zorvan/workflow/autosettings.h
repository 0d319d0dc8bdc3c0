// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/cpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/verdict/scansampling.h"
#include "zorvan/workflow/export.h"

#include <optional>
#include <string>

namespace prereg {

/// Settings that suit a pair of scans, and why.
struct AutoSettings
{
    double dGrid = 0.1; ///< mm; all lengths grow with it
    std::string reason; ///< in words, where the grid comes from
    ConfigurationICP icp;
};

/// ICP on the points of scans that lie `dGrid` (mm) apart; all lengths are in proportion to it.
[[nodiscard]] ZORVAN_WORKFLOW_API ConfigurationICP SettingsForGrid(double dGrid);

/// What all commands take for a grid of `dGrid` (mm) when nobody sets anything: features on four times the grid, and
/// `icpConfig` as above.
[[nodiscard]] ZORVAN_WORKFLOW_API ConfigurationFPFH AllSettingsForGrid(double dGrid);

/// The settings of a search. It runs its ICP on the feature points only, so `icpConfig`, which is meant for all points,
/// is brought to their grid, with fewer samples.
[[nodiscard]] ZORVAN_WORKFLOW_API ConfigurationFPFH SettingsForSearch(const ConfigurationFPFH& config);

/// ICP on all points from a pose that a search has found: the start is near, and the limits are stricter than for one
/// that the user gives.
[[nodiscard]] ZORVAN_WORKFLOW_API ConfigurationICP SettingsForRefinement(const ConfigurationFPFH& config);

/// ICP on all points that decides whether two clusters of a larger registration become one. Stricter than for a pair
/// alone: a wrong merge spoils the whole, while a scan that is refused now meets a larger cluster later.
/// @param dTypicalRmse  median RMSE (mm) of the merges so far; nothing while there are too few for one
[[nodiscard]] ZORVAN_WORKFLOW_API ConfigurationICP SettingsForMerging(const ConfigurationFPFH& config,
                                                                      std::optional<double> dTypicalRmse);

/// The grid is the median point spacing of the scan (of a pair, the fixed one), kept between 1/500 and 1/50 of the
/// diagonal of its box, so that neither a very dense nor a very sparse scan leads to a search radius without sense.
/// @param dGrid  the grid (mm) that the user asks for; without it, the rule above
/// @param name   what the reason calls the scan
[[nodiscard]] ZORVAN_WORKFLOW_API AutoSettings ChooseSettings(const CPointSet& scan, std::optional<double> dGrid,
                                                              const std::string& name = "the fixed scan");

/// Settings for a pair: those of the fixed scan, on a grid that is raised where either scan asks for it:
/// - twice its noise (mm, see MeasureSampling), so that the radius of 1.5 grids holds 95 % of the pairs of two such
///   scans;
/// - its spacing, where that is more than twice the other scan's;
/// - of a scan whose points lie in lines, as those of a spinning lidar, the side of the square that each point stands
///   for: along the lines alone, the pattern of one scan fits on that of the other wherever the sensors stood.
/// @param fix, flt  null: a model, which has neither; one of them is a scan
[[nodiscard]] ZORVAN_WORKFLOW_API AutoSettings ChoosePairSettings(const CPointSet* fix, const CPointSet* flt,
                                                                  std::optional<double> dGrid);
/// The same with what MeasureSampling has said of the scans; of a model it does not count.
[[nodiscard]] ZORVAN_WORKFLOW_API AutoSettings ChoosePairSettings(const CPointSet* fix, const CPointSet* flt,
                                                                  std::optional<double> dGrid,
                                                                  const ScanSampling& fixSampling,
                                                                  const ScanSampling& fltSampling);

} // namespace prereg
