// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/clustermembers.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <random>
#include <vector>

namespace Zorvan {

/// Groups data of any dimension around the densest places, with a distance of the caller's choice. The number of
/// clusters follows from the bandwidth.
///
///     CMeanShiftClusterer clusterer(rows.data(), rows.size() / 4, 4, 0.2F);
///     if (!clusterer.Run()) return;
///     for (unsigned int k = 0; k < clusterer.GetNumClusters(); ++k)
///         for (const unsigned int i : clusterer.GetClusterIterator(k)) use(k, i);
///
/// A datum may end up in no cluster, where a mean does not settle. Each round of the search looks at all data, so the
/// time is quadratic at worst. Seeds are drawn with a fixed start: the same data give the same clusters.
class ZORVAN_API CMeanShiftClusterer
{
public:
    using ClusterIterator = Zorvan::ClusterIterator;
    /// The squared distance of two rows of `dimension` floats; symmetric, and the same for the same rows.
    using DistanceFunction = float (*)(std::size_t dimension, const float* a, const float* b);

    CMeanShiftClusterer() = default;
    /// Copies the data.
    /// @param data       numData rows of `dimension` floats
    /// @param bandwidth  radius of the kernel, in units of the distance
    /// @throws std::invalid_argument "mean shift clustering: missing input data" for null or no data, "mean shift
    ///         clustering: invalid bandwidth" unless it is above 0, "mean shift clustering: memory allocation error"
    CMeanShiftClusterer(const float* data, std::size_t numData, std::size_t dimension, float bandwidth);
    CMeanShiftClusterer(CMeanShiftClusterer&&) = default;
    CMeanShiftClusterer& operator=(CMeanShiftClusterer&&) = default;

    /// @return false without data and when any of them is not finite; there are then no clusters
    [[nodiscard]] bool Run(DistanceFunction distance = euclideanNormSq);

    [[nodiscard]] unsigned int GetNumClusters() const { return static_cast<unsigned int>(m_centres.size()); }
    /// 0 for a cluster that does not exist.
    [[nodiscard]] std::size_t GetClusterSize(unsigned int cluster) const { return m_members.GetClusterSize(cluster); }
    /// A row; null for a cluster that does not exist.
    [[nodiscard]] const float* GetClusterCenter(unsigned int cluster) const;
    /// The size of each cluster.
    [[nodiscard]] const std::vector<unsigned int>& GetClusterHistogram() const { return m_histogram; }
    /// The data of one cluster, ascending.
    [[nodiscard]] ClusterIterator GetClusterIterator(unsigned int cluster) const
    {
        return m_members.GetCluster(cluster);
    }

    /// The member nearest to the centre of its cluster, the first of several; -1 when there is none.
    [[nodiscard]] int GetClusterRepresentative(unsigned int cluster, DistanceFunction distance = euclideanNormSq) const;

    /// Smallest distance between clusters over largest distance inside one: large where clusters are compact and well
    /// apart, infinite for a single one. Quadratic in the number of data. Source: Dunn, J. Cybernetics 3 (1973).
    [[nodiscard]] float ComputeDunnIndex(DistanceFunction distance = euclideanNormSq) const;
    /// Bayesian information criterion of round normal distributions that share one variance, larger for the better
    /// model. Source: Pelleg, Moore, X-means, ICML 2000.
    [[nodiscard]] float ComputeBIC(DistanceFunction distance = euclideanNormSq) const;

    /// Sum of the squared differences.
    [[nodiscard]] static float euclideanNormSq(std::size_t dimension, const float* a, const float* b);

private:
    [[nodiscard]] std::size_t numData() const { return m_dimension == 0 ? 0 : m_data.size() / m_dimension; }
    [[nodiscard]] const float* row(std::size_t i) const { return m_data.data() + i * m_dimension; }
    void cleanupClusterMapping();

    float m_bandwidth = 0.0F;
    float m_tolerance = 0.0F; ///< a mean that moves less has converged
    std::size_t m_dimension = 0;
    std::vector<float> m_data;
    std::mt19937 m_rng{47110815};
    std::vector<std::vector<float>> m_centres;
    std::vector<unsigned int> m_dataToCluster;
    std::vector<unsigned int> m_histogram;
    CClusterMembers m_members;
};

} // namespace Zorvan
