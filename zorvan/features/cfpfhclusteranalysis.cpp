// SPDX-License-Identifier: MIT
#include "zorvan/features/cfpfhclusteranalysis.h"

#include "zorvan/features/cmeanshiftclusterer.h"
#include "zorvan/features/histogramkmeans.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"

#include <chrono>
#include <cmath>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <vector>

namespace prereg {

namespace {

using Clock = std::chrono::steady_clock;
using Zorvan::CMeanShiftClusterer;

const Logging::CLogger logger(L"QAV.PreRegistration");

constexpr const char* scanFile = "d:/BIC.csv";

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Rows are histograms already; copying them into new ones makes the distance three times as slow (48 to 131 ns).
float chi2Distance(std::size_t /*dimension*/, const float* a, const float* b)
{
    static_assert(std::is_standard_layout_v<CPointFeatureHistogram> &&
                  sizeof(CPointFeatureHistogram) == CPointFeatureHistogram::numBins * sizeof(float));
    return reinterpret_cast<const CPointFeatureHistogram*>(a)->SquaredChi2Distance(
        *reinterpret_cast<const CPointFeatureHistogram*>(b));
}

std::optional<CMeanShiftClusterer> clusterByMeanShift(const CFPFHPointSet& set, double bandwidth)
{
    std::vector<float> rows;
    rows.reserve(set.SizeFeatures() * CPointFeatureHistogram::numBins);
    for (const auto& feature : set.GetFeatures())
        rows.insert(rows.end(), feature.AsArray().begin(), feature.AsArray().end());
    try {
        CMeanShiftClusterer clusterer(rows.data(), set.SizeFeatures(), CPointFeatureHistogram::numBins,
                                      static_cast<float>(bandwidth));
        if (clusterer.Run(chi2Distance)) return clusterer;
    } catch (const std::invalid_argument& e) {
        logger.Warn(L"%s", std::string_view(e.what()));
    }
    logger.Warn(L"clustering FAILED!");
    return std::nullopt;
}

struct Fences
{
    double lower;
    double upper;
};

Fences fencesOf(const CFPFHClusterAnalysis& analysis, double k)
{
    std::vector<double> sizes;
    for (std::size_t i = 0; i < analysis.GetNumClusters(); ++i)
        sizes.push_back(static_cast<double>(analysis.GetClusterSize(i)));
    const double q1 = Zorvan::Quantile(sizes, 0.25);
    const double q3 = Zorvan::Quantile(sizes, 0.75);
    return {q1 - (q3 - q1) * k, q3 + (q3 - q1) * k};
}

} // namespace

CFPFHClusterAnalysis::CFPFHClusterAnalysis(const CFPFHPointSet& set, const ConfigurationFPFH& config)
{
    if (config.dFeatureClusteringBandwidth > 0) {
        if (config.uiNumPolygonVertices != 0) {
            logger.Info(L"ignoring setting uiNumPolygonVertices=%u while Mean-Shift cluster analysis is active "
                        L"(dFeatureClusteringBandwidth=%g > 0)",
                        config.uiNumPolygonVertices, config.dFeatureClusteringBandwidth);
        }
        run_MeanShiftClustering(set, config.dFeatureClusteringBandwidth);
    } else if (config.uiNumPolygonVertices == 0) {
        logger.Error(L"invalid combination of configuration parameters: dFeatureClusteringBandwidth<=0 in conflict "
                     L"with uiNumPolygonVertices==0");
    } else {
        run_kMeansClustering(set, config.uiNumPolygonVertices);
    }
}

void CFPFHClusterAnalysis::run_MeanShiftClustering(const CFPFHPointSet& set, double bandwidth)
{
    const auto start = Clock::now();
    logger.Info(L"Clustering feature space (bandwidth=%g) ...", bandwidth);
    const auto clusterer = clusterByMeanShift(set, bandwidth);
    if (!clusterer) return;

    std::vector<unsigned int> clusterOf(set.SizeFeatures(), Zorvan::CClusterMembers::none);
    for (unsigned int k = 0; k < clusterer->GetNumClusters(); ++k) {
        for (const unsigned int i : clusterer->GetClusterIterator(k)) clusterOf[i] = k;
    }
    m_clusters = Zorvan::CClusterMembers(clusterOf, clusterer->GetNumClusters());

    logger.Trace(L"done (%.3f s) => %zu clusters detected", secondsSince(start), GetNumClusters());
    if (!logger.IsLogLevelEnabled(Logging::ELogLevel::Trace)) return; // the index looks at all pairs
    logger.Trace(L"Dunn index: %g", clusterer->ComputeDunnIndex(chi2Distance));
    for (std::size_t k = 0; k < GetNumClusters(); ++k) {
        const auto [first, last] = m_clusters.GetRange(k);
        logger.Trace(L"  %zu: %zu [%zu,%zu]", k, last - first, first, last);
    }
}

void CFPFHClusterAnalysis::run_kMeansClustering(const CFPFHPointSet& set, std::size_t k)
{
    const auto start = Clock::now();
    const auto groupOf = ClusterHistograms(set.GetFeatures(), k);
    if (groupOf.empty()) {
        logger.Warn(L"feature space cannot be divided into %zu clusters (%zu features)", k, set.SizeFeatures());
        return;
    }
    m_clusters = Zorvan::CClusterMembers(groupOf, k);
    m_clusters.RemoveEmptyClusters();
    logger.Trace(L"Clustered feature space in %.3f s", secondsSince(start));
}

std::pair<std::size_t, std::size_t> CFPFHClusterAnalysis::GetInlierClusterRange(double k) const
{
    if (GetNumClusters() == 0) return {0, 0};
    const Fences fences = fencesOf(*this, k);
    const double lower = std::floor(fences.lower);
    const double upper = std::ceil(fences.upper);
    std::size_t first = 0;
    std::size_t last = GetNumClusters() - 1;
    while (first < last) {
        if (static_cast<double>(GetClusterSize(first)) < lower)
            ++first;
        else if (static_cast<double>(GetClusterSize(last)) > upper)
            --last;
        else
            break;
    }
    return {first, last};
}

bool CFPFHClusterAnalysis::IsOutlier(std::size_t cluster, double k) const
{
    if (GetNumClusters() == 0) return false;
    const Fences fences = fencesOf(*this, k);
    const auto size = static_cast<double>(GetClusterSize(cluster));
    return size < fences.lower || size > fences.upper;
}

void CFPFHClusterAnalysis::ScanBandwidth(const CFPFHPointSet& set, double from, double to, unsigned int steps)
{
    std::ofstream file(scanFile);
    if (!file) logger.Warn(L"cannot write %s", std::string_view(scanFile));
    for (unsigned int i = 0; i < steps; ++i) {
        const double h = i + 1 == steps ? to : from + (to - from) * i / (steps - 1);
        const auto clusterer = clusterByMeanShift(set, h);
        if (!clusterer) continue;
        const float bic = clusterer->ComputeBIC(chi2Distance);
        logger.Trace(L"(h=%g) DunnIndex: %g, BIC: %g (%u clusters)", h, clusterer->ComputeDunnIndex(chi2Distance), bic,
                     clusterer->GetNumClusters());
        file << h << ' ' << bic << ' ' << clusterer->GetNumClusters() << '\n';
    }
}

} // namespace prereg
