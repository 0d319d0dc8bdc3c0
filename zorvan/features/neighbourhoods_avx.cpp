// The sums over a neighbourhood, eight neighbours at a time. Only functions marked WIDE use AVX. Operation by operation
// the same as CPointFeatureHistogram::Update and Add, so the results agree to the last bit with a loop over those.

#include "zorvan/features/neighbourhoods.h"
#include "zorvan/features/paircounts.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>

#define WIDE __attribute__((target("avx")))

namespace prereg::detail {

namespace {

using Bins = CPointFeatureHistogram::Bins;

constexpr std::size_t lanes = 8;
constexpr unsigned allLanes = 0xFF;

// For each mask of eight lanes the numbers of those that are set, lowest first.
constexpr auto setLanes = [] {
    std::array<std::array<std::uint8_t, lanes>, 256> table{};
    for (unsigned mask = 0; mask < table.size(); ++mask) {
        std::size_t n = 0;
        for (std::uint8_t lane = 0; lane < lanes; ++lane) {
            if ((mask >> lane & 1U) != 0) table[mask][n++] = lane;
        }
    }
    return table;
}();

struct Lanes3
{
    __m256 x;
    __m256 y;
    __m256 z;
};

WIDE inline Lanes3 splat(const kdtree::Vector<3>& v)
{
    return {_mm256_set1_ps(v.x), _mm256_set1_ps(v.y), _mm256_set1_ps(v.z)};
}

WIDE inline __m256 dot(const Lanes3& a, const Lanes3& b)
{
    const __m256 xy = _mm256_add_ps(_mm256_mul_ps(a.x, b.x), _mm256_mul_ps(a.y, b.y));
    return _mm256_add_ps(xy, _mm256_mul_ps(a.z, b.z));
}

WIDE inline Lanes3 cross(const Lanes3& a, const Lanes3& b)
{
    return {_mm256_sub_ps(_mm256_mul_ps(a.y, b.z), _mm256_mul_ps(a.z, b.y)),
            _mm256_sub_ps(_mm256_mul_ps(a.z, b.x), _mm256_mul_ps(a.x, b.z)),
            _mm256_sub_ps(_mm256_mul_ps(a.x, b.y), _mm256_mul_ps(a.y, b.x))};
}

// g++ 12 takes the blend instruction apart lane by lane for plain AVX.
WIDE inline __m256 select(__m256 a, __m256 b, __m256 mask)
{
    return _mm256_or_ps(_mm256_andnot_ps(mask, a), _mm256_and_ps(mask, b));
}

WIDE inline __m256 absolute(__m256 v) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0F), v); }

WIDE inline __m256 squaredDistances(const Candidates& candidates, std::size_t i, const Lanes3& p)
{
    const Lanes3 d = {_mm256_sub_ps(_mm256_loadu_ps(&candidates.x[i]), p.x),
                      _mm256_sub_ps(_mm256_loadu_ps(&candidates.y[i]), p.y),
                      _mm256_sub_ps(_mm256_loadu_ps(&candidates.z[i]), p.z)};
    return dot(d, d);
}

// Appends i plus each set lane of the mask to the list; writes up to eight entries past its end.
WIDE inline std::size_t append(std::uint32_t* list, std::size_t n, std::size_t i, unsigned mask)
{
    const __m128i base = _mm_set1_epi32(static_cast<int>(i));
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(setLanes[mask].data()));
    const __m128i low = _mm_add_epi32(base, _mm_cvtepu8_epi32(bytes));
    const __m128i high = _mm_add_epi32(base, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 4)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(list + n), low);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(list + n + 4), high);
    return n + static_cast<std::size_t>(std::popcount(mask));
}

// Lists the candidates first .. last - 1 within the radius.
WIDE std::size_t listNeighbours(const Candidates& candidates, std::size_t first, std::size_t last, const Lanes3& p,
                                float radiusSq, std::uint32_t* list, std::size_t n)
{
    const __m256 limit = _mm256_set1_ps(radiusSq);
    for (std::size_t i = first; i < last; i += lanes) {
        const __m256 isNear = _mm256_cmp_ps(squaredDistances(candidates, i, p), limit, _CMP_LE_OQ);
        const unsigned inside = last - i < lanes ? allLanes >> (lanes - (last - i)) : allLanes;
        n = append(list, n, i, static_cast<unsigned>(_mm256_movemask_ps(isNear)) & inside);
    }
    return n;
}

struct SurfelLanes
{
    Lanes3 point;
    Lanes3 normal;
};

// Eight surfels, turned from rows to columns.
WIDE inline SurfelLanes loadSurfels(const Surfel* surfels, const std::uint32_t* indices)
{
    const auto row = [&](std::size_t k) WIDE { return _mm256_loadu_ps(&surfels[indices[k]].point.x); };
    const __m256 a0 = row(0), a1 = row(1), a2 = row(2), a3 = row(3);
    const __m256 xy01 = _mm256_unpacklo_ps(a0, a1), z01 = _mm256_unpackhi_ps(a0, a1);
    const __m256 xy23 = _mm256_unpacklo_ps(a2, a3), z23 = _mm256_unpackhi_ps(a2, a3);
    const __m256 b0 = row(4), b1 = row(5), b2 = row(6), b3 = row(7);
    const __m256 xy45 = _mm256_unpacklo_ps(b0, b1), z45 = _mm256_unpackhi_ps(b0, b1);
    const __m256 xy67 = _mm256_unpacklo_ps(b2, b3), z67 = _mm256_unpackhi_ps(b2, b3);
    // Points in the low half, normals in the high half.
    const __m256 x0 = _mm256_shuffle_ps(xy01, xy23, 0x44), x4 = _mm256_shuffle_ps(xy45, xy67, 0x44);
    const __m256 y0 = _mm256_shuffle_ps(xy01, xy23, 0xEE), y4 = _mm256_shuffle_ps(xy45, xy67, 0xEE);
    const __m256 z0 = _mm256_shuffle_ps(z01, z23, 0x44), z4 = _mm256_shuffle_ps(z45, z67, 0x44);
    return {{_mm256_permute2f128_ps(x0, x4, 0x20), _mm256_permute2f128_ps(y0, y4, 0x20),
             _mm256_permute2f128_ps(z0, z4, 0x20)},
            {_mm256_permute2f128_ps(x0, x4, 0x31), _mm256_permute2f128_ps(y0, y4, 0x31),
             _mm256_permute2f128_ps(z0, z4, 0x31)}};
}

// As binOf: NaN and what no integer holds go to bin 0.
WIDE inline void storeBins(__m256 shifted, std::int32_t* bins)
{
    const __m256 fits = _mm256_cmp_ps(shifted, _mm256_set1_ps(2147483648.0F), _CMP_LT_OQ);
    const __m256 low = _mm256_max_ps(_mm256_and_ps(shifted, fits), _mm256_setzero_ps());
    const __m256 inRange = _mm256_min_ps(low, _mm256_set1_ps(static_cast<float>(lastBin)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bins), _mm256_cvtps_epi32(inRange));
}

WIDE inline __m256 shifted(__m256 value, float scale)
{
    return _mm256_add_ps(_mm256_mul_ps(_mm256_set1_ps(scale), value), _mm256_set1_ps(binOffset));
}

// atan2 with an error below 1.1e-5. Source: Abramowitz and Stegun, Handbook of Mathematical Functions, 4.4.49.
WIDE inline __m256 roughAtan2(__m256 y, __m256 x)
{
    const __m256 ay = absolute(y);
    const __m256 ax = absolute(x);
    const __m256 a = _mm256_div_ps(_mm256_min_ps(ax, ay), _mm256_max_ps(ax, ay));
    const __m256 s = _mm256_mul_ps(a, a);
    __m256 sum = _mm256_set1_ps(0.0208351F);
    for (const float coefficient : {-0.0851330F, 0.1801410F, -0.3302995F, 0.9998660F}) {
        sum = _mm256_add_ps(_mm256_mul_ps(sum, s), _mm256_set1_ps(coefficient));
    }
    const __m256 octant = _mm256_mul_ps(sum, a);
    const __m256 steep = _mm256_cmp_ps(ay, ax, _CMP_GT_OQ);
    const __m256 quadrant = select(octant, _mm256_sub_ps(_mm256_set1_ps(1.5707964F), octant), steep);
    const __m256 isLeft = _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_LT_OQ);
    const __m256 half = select(quadrant, _mm256_sub_ps(_mm256_set1_ps(3.1415927F), quadrant), isLeft);
    return _mm256_or_ps(half, _mm256_and_ps(y, _mm256_set1_ps(-0.0F)));
}

// Bins of atan2(y, x). Where the rough angle is too near to an edge between two bins to tell, or is none, the exact one
// decides: about one pair in 5,000.
WIDE inline void storeAngleBins(__m256 y, __m256 x, std::int32_t* bins)
{
    constexpr float unsure = 1e-4F;
    const __m256 rough = shifted(roughAtan2(y, x), angleScale);
    storeBins(rough, bins);
    const __m256 fraction = _mm256_sub_ps(rough, _mm256_floor_ps(rough));
    const __m256 toEdge = absolute(_mm256_sub_ps(fraction, _mm256_set1_ps(0.5F)));
    const __m256 isSure = _mm256_cmp_ps(toEdge, _mm256_set1_ps(unsure), _CMP_GE_OQ);
    auto doubtful = ~static_cast<unsigned>(_mm256_movemask_ps(isSure)) & allLanes;
    if (doubtful == 0) return;
    alignas(32) float ys[lanes];
    alignas(32) float xs[lanes];
    _mm256_store_ps(ys, y);
    _mm256_store_ps(xs, x);
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

WIDE inline void binPairs(const Lanes3& p, const Lanes3& n, const SurfelLanes& other, BinsOfPairs& bins)
{
    Lanes3 d = {_mm256_sub_ps(other.point.x, p.x), _mm256_sub_ps(other.point.y, p.y),
                _mm256_sub_ps(other.point.z, p.z)};
    const __m256 r = _mm256_rsqrt_ps(dot(d, d));
    const __m256 infinity = _mm256_set1_ps(std::numeric_limits<float>::infinity());
    const __m256 isFinite = _mm256_cmp_ps(absolute(r), infinity, _CMP_LT_OQ);
    const __m256 factor = select(_mm256_set1_ps(1.0F), r, isFinite);
    d = {_mm256_mul_ps(d.x, factor), _mm256_mul_ps(d.y, factor), _mm256_mul_ps(d.z, factor)};
    const Lanes3 v = cross(d, n);
    const Lanes3 w = cross(n, v);
    storeBins(shifted(dot(v, other.normal), cosineScale), bins.alpha);
    storeBins(shifted(dot(n, d), cosineScale), bins.phi);
    storeAngleBins(dot(w, other.normal), dot(n, other.normal), bins.theta);
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
    const Lanes3 p = splat(surfel.point);
    const Lanes3 normal = splat(surfel.normal);
    std::uint32_t* list = scratch.neighbours.data();
    std::size_t n = listNeighbours(candidates, 0, self, p, radiusSq, list, 0);
    n = listNeighbours(candidates, self + 1, candidates.count, p, radiusSq, list, n);
    std::fill_n(list + n, lanes, static_cast<std::uint32_t>(self)); // the rest of the last eight

    Counters counters;
    BinsOfPairs pairBins;
    for (std::size_t i = 0; i < n; i += lanes) {
        binPairs(p, normal, loadSurfels(candidates.surfels.data(), list + i), pairBins);
        const std::size_t used = std::min(lanes, n - i);
        for (std::size_t k = 0; k < used; ++k) counters.Count(pairBins, k);
    }
    counters.AddTo(bins);
    return static_cast<unsigned>(n) + 1;
}

WIDE void sumHistogramsAvx(const Candidates& candidates, std::size_t self, float radiusSq, float weight,
                           const SimplifiedHistogram* histograms, Scratch& scratch, Bins& sum)
{
    const Lanes3 p = splat(candidates.surfels[self].point);
    const __m256 limit = _mm256_set1_ps(radiusSq);
    std::uint32_t* list = scratch.neighbours.data();
    std::size_t n = 0;
    for (std::size_t i = 0; i < candidates.count; i += lanes) {
        const __m256 distSq = squaredDistances(candidates, i, p);
        const __m256 isNear = _mm256_and_ps(_mm256_cmp_ps(distSq, limit, _CMP_LE_OQ),
                                            _mm256_cmp_ps(distSq, _mm256_setzero_ps(), _CMP_GT_OQ));
        const std::size_t rest = candidates.count - i;
        const unsigned inside = rest < lanes ? allLanes >> (lanes - rest) : allLanes;
        const unsigned mask = static_cast<unsigned>(_mm256_movemask_ps(isNear)) & inside;
        if (mask == 0) continue;
        _mm256_storeu_ps(&scratch.weights[i], _mm256_mul_ps(_mm256_rsqrt_ps(distSq), _mm256_set1_ps(weight)));
        n = append(list, n, i, mask);
    }

    __m256 a = _mm256_loadu_ps(&sum[0]);
    __m256 b = _mm256_loadu_ps(&sum[8]);
    __m256 c = _mm256_loadu_ps(&sum[16]);
    __m256 d = _mm256_loadu_ps(&sum[24]);
    float last = sum[32];
    for (std::size_t k = 0; k < n; ++k) {
        const float* bins = histograms[candidates.index[list[k]]].histogram.AsArray().data();
        const float w = scratch.weights[list[k]];
        const __m256 factor = _mm256_set1_ps(w);
        a = _mm256_add_ps(a, _mm256_mul_ps(factor, _mm256_loadu_ps(bins)));
        b = _mm256_add_ps(b, _mm256_mul_ps(factor, _mm256_loadu_ps(bins + 8)));
        c = _mm256_add_ps(c, _mm256_mul_ps(factor, _mm256_loadu_ps(bins + 16)));
        d = _mm256_add_ps(d, _mm256_mul_ps(factor, _mm256_loadu_ps(bins + 24)));
        last += w * bins[32];
    }
    _mm256_storeu_ps(&sum[0], a);
    _mm256_storeu_ps(&sum[8], b);
    _mm256_storeu_ps(&sum[16], c);
    _mm256_storeu_ps(&sum[24], d);
    sum[32] = last;
}

} // namespace prereg::detail
