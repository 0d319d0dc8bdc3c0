#include "autosettings.h"

#include "spacing.h"

#include <algorithm>

namespace tools {

namespace {

constexpr double dFinest = 1.0 / 500; // of the diagonal
constexpr double dCoarsest = 1.0 / 50;

AutoSettings withGrid(double grid, std::string reason) { return {grid, std::move(reason), SettingsForGrid(grid)}; }

} // namespace

prereg::ConfigurationICP SettingsForGrid(double dGrid)
{
    prereg::ConfigurationICP config;
    config.dMinQueryRadius = 1.5 * dGrid;
    config.dMaxRMSE = 0.5 * dGrid;
    config.dMaxStdDev = 0.2 * dGrid;
    // Far below the noise of any scanner, so that the slip tells what the samples say, down to the last iteration.
    config.dPointAccuracy = 0.005 * dGrid;
    // Twice the default samples and nearly all of them inliers: half of the default's errors on the bunny scans.
    config.uiNumSamples = 1000;
    config.dInlierScaling = 3.0;
    return config;
}

AutoSettings ChooseSettings(const prereg::CPointSet& fix, std::optional<double> dGrid)
{
    if (dGrid) return withGrid(*dGrid, "as asked for");
    const auto [low, high] = fix.GetAABB();
    const double diagonal = static_cast<double>((high - low).Length());
    const double spacing = MedianSpacing(fix.GetPoints(), fix.GetKdTree());
    if (spacing < diagonal * dFinest) return withGrid(diagonal * dFinest, "1/500 of the extent of the fixed scan");
    if (spacing > diagonal * dCoarsest) return withGrid(diagonal * dCoarsest, "1/50 of the extent of the fixed scan");
    return withGrid(spacing, "the median point spacing of the fixed scan");
}

} // namespace tools
