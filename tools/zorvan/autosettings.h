#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/cpointset.h"

#include <optional>
#include <string>

namespace tools {

/// Settings that suit a pair of scans, and why.
struct AutoSettings
{
    double dGrid = 0.1; ///< mm; all lengths grow with it
    std::string reason; ///< in words, where the grid comes from
    prereg::ConfigurationICP icp;
};

/// Settings for scans whose points lie `dGrid` (mm) apart; all lengths are in proportion to it.
[[nodiscard]] prereg::ConfigurationICP SettingsForGrid(double dGrid);

/// The grid is the median point spacing of the fixed scan, kept between 1/500 and 1/50 of the diagonal of its box, so
/// that neither a very dense nor a very sparse scan leads to a search radius without sense.
/// @param dGrid  the grid (mm) that the user asks for; without it, the rule above
[[nodiscard]] AutoSettings ChooseSettings(const prereg::CPointSet& fix, std::optional<double> dGrid);

} // namespace tools
