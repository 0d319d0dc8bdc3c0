// SPDX-License-Identifier: MIT
#include "zorvan/features/cmeanshiftclusterer.h"

#include "zorvan/features/meanshift.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numbers>
#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

class Rows
{
public:
    using Point = std::vector<float>;
    static constexpr bool clearsPick = true;

    Rows(const std::vector<float>& data, std::size_t dimension, CMeanShiftClusterer::DistanceFunction distance)
        : m_data(data), m_dimension(dimension), m_size(data.size() / dimension), m_distance(distance)
    {
    }

    [[nodiscard]] std::size_t Size() const { return m_size; }
    [[nodiscard]] std::size_t MaxRounds() const { return 2 * m_data.size(); }
    [[nodiscard]] Point At(std::size_t i) const { return {row(i), row(i) + m_dimension}; }
    [[nodiscard]] float DistanceSq(const Point& a, const Point& b) const
    {
        return m_distance(m_dimension, a.data(), b.data());
    }

    void MoveHalfway(Point& centre, const Point& to) const
    {
        for (std::size_t d = 0; d < m_dimension; ++d) centre[d] = (centre[d] + to[d]) * 0.5F;
    }

    template <typename Taken>
    bool MeanAround(const Point& centre, float radiusSq, Point& mean, Taken&& taken) const
    {
        std::fill(mean.begin(), mean.end(), 0.0F);
        std::size_t count = 0;
        for (std::size_t i = 0; i < m_size; ++i) {
            if (!(m_distance(m_dimension, row(i), centre.data()) <= radiusSq)) continue;
            for (std::size_t d = 0; d < m_dimension; ++d) mean[d] += row(i)[d];
            taken(i);
            ++count;
        }
        if (count == 0) return false;
        for (float& value : mean) value /= static_cast<float>(count);
        return true;
    }

private:
    [[nodiscard]] const float* row(std::size_t i) const { return m_data.data() + i * m_dimension; }

    const std::vector<float>& m_data;
    std::size_t m_dimension;
    std::size_t m_size;
    CMeanShiftClusterer::DistanceFunction m_distance;
};

} // namespace

CMeanShiftClusterer::CMeanShiftClusterer(const float* data, std::size_t numData, std::size_t dimension, float bandwidth)
    : m_bandwidth(bandwidth), m_tolerance(bandwidth * 0.001F), m_dimension(dimension)
{
    if (data == nullptr || numData == 0 || dimension == 0)
        throw std::invalid_argument("mean shift clustering: missing input data");
    if (!(bandwidth > 0.0F)) throw std::invalid_argument("mean shift clustering: invalid bandwidth");
    if (numData > std::numeric_limits<int>::max() || numData > m_data.max_size() / dimension)
        throw std::invalid_argument("mean shift clustering: memory allocation error");
    try {
        m_data.assign(data, data + numData * dimension);
    } catch (const std::bad_alloc&) {
        throw std::invalid_argument("mean shift clustering: memory allocation error");
    }
}

bool CMeanShiftClusterer::Run(DistanceFunction distance)
{
    cleanupClusterMapping();
    if (numData() == 0) return false;
    if (!std::all_of(m_data.begin(), m_data.end(), [](float value) { return std::isfinite(value); })) return false;

    const Rows rows(m_data, m_dimension, distance);
    auto [centres, mapping] = meanshift::Search(rows, m_bandwidth, m_tolerance).Run(m_rng);
    m_members = CClusterMembers(mapping.clusterOf, centres.size());
    m_centres = std::move(centres);
    m_dataToCluster = std::move(mapping.clusterOf);
    m_histogram = std::move(mapping.sizes);
    return true;
}

void CMeanShiftClusterer::cleanupClusterMapping()
{
    m_centres.clear();
    m_dataToCluster.clear();
    m_histogram.clear();
    m_members = {};
}

const float* CMeanShiftClusterer::GetClusterCenter(unsigned int cluster) const
{
    return cluster < m_centres.size() ? m_centres[cluster].data() : nullptr;
}

int CMeanShiftClusterer::GetClusterRepresentative(unsigned int cluster, DistanceFunction distance) const
{
    const float* centre = GetClusterCenter(cluster);
    int nearest = -1;
    float nearestDistance = std::numeric_limits<float>::infinity();
    for (const unsigned int i : GetClusterIterator(cluster)) {
        const float d = distance(m_dimension, row(i), centre);
        if (d < nearestDistance) {
            nearest = static_cast<int>(i);
            nearestDistance = d;
        }
    }
    return nearest;
}

float CMeanShiftClusterer::ComputeDunnIndex(DistanceFunction distance) const
{
    return meanshift::DunnIndex(
        m_dataToCluster.size(), [this](std::size_t i) { return m_dataToCluster[i]; },
        [this, distance](std::size_t i, std::size_t j) { return distance(m_dimension, row(i), row(j)); });
}

float CMeanShiftClusterer::ComputeBIC(DistanceFunction distance) const
{
    double total = 0.0;
    for (unsigned int k = 0; k < GetNumClusters(); ++k) {
        for (const unsigned int i : GetClusterIterator(k)) {
            const float d = distance(m_dimension, row(i), m_centres[k].data());
            if (std::isfinite(d) && d >= 0.0F) total += static_cast<double>(d);
        }
    }

    const auto numClusters = static_cast<double>(m_centres.size());
    const auto size = static_cast<double>(numData());
    const auto dimension = static_cast<double>(m_dimension);
    const double variance = total / ((size - numClusters) * dimension);
    double bic = -(numClusters * 0.5 * std::log(size) * (dimension + 1));
    for (const unsigned int members : m_histogram) {
        const auto n = static_cast<double>(members);
        bic += n * std::log(n) - n * std::log(size) -
               (n * dimension) * 0.5 * std::log(2 * std::numbers::pi * variance) - (n - 1) * dimension * 0.5;
    }
    return static_cast<float>(bic);
}

float CMeanShiftClusterer::euclideanNormSq(std::size_t dimension, const float* a, const float* b)
{
    float sum = 0.0F;
    for (std::size_t d = 0; d < dimension; ++d) {
        const float difference = a[d] - b[d];
        sum += difference * difference;
    }
    return sum;
}

} // namespace Zorvan
