// SPDX-License-Identifier: MIT
#include "zorvan/workflow/autosettings.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/scans/spacing.h"
#include "zorvan/verdict/scansampling.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

namespace prereg {

namespace {

constexpr double dFinest = 1.0 / 500; // of the diagonal
constexpr double dCoarsest = 1.0 / 50;
constexpr double dCoarsestRaised = 1.0 / 100;

using Hits = std::vector<Zorvan::IndexAndDist>;

/// Calls `use(p, hits)` for some two hundred points, with the points next to each.
template <typename Use>
void forEachProbe(const CPointSet& scan, int numNeighbours, Use use)
{
    constexpr std::size_t uiProbes = 200;
    Hits found;
    for (std::size_t i = 0; i < scan.Size(); i += std::max<std::size_t>(1, scan.Size() / uiProbes)) {
        const kdtree::Vector<3> p = scan.GetPoint(i);
        scan.GetKdTree().FindKNearest(p, found, numNeighbours, std::numeric_limits<float>::max());
        use(p, found);
    }
}

/// Extent of points about another one across their main direction, over that along it.
double acrossOf(const CPointSet& scan, const kdtree::Vector<3>& p, const Hits& hits)
{
    kdtree::Vector<3> along;
    float most = 0.0F;
    for (const auto& hit : hits) {
        if (hit.distSq <= most) continue;
        most = hit.distSq;
        along = scan.GetPoint(hit.index) - p;
    }
    if (!(most > 0.0F)) return 0.0;
    float across = 0.0F;
    for (const auto& hit : hits)
        across = std::max(across, Cross(scan.GetPoint(hit.index) - p, along).LengthSq() / most);
    return std::sqrt(static_cast<double>(across / most));
}

/// The side of the square that a point stands for where the points lie in lines; 0 where they lie in a raster or
/// anyhow.
double lineSide(const CPointSet& scan)
{
    constexpr int iNear = 8;
    constexpr int iWide = 50;
    constexpr double dLine = 0.35; // in a raster the eight neighbours are as far across as along
    std::vector<double> across;
    forEachProbe(scan, iNear,
                 [&](const kdtree::Vector<3>& p, const Hits& hits) { across.push_back(acrossOf(scan, p, hits)); });
    if (across.empty() || Zorvan::Median(std::move(across)) > dLine) return 0.0;
    std::vector<double> sides;
    forEachProbe(scan, iWide, [&](const kdtree::Vector<3>&, const Hits& hits) {
        float farthest = 0.0F;
        for (const auto& hit : hits) farthest = std::max(farthest, hit.distSq);
        sides.push_back(std::sqrt(std::numbers::pi * static_cast<double>(farthest) / iWide));
    });
    return Zorvan::Median(std::move(sides));
}

AutoSettings withGrid(double grid, std::string reason) { return {grid, std::move(reason), SettingsForGrid(grid)}; }

} // namespace

ConfigurationICP SettingsForGrid(double dGrid)
{
    ConfigurationICP config;
    config.dMinQueryRadius = 1.5 * dGrid;
    // Right poses of the bunny views come to 0.37 and 0.29 grids at most, the best wrong ones to 0.52 and 0.36.
    config.dMaxRMSE = 0.45 * dGrid;
    config.dMaxStdDev = 0.33 * dGrid;
    config.dMinOverlapRatio = 0.05;
    config.dMinSmallBigRatio = 0.3;
    config.dSmallBigQueryRadiusScaling = 3;
    // Far below the noise of any scanner, so that the slip reports what the samples say, down to the last iteration.
    config.dPointAccuracy = 0.005 * dGrid;
    // Twice the default samples and nearly all of them inliers: half of the default's errors on the bunny scans.
    config.uiNumSamples = 1000;
    config.dInlierScaling = 3.0;
    return config;
}

ConfigurationFPFH AllSettingsForGrid(double dGrid)
{
    const double featureGrid = 4 * dGrid;
    ConfigurationFPFH config;
    config.dGridSize = dGrid;
    config.dFeatureGridSize = featureGrid;
    config.dFeatureRadius = 5 * featureGrid;
    // Small polygons fit into small overlaps; most are wrong, so there are many of them, and three that agree end it.
    config.uiNumPolygons = 4000;
    config.uiNumPolygonVertices = 5;
    config.dMaxPolygonDiameter = 15 * featureGrid;
    config.dMaxPolygonVertexError = featureGrid;
    config.dTrafoPositionClusteringBandwidth = 2 * featureGrid;
    config.dTrafoOrientationClusteringBandwidth = 0.2;
    config.uiTrafoClusteringQuorum = 3;
    config.icpConfig = SettingsForGrid(dGrid);
    return config;
}

ConfigurationFPFH SettingsForSearch(const ConfigurationFPFH& config)
{
    constexpr double dPlay = 1.5; // radii and errors need not grow as much as the grid does
    constexpr double dShareOfSamples = 0.3;
    constexpr double dShareOfOverlap = 0.6;
    const bool hasGrids = config.dGridSize > 0 && config.dFeatureGridSize > config.dGridSize * dPlay;
    const double scale = hasGrids ? config.dFeatureGridSize / config.dGridSize / dPlay : 1.0;
    ConfigurationFPFH search = config;
    search.icpConfig = config.icpConfig.Scale(scale);
    search.icpConfig.uiNumSamples = static_cast<unsigned>(config.icpConfig.uiNumSamples * dShareOfSamples);
    search.icpConfig.dInitialQueryRadiusScaling = std::min(2.5, config.icpConfig.dInitialQueryRadiusScaling);
    search.icpConfig.dMinOverlapRatio *= dShareOfOverlap;
    return search;
}

ConfigurationICP SettingsForRefinement(const ConfigurationFPFH& config)
{
    // Shares of the limits for a start pose that the user gives: what a search comes up with deserves less trust.
    constexpr double dRmseShare = 0.93;
    constexpr double dSlipShare = 0.67;
    ConfigurationICP icp = config.icpConfig;
    icp.dInitialQueryRadiusScaling = std::min(4.0, icp.dInitialQueryRadiusScaling);
    icp.dMinSmallBigRatio = std::max(0.5, icp.dMinSmallBigRatio);
    icp.dMaxRMSE *= dRmseShare;
    icp.dMaxStdDev *= dSlipShare;
    return icp;
}

ConfigurationICP SettingsForMerging(const ConfigurationFPFH& config, std::optional<double> dTypicalRmse)
{
    // benchmarks/README.md has the margins of right and wrong poses.
    constexpr double dRmseShare = 0.97;
    constexpr double dSlipShare = 0.57;
    constexpr double dSlipShareWhenNoiseIsKnown = 0.9;
    constexpr double dMaxTimesTypical = 1.6;
    ConfigurationICP icp = SettingsForRefinement(config);
    icp.dMinOverlapRatio = std::max(0.1, icp.dMinOverlapRatio);
    icp.dMaxStdDev *= dTypicalRmse ? dSlipShareWhenNoiseIsKnown : dSlipShare;
    icp.dMaxRMSE *= dRmseShare;
    if (dTypicalRmse) icp.dMaxRMSE = std::min(icp.dMaxRMSE, dMaxTimesTypical * *dTypicalRmse);
    return icp;
}

AutoSettings ChooseSettings(const CPointSet& scan, std::optional<double> dGrid, const std::string& name)
{
    if (dGrid) return withGrid(*dGrid, "as asked for");
    const auto [low, high] = scan.GetAABB();
    const double diagonal = static_cast<double>((high - low).Length());
    const double spacing = Zorvan::MedianSpacing(scan.GetPoints(), scan.GetKdTree());
    if (spacing < diagonal * dFinest) return withGrid(diagonal * dFinest, "1/500 of the extent of " + name);
    if (spacing > diagonal * dCoarsest) return withGrid(diagonal * dCoarsest, "1/50 of the extent of " + name);
    return withGrid(spacing, "the median point spacing of " + name);
}

AutoSettings ChoosePairSettings(const CPointSet* fix, const CPointSet* flt, std::optional<double> dGrid)
{
    const auto samplingOf = [&](const CPointSet* scan) {
        return scan == nullptr || dGrid ? ScanSampling{} : MeasureSampling(scan->GetPoints(), scan->GetKdTree());
    };
    return ChoosePairSettings(fix, flt, dGrid, samplingOf(fix), samplingOf(flt));
}

AutoSettings ChoosePairSettings(const CPointSet* fix, const CPointSet* flt, std::optional<double> dGrid,
                                const ScanSampling& fixSampling, const ScanSampling& fltSampling)
{
    const CPointSet* const scan = fix != nullptr ? fix : flt;
    if (scan == nullptr) throw std::invalid_argument("settings for a pair ask for a scan");
    constexpr double dOfNoise = 2.0;
    constexpr double dOtherSpacing = 2.0;
    const std::string fixName = "the fixed scan";
    const std::string fltName = "the floating scan";
    AutoSettings chosen = ChooseSettings(*scan, dGrid, scan == fix ? fixName : fltName);
    if (dGrid) return chosen;
    const double first = chosen.dGrid;
    const auto [low, high] = scan->GetAABB();
    const double coarsest = static_cast<double>((high - low).Length()) * dCoarsestRaised;
    const auto raise = [&](double grid, const std::string& reason) {
        const double bounded = std::min(grid, coarsest); // else hardly a feature is left
        if (bounded > chosen.dGrid) chosen = withGrid(bounded, reason);
    };
    for (const auto& [one, sampling, name] :
         {std::tuple(fix, fixSampling, fixName), std::tuple(flt, fltSampling, fltName)}) {
        if (one == nullptr) continue;
        if (sampling.dSpacing > dOtherSpacing * first) raise(sampling.dSpacing, "the median point spacing of " + name);
        raise(dOfNoise * sampling.dNoise, "twice the noise of " + name);
        raise(lineSide(*one), "the mean point spacing of " + name + ", whose points lie in lines");
    }
    return chosen;
}

} // namespace prereg
