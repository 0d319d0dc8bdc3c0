// SPDX-License-Identifier: MIT
// The sums over a neighbourhood, eight neighbours at a time. Operation by operation the same as
// CPointFeatureHistogram::Update and Add, so the results agree to the last bit with a loop over those.

#include "zorvan/features/neighbourhoods.h"
#include "zorvan/features/paircounts.h"
#include "zorvan/platform/simd_avx.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>

namespace prereg::detail {

namespace {

using Bins = CPointFeatureHistogram::Bins;
using Zorvan::simd::Float8;
using Zorvan::simd::Vector8;

constexpr std::size_t lanes = Float8::width;
constexpr unsigned allLanes = 0xFF;

WIDE inline Vector8 splat(const kdtree::Vector<3>& v)
{
    return {Float8::Set1(v.x), Float8::Set1(v.y), Float8::Set1(v.z)};
}

WIDE inline Vector8 difference(const Vector8& a, const Vector8& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

WIDE inline Float8 dot(const Vector8& a, const Vector8& b) { return (a.x * b.x + a.y * b.y) + a.z * b.z; }

WIDE inline Vector8 cross(const Vector8& a, const Vector8& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

WIDE inline Float8 squaredDistances(const Candidates& candidates, std::size_t i, const Vector8& p)
{
    const Vector8 at = {Float8::Load(&candidates.x[i]), Float8::Load(&candidates.y[i]), Float8::Load(&candidates.z[i])};
    const Vector8 d = difference(at, p);
    return dot(d, d);
}

// A bit for each of the eight lanes from i on that lies before `last`.
inline unsigned lanesBefore(std::size_t last, std::size_t i)
{
    return last - i < lanes ? allLanes >> (lanes - (last - i)) : allLanes;
}

// Lists the candidates first .. last - 1 within the radius.
WIDE std::size_t listNeighbours(const Candidates& candidates, std::size_t first, std::size_t last, const Vector8& p,
                                float radiusSq, std::uint32_t* list, std::size_t n)
{
    const Float8 limit = Float8::Set1(radiusSq);
    for (std::size_t i = first; i < last; i += lanes) {
        const Float8 isNear = squaredDistances(candidates, i, p) <= limit;
        n = Zorvan::simd::AppendSetLanes(list, n, i, isNear.Bits() & lanesBefore(last, i));
    }
    return n;
}

// As binOf: NaN and what no integer holds go to bin 0.
WIDE inline void storeBins(Float8 shifted, std::int32_t* bins)
{
    const Float8 fits = shifted < Float8::Set1(2147483648.0F);
    const Float8 fromZero = Max(shifted & fits, Float8::Set1(0.0F));
    Min(fromZero, Float8::Set1(static_cast<float>(lastBin))).StoreRounded(bins);
}

WIDE inline Float8 shifted(Float8 value, float scale) { return Float8::Set1(scale) * value + Float8::Set1(binOffset); }

// atan2 with an error below 1.1e-5. Source: Abramowitz and Stegun, Handbook of Mathematical Functions, 4.4.49.
WIDE inline Float8 roughAtan2(Float8 y, Float8 x)
{
    const Float8 ay = Abs(y);
    const Float8 ax = Abs(x);
    const Float8 a = Min(ax, ay) / Max(ax, ay);
    const Float8 s = a * a;
    Float8 sum = Float8::Set1(0.0208351F);
    for (const float coefficient : {-0.0851330F, 0.1801410F, -0.3302995F, 0.9998660F})
        sum = sum * s + Float8::Set1(coefficient);
    const Float8 octant = sum * a;
    const Float8 quadrant = Select(octant, Float8::Set1(1.5707964F) - octant, ay > ax);
    const Float8 half = Select(quadrant, Float8::Set1(3.1415927F) - quadrant, x < Float8::Set1(0.0F));
    return half | (y & Float8::Set1(-0.0F));
}

// Bins of atan2(y, x). Where the rough angle is too near to an edge between two bins to tell, or is none, the exact one
// decides: about one pair in 5,000.
WIDE inline void storeAngleBins(Float8 y, Float8 x, std::int32_t* bins)
{
    constexpr float unsure = 1e-4F;
    const Float8 rough = shifted(roughAtan2(y, x), angleScale);
    storeBins(rough, bins);
    const Float8 toEdge = Abs((rough - Floor(rough)) - Float8::Set1(0.5F));
    auto doubtful = ~(toEdge >= Float8::Set1(unsure)).Bits() & allLanes;
    if (doubtful == 0) return;
    alignas(32) float ys[lanes];
    alignas(32) float xs[lanes];
    y.Store(ys);
    x.Store(xs);
    for (; doubtful != 0; doubtful &= doubtful - 1) {
        const auto lane = static_cast<std::size_t>(std::countr_zero(doubtful));
        bins[lane] = static_cast<std::int32_t>(angleBin(ys[lane], xs[lane]));
    }
}

struct BinsOfPairs
{
    alignas(32) std::int32_t alpha[lanes];
    alignas(32) std::int32_t phi[lanes];
    alignas(32) std::int32_t theta[lanes];
};

WIDE inline void binPairs(const Vector8& p, const Vector8& n, const Vector8& otherPoint, const Vector8& otherNormal,
                          BinsOfPairs& bins)
{
    Vector8 d = difference(otherPoint, p);
    const Float8 r = ApproximateReciprocalSqrt(dot(d, d));
    const Float8 isFinite = Abs(r) < Float8::Set1(std::numeric_limits<float>::infinity());
    const Float8 factor = Select(Float8::Set1(1.0F), r, isFinite);
    d = {d.x * factor, d.y * factor, d.z * factor};
    const Vector8 v = cross(d, n);
    const Vector8 w = cross(n, v);
    storeBins(shifted(dot(v, otherNormal), cosineScale), bins.alpha);
    storeBins(shifted(dot(n, d), cosineScale), bins.phi);
    storeAngleBins(dot(w, otherNormal), dot(n, otherNormal), bins.theta);
}

// Two sets of counters, used in turn: on a flat surface all pairs go to the same bins, and each step would wait for the
// one before.
struct Counters
{
    static constexpr std::size_t stride = 16;
    std::array<std::array<std::uint32_t, 3 * stride>, 2> counts{};

    void Count(const BinsOfPairs& bins, std::size_t k)
    {
        auto& set = counts[k % 2];
        ++set[static_cast<std::size_t>(bins.alpha[k])];
        ++set[stride + static_cast<std::size_t>(bins.phi[k])];
        ++set[2 * stride + static_cast<std::size_t>(bins.theta[k])];
    }

    void AddTo(Bins& bins) const
    {
        // Where adding 1 to a float has no effect any more.
        constexpr std::uint32_t most = 1U << 24;
        for (std::size_t i = 0; i < bins.size(); ++i) {
            const std::size_t place =
                i / CPointFeatureHistogram::binsPerPart * stride + i % CPointFeatureHistogram::binsPerPart;
            bins[i] += static_cast<float>(std::min(counts[0][place] + counts[1][place], most));
        }
    }
};

} // namespace

WIDE unsigned countPairsAvx(const Candidates& candidates, std::size_t self, float radiusSq, Scratch& scratch,
                            Bins& bins)
{
    const Surfel& surfel = candidates.surfels[self];
    const Vector8 p = splat(surfel.point);
    const Vector8 normal = splat(surfel.normal);
    std::uint32_t* list = scratch.neighbours.data();
    std::size_t n = listNeighbours(candidates, 0, self, p, radiusSq, list, 0);
    n = listNeighbours(candidates, self + 1, candidates.count, p, radiusSq, list, n);
    std::fill_n(list + n, lanes, static_cast<std::uint32_t>(self)); // the rest of the last eight

    Counters counters;
    BinsOfPairs pairBins;
    for (std::size_t i = 0; i < n; i += lanes) {
        const std::uint32_t* const eight = list + i;
        const auto [points, normals] =
            Zorvan::simd::LoadColumns([&](std::size_t k) WIDE { return &candidates.surfels[eight[k]].point.x; });
        binPairs(p, normal, points, normals, pairBins);
        const std::size_t used = std::min(lanes, n - i);
        for (std::size_t k = 0; k < used; ++k) counters.Count(pairBins, k);
    }
    counters.AddTo(bins);
    return static_cast<unsigned>(n) + 1;
}

WIDE void sumHistogramsAvx(const Candidates& candidates, std::size_t self, float radiusSq, float weight,
                           const SimplifiedHistogram* histograms, Scratch& scratch, Bins& sum)
{
    const Vector8 p = splat(candidates.surfels[self].point);
    const Float8 limit = Float8::Set1(radiusSq);
    std::uint32_t* list = scratch.neighbours.data();
    std::size_t n = 0;
    for (std::size_t i = 0; i < candidates.count; i += lanes) {
        const Float8 distSq = squaredDistances(candidates, i, p);
        const Float8 isNear = (distSq <= limit) & (distSq > Float8::Set1(0.0F));
        const unsigned mask = isNear.Bits() & lanesBefore(candidates.count, i);
        if (mask == 0) continue;
        (ApproximateReciprocalSqrt(distSq) * Float8::Set1(weight)).Store(&scratch.weights[i]);
        n = Zorvan::simd::AppendSetLanes(list, n, i, mask);
    }

    Float8 a = Float8::Load(&sum[0]);
    Float8 b = Float8::Load(&sum[8]);
    Float8 c = Float8::Load(&sum[16]);
    Float8 d = Float8::Load(&sum[24]);
    float last = sum[32];
    for (std::size_t k = 0; k < n; ++k) {
        const float* bins = histograms[candidates.index[list[k]]].histogram.AsArray().data();
        const float w = scratch.weights[list[k]];
        const Float8 factor = Float8::Set1(w);
        a = a + factor * Float8::Load(bins);
        b = b + factor * Float8::Load(bins + 8);
        c = c + factor * Float8::Load(bins + 16);
        d = d + factor * Float8::Load(bins + 24);
        last += w * bins[32];
    }
    a.Store(&sum[0]);
    b.Store(&sum[8]);
    c.Store(&sum[16]);
    d.Store(&sum[24]);
    sum[32] = last;
}

} // namespace prereg::detail
