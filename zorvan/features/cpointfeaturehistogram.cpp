// SPDX-License-Identifier: MIT
#include "zorvan/features/cpointfeaturehistogram.h"

#include "zorvan/features/histogramlanes.h"
#include "zorvan/features/paircounts.h"
#include "zorvan/platform/simd.h"

#include <bit>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Bins = CPointFeatureHistogram::Bins;
using Zorvan::simd::IsWide;

constexpr float quietNaN = std::numeric_limits<float>::quiet_NaN();

constexpr CPointFeatureHistogram planeHistogram = [] {
    CPointFeatureHistogram plane;
    for (const std::size_t centre : {5U, 16U, 27U}) plane.AsArray()[centre] = 1.0F;
    return plane;
}();

} // namespace

// The eight-lane loop over whole neighbourhoods (neighbourhoods_avx.cpp) gives the same counts, operation by operation:
// change both or neither.
void CPointFeatureHistogram::Update(const Vector3& p_s, const Vector3& n_s, const Vector3& p_t, const Vector3& n_t)
{
    if (!IsWide()) return;
    Vector3 d = p_t - p_s;
    const float r = Zorvan::simd::ApproximateReciprocalSqrt(d.LengthSq());
    if (kdtree::IsFinite(r)) d = d * r;
    const Vector3 v = Cross(d, n_s);
    const Vector3 w = Cross(n_s, v);
    const float alpha = Dot(v, n_t);
    const float phi = Dot(n_s, d);
    m_bins[detail::binOf(detail::cosineScale * alpha + detail::binOffset)] += 1.0F;
    m_bins[binsPerPart + detail::binOf(detail::cosineScale * phi + detail::binOffset)] += 1.0F;
    m_bins[2 * binsPerPart + detail::angleBin(Dot(w, n_t), Dot(n_s, n_t))] += 1.0F;
}

void CPointFeatureHistogram::Add(const CPointFeatureHistogram& other, float weight)
{
    if (IsWide()) detail::addAvx(m_bins, other.m_bins, weight);
}

void CPointFeatureHistogram::Normalize()
{
    if (!IsWide()) return;
    float sum = 0.0F;
    for (std::size_t i = 0; i < binsPerPart; ++i) sum += m_bins[i];
    detail::scaleAvx(m_bins, 1.0F / sum);
}

unsigned int CPointFeatureHistogram::PopCount() const
{
    if (!IsWide()) return 0;
    // The one count takes NaN for empty (but for the last bin), the other does not: where they differ, there is one.
    constexpr unsigned all = numBins;
    const unsigned byLanes = all - detail::countEmptyAvx(m_bins) - (m_bins.back() == 0.0F ? 1U : 0U);
    unsigned byBins = all;
    for (const float bin : m_bins) byBins -= bin == 0.0F ? 1U : 0U;
    if (byLanes != byBins) throw std::runtime_error("invalid popcnt!");
    return byBins;
}

float CPointFeatureHistogram::SquaredEuclideanDistance(const CPointFeatureHistogram& other) const
{
    return IsWide() ? detail::ratioDistanceAvx(m_bins, other.m_bins) : quietNaN;
}

float CPointFeatureHistogram::SoerensenDistance(const CPointFeatureHistogram& other) const
{
    return IsWide() ? detail::squaredDistanceAvx(m_bins, other.m_bins) : quietNaN;
}

float CPointFeatureHistogram::SquaredChi2Distance(const CPointFeatureHistogram& other) const
{
    return IsWide() ? detail::chi2DistanceAvx(m_bins, other.m_bins) : quietNaN;
}

CPointFeatureHistogram CPointFeatureHistogram::Invalid()
{
    return CPointFeatureHistogram(std::bit_cast<float>(0x7FC00000U));
}

const CPointFeatureHistogram& CPointFeatureHistogram::Plane() { return planeHistogram; }

} // namespace prereg

std::size_t
std::hash<prereg::CPointFeatureHistogram>::operator()(const prereg::CPointFeatureHistogram& histogram) const noexcept
{
    constexpr std::size_t wholeWords = 16;
    std::array<std::uint64_t, wholeWords> words{};
    const auto& bins = histogram.AsArray();
    std::memcpy(words.data(), bins.data(), sizeof words);
    std::uint32_t crc = 0;
    for (const std::uint64_t word : words) crc = Zorvan::simd::Crc32(crc, word);
    return Zorvan::simd::Crc32(crc, std::bit_cast<std::uint32_t>(bins.back()));
}
