// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/clustermembers.h"
#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace Zorvan {

/// `CMeanShiftClusterer` for points in space with the Euclidean distance, one vector register a point. Gives the same
/// clusters.
class ZORVAN_API CMeanShiftClusterer3D
{
public:
    using ClusterIterator = Zorvan::ClusterIterator;

    CMeanShiftClusterer3D() = default;
    /// Copies the points.
    /// @param bandwidth  radius of the kernel, in units of the points
    /// @throws std::invalid_argument "mean shift clustering: missing input data" for null or no points, "mean shift
    ///         clustering: invalid bandwidth" unless it is above 0, "mean shift clustering: memory allocation error"
    CMeanShiftClusterer3D(const std::vector<std::array<float, 3>>& points, float bandwidth);
    /// @param xyz  3 * count coordinates
    CMeanShiftClusterer3D(const float* xyz, std::size_t count, float bandwidth);
    CMeanShiftClusterer3D(const double* xyz, std::size_t count, double bandwidth);

    /// @return false without points and when any coordinate is not finite; there are then no clusters
    [[nodiscard]] bool Run();

    [[nodiscard]] unsigned int GetNumClusters() const { return static_cast<unsigned int>(m_centres.size()); }
    /// The cluster of a point; -1 when it is in none or does not exist.
    [[nodiscard]] int GetCluster(unsigned int datum) const;
    /// 0 for a cluster that does not exist.
    [[nodiscard]] std::size_t GetClusterSize(unsigned int cluster) const { return m_members.GetClusterSize(cluster); }
    /// Three coordinates; null for a cluster that does not exist.
    [[nodiscard]] const float* GetClusterCenter(unsigned int cluster) const;
    /// The size of each cluster.
    [[nodiscard]] const std::vector<unsigned int>& GetClusterHistogram() const { return m_histogram; }
    /// The points of one cluster, ascending.
    [[nodiscard]] ClusterIterator GetClusterIterator(unsigned int cluster) const
    {
        return m_members.GetCluster(cluster);
    }
    /// As `CMeanShiftClusterer::ComputeDunnIndex`.
    [[nodiscard]] float ComputeDunnIndex() const;

    /// Length of the chord of an angle (radians) on the unit sphere, and the way back: unit normals cluster as points.
    [[nodiscard]] static float ComputeBandwidthFromAngleForNormalClustering(float angle);
    [[nodiscard]] static float ComputeAngleFromBandwidthForNormalClustering(float bandwidth);

private:
    struct alignas(16) Vector4
    {
        float p[3] = {};
        std::int32_t cluster = -1; ///< rides in the fourth lane; -1 for none

        /// Compares the place only.
        friend bool operator==(const Vector4& a, const Vector4& b)
        {
            return a.p[0] == b.p[0] && a.p[1] == b.p[1] && a.p[2] == b.p[2];
        }
    };
    class Space;

    template <typename Coordinate>
    void assign(const Coordinate* xyz, std::size_t count);
    void allocateVectors(std::size_t count);
    void cleanupClusterMapping();

    float m_bandwidth = 0.0F;
    float m_tolerance = 0.0F; ///< a mean that moves less has converged
    std::vector<Vector4> m_data;
    std::mt19937 m_rng{47110815};
    std::vector<Vector4> m_centres;
    std::vector<unsigned int> m_histogram;
    CClusterMembers m_members;
};

} // namespace Zorvan
