// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/clustermembers.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <utility>

namespace prereg {

/// Sorts the features of a point set into groups of like histograms, in `SquaredChi2Distance`. A polygon that takes one
/// vertex from each group has all kinds of surface shape in it, instead of mostly the commonest.
///
///     const CFPFHClusterAnalysis analysis(set, config);
///     for (std::size_t k = 0; k < analysis.GetNumClusters(); ++k)
///         for (const unsigned int feature : analysis.GetCluster(k)) use(set.GetFeature(feature));
///
/// No cluster is empty. When the clustering fails, which is logged, there are no clusters. Same set, same clusters.
class ZORVAN_API CFPFHClusterAnalysis
{
public:
    using ClusterIterator = Zorvan::ClusterIterator;

    CFPFHClusterAnalysis() = default;
    /// Mean shift when `dFeatureClusteringBandwidth` > 0; features in no dense place are then left out. Else k-means
    /// with `uiNumPolygonVertices` clusters, or fewer where many features are equal; it fails when there are fewer
    /// different features than that.
    CFPFHClusterAnalysis(const CFPFHPointSet& set, const ConfigurationFPFH& config);

    [[nodiscard]] std::size_t GetNumClusters() const { return m_clusters.GetNumClusters(); }
    /// 0 for a cluster that does not exist.
    [[nodiscard]] std::size_t GetClusterSize(std::size_t k) const { return m_clusters.GetClusterSize(k); }
    /// Indices of features, ascending.
    [[nodiscard]] ClusterIterator GetCluster(std::size_t k) const { return m_clusters.GetCluster(k); }

    /// First and last cluster that remain when clusters of unusual size are dropped from both ends: too small ones from
    /// the front, too large ones from the back. Clusters are taken in their order, which is not that of their sizes.
    /// Sizes are unusual outside the quartiles widened by k times their distance, to whole numbers. Source: Tukey,
    /// Exploratory Data Analysis, 1977.
    /// @return (0, 0) without clusters
    [[nodiscard]] std::pair<std::size_t, std::size_t> GetInlierClusterRange(double k) const;
    /// The size of the cluster lies outside the same fences, not rounded. False without clusters.
    [[nodiscard]] bool IsOutlier(std::size_t cluster, double k) const;

    /// For development: runs mean shift with `steps` bandwidths from `from` to `to`, logs how good the clusters are and
    /// writes a line each to the file d:/BIC.csv: bandwidth, Bayesian information criterion, number of clusters.
    static void ScanBandwidth(const CFPFHPointSet& set, double from, double to, unsigned int steps);

private:
    void run_kMeansClustering(const CFPFHPointSet& set, std::size_t k);
    void run_MeanShiftClustering(const CFPFHPointSet& set, double bandwidth);

    Zorvan::CClusterMembers m_clusters;
};

} // namespace prereg
