// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <functional>

namespace prereg {

/// The shape of the surface around a point: three histograms of 11 bins over the pairs that the point forms with its
/// neighbours. Bins 0 to 10 count the cosine of the neighbour's normal with the Darboux frame's v axis, 11 to 21 the
/// cosine of the point's normal with the direction to the neighbour, 22 to 32 the turn of the normal about that axis in
/// [-pi, pi]. Source: Rusu, Blodow, Beetz, Fast Point Feature Histograms (FPFH) for 3D Registration, ICRA 2009.
///
///     CPointFeatureHistogram h;
///     for (int j : neighbours) h.Update(points[i], normals[i], points[j], normals[j]);
///     h.Normalize();
///     if (h.SquaredEuclideanDistanceToPlane() < 0.1F) flat(i);
///
/// `Update`, `Add` and `Normalize` do nothing, `PopCount` gives 0 and the distances NaN on a processor without AVX: all
/// of the feature code needs it.
class ZORVAN_API CPointFeatureHistogram
{
public:
    static constexpr std::size_t numBins = 33;
    static constexpr std::size_t binsPerPart = 11;
    using Bins = std::array<float, numBins>;

    constexpr CPointFeatureHistogram() = default;
    constexpr explicit CPointFeatureHistogram(float value) { m_bins.fill(value); }
    constexpr explicit CPointFeatureHistogram(const Bins& bins) : m_bins(bins) {}

    [[nodiscard]] constexpr Bins& AsArray() { return m_bins; }
    [[nodiscard]] constexpr const Bins& AsArray() const { return m_bins; }
    operator Bins&() { return m_bins; }
    operator const Bins&() const { return m_bins; }

    /// Counts the pair of a point (p_s, n_s), whose histogram this is, and its neighbour (p_t, n_t). Normals have unit
    /// length. The direction between them is normalised with the processor's approximate reciprocal square root, so the
    /// bin of a pair near a bin's edge may differ between processors. Coincident points count as a pair of direction 0.
    void Update(const kdtree::Vector<3>& p_s, const kdtree::Vector<3>& n_s, const kdtree::Vector<3>& p_t,
                const kdtree::Vector<3>& n_t);

    /// Each bin grows by `weight` times the other's.
    void Add(const CPointFeatureHistogram& other, float weight);
    CPointFeatureHistogram& operator+=(const CPointFeatureHistogram& other)
    {
        Add(other, 1.0F);
        return *this;
    }

    /// Scales so that the first 11 bins sum to 1 (each pair counts once in each part, so all 33 then sum to 3). An
    /// empty histogram turns into NaN.
    void Normalize();

    /// Number of bins that are not 0. @throws std::runtime_error "invalid popcnt!" when any of bins 0 to 31 is NaN
    [[nodiscard]] unsigned int PopCount() const;

    /// sum |a - b| / sum (a + b): at most 1 for histograms without negative bins, NaN for two empty ones. The names of
    /// this and the next one are historical and do not describe them.
    [[nodiscard]] float SquaredEuclideanDistance(const CPointFeatureHistogram& other) const;
    /// sum (a - b)^2
    [[nodiscard]] float SoerensenDistance(const CPointFeatureHistogram& other) const;
    /// sum (a - b)^2 / (a + b) over the bins where that is a number
    [[nodiscard]] float SquaredChi2Distance(const CPointFeatureHistogram& other) const;
    [[nodiscard]] float SquaredEuclideanDistanceToPlane() const { return SquaredEuclideanDistance(Plane()); }

    /// The value of a point that has no feature: NaN in every bin. A feature is valid when its first bin is finite.
    [[nodiscard]] static CPointFeatureHistogram Invalid();
    /// The feature of a flat surface.
    [[nodiscard]] static const CPointFeatureHistogram& Plane();

    /// The feature of an ideal sphere, by splines over measured ideal shapes with radii from 0.8 to 5.2 mm, a feature
    /// radius of 1.5 mm and a grid of 0.3 mm. Other arguments are warned of; radii outside are extrapolated, and the
    /// other two do not enter the result. All in mm.
    [[nodiscard]] static CPointFeatureHistogram Sphere(double radius, double fpfhRadius, double gridSize);
    /// The same for the mantle of a cylinder.
    [[nodiscard]] static CPointFeatureHistogram Cylinder(double radius, double fpfhRadius, double gridSize);

    friend bool operator==(const CPointFeatureHistogram&, const CPointFeatureHistogram&) = default;

private:
    Bins m_bins{};
};

} // namespace prereg

/// CRC-32C over the bits of the 33 floats.
template <>
struct ZORVAN_API std::hash<prereg::CPointFeatureHistogram>
{
    std::size_t operator()(const prereg::CPointFeatureHistogram& histogram) const noexcept;
};
