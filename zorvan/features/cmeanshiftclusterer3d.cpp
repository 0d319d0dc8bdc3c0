// SPDX-License-Identifier: MIT
#include "zorvan/features/cmeanshiftclusterer3d.h"

#include "zorvan/features/meanshift.h"
#include "zorvan/platform/simd.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace Zorvan {

// One load a point: 1.9 times as fast as rows of three floats for 200 and 2000 points, 1.5 times for 20.
// A cluster's number is not a float that one should compute with, so nothing reads the fourth lane of a result.
class CMeanShiftClusterer3D::Space
{
public:
    using Point = Vector4;
    static constexpr bool clearsPick = false;

    explicit Space(const std::vector<Vector4>& data) : m_data(data) {}

    [[nodiscard]] std::size_t Size() const { return m_data.size(); }
    [[nodiscard]] std::size_t MaxRounds() const { return 4 * m_data.size(); }
    [[nodiscard]] const Point& At(std::size_t i) const { return m_data[i]; }
    [[nodiscard]] static float DistanceSq(const Point& a, const Point& b)
    {
        const simd::Float4 d = lanes(a) - lanes(b);
        return simd::Sum3(d * d);
    }

    static void MoveHalfway(Point& centre, const Point& to)
    {
        for (int d = 0; d < 3; ++d) centre.p[d] = (centre.p[d] + to.p[d]) * 0.5F;
    }

    template <typename Taken>
    bool MeanAround(const Point& centre, float radiusSq, Point& mean, Taken&& taken) const
    {
        const simd::Float4 c = lanes(centre);
        simd::Float4 sum = simd::Float4::Set1(0.0F);
        std::size_t count = 0;
        for (std::size_t i = 0; i < m_data.size(); ++i) {
            const simd::Float4 x = lanes(m_data[i]);
            const simd::Float4 d = x - c;
            if (!(simd::Sum3(d * d) <= radiusSq)) continue;
            sum = sum + x;
            taken(i);
            ++count;
        }
        if (count == 0) return false;
        float sums[4];
        sum.Store(sums);
        for (int d = 0; d < 3; ++d) mean.p[d] = sums[d] / static_cast<float>(count);
        return true;
    }

private:
    static simd::Float4 lanes(const Vector4& v) { return simd::Float4::Load(reinterpret_cast<const float*>(&v)); }

    const std::vector<Vector4>& m_data;
};

CMeanShiftClusterer3D::CMeanShiftClusterer3D(const std::vector<std::array<float, 3>>& points, float bandwidth)
    : CMeanShiftClusterer3D(points.empty() ? nullptr : points.front().data(), points.size(), bandwidth)
{
}

CMeanShiftClusterer3D::CMeanShiftClusterer3D(const float* xyz, std::size_t count, float bandwidth)
    : m_bandwidth(bandwidth), m_tolerance(bandwidth * 0.001F)
{
    assign(xyz, count);
}

CMeanShiftClusterer3D::CMeanShiftClusterer3D(const double* xyz, std::size_t count, double bandwidth)
    : m_bandwidth(static_cast<float>(bandwidth)), m_tolerance(m_bandwidth * 0.001F)
{
    assign(xyz, count);
}

template <typename Coordinate>
void CMeanShiftClusterer3D::assign(const Coordinate* xyz, std::size_t count)
{
    if (xyz == nullptr || count == 0) throw std::invalid_argument("mean shift clustering: missing input data");
    if (!(m_bandwidth > 0.0F)) throw std::invalid_argument("mean shift clustering: invalid bandwidth");
    allocateVectors(count);
    for (Vector4& v : m_data) {
        for (float& coordinate : v.p) coordinate = static_cast<float>(*xyz++);
    }
}

void CMeanShiftClusterer3D::allocateVectors(std::size_t count)
{
    constexpr auto maxCount = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
    try {
        if (count > maxCount) throw std::bad_alloc();
        m_data.resize(count);
    } catch (const std::bad_alloc&) {
        throw std::invalid_argument("mean shift clustering: memory allocation error");
    }
}

bool CMeanShiftClusterer3D::Run()
{
    cleanupClusterMapping();
    if (m_data.empty()) return false;
    for (const Vector4& v : m_data) {
        if (!std::all_of(v.p, v.p + 3, [](float value) { return std::isfinite(value); })) return false;
    }

    const Space space(m_data);
    auto [centres, mapping] = meanshift::Search(space, m_bandwidth, m_tolerance).Run(m_rng);
    for (std::size_t i = 0; i < m_data.size(); ++i) m_data[i].cluster = static_cast<std::int32_t>(mapping.clusterOf[i]);
    m_members = CClusterMembers(mapping.clusterOf, centres.size());
    m_centres = std::move(centres);
    m_histogram = std::move(mapping.sizes);
    return true;
}

void CMeanShiftClusterer3D::cleanupClusterMapping()
{
    for (Vector4& v : m_data) v.cluster = -1;
    m_centres.clear();
    m_histogram.clear();
    m_members = {};
}

int CMeanShiftClusterer3D::GetCluster(unsigned int datum) const
{
    return datum < m_data.size() ? m_data[datum].cluster : -1;
}

const float* CMeanShiftClusterer3D::GetClusterCenter(unsigned int cluster) const
{
    return cluster < m_centres.size() ? m_centres[cluster].p : nullptr;
}

float CMeanShiftClusterer3D::ComputeDunnIndex() const
{
    return meanshift::DunnIndex(
        m_data.size(), [this](std::size_t i) { return static_cast<unsigned int>(m_data[i].cluster); },
        [this](std::size_t i, std::size_t j) { return Space::DistanceSq(m_data[i], m_data[j]); });
}

float CMeanShiftClusterer3D::ComputeBandwidthFromAngleForNormalClustering(float angle)
{
    return std::sqrt(2.0F * (1.0F - std::cos(angle)));
}

float CMeanShiftClusterer3D::ComputeAngleFromBandwidthForNormalClustering(float bandwidth)
{
    return 3.1415927F - std::acos(bandwidth * bandwidth * 0.5F - 1.0F);
}

} // namespace Zorvan
