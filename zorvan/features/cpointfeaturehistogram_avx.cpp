// Bins 0 to 31 in four rounds of eight lanes, bin 32 alone. Only functions marked WIDE use AVX.

#include "zorvan/features/histogramlanes.h"

#include <immintrin.h>

#include <bit>
#include <cmath>

#define WIDE __attribute__((target("avx")))

namespace prereg::detail {

namespace {

constexpr std::size_t wholeLanes = 32;

WIDE inline float sumOfLanes(__m256 v)
{
    __m128 sum = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
    sum = _mm_add_ps(sum, _mm_movehl_ps(sum, sum));
    return _mm_cvtss_f32(_mm_add_ss(sum, _mm_movehdup_ps(sum)));
}

WIDE inline __m256 absolute(__m256 v) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0F), v); }

} // namespace

WIDE void addAvx(Bins& bins, const Bins& other, float weight)
{
    const __m256 w = _mm256_set1_ps(weight);
    for (std::size_t i = 0; i < wholeLanes; i += 8) {
        const __m256 product = _mm256_mul_ps(w, _mm256_loadu_ps(&other[i]));
        _mm256_storeu_ps(&bins[i], _mm256_add_ps(_mm256_loadu_ps(&bins[i]), product));
    }
    bins[32] += weight * other[32];
}

WIDE void scaleAvx(Bins& bins, float factor)
{
    const __m256 f = _mm256_set1_ps(factor);
    for (std::size_t i = 0; i < wholeLanes; i += 8) {
        _mm256_storeu_ps(&bins[i], _mm256_mul_ps(_mm256_loadu_ps(&bins[i]), f));
    }
    bins[32] *= factor;
}

WIDE unsigned countEmptyAvx(const Bins& bins)
{
    unsigned count = 0;
    for (std::size_t i = 0; i < wholeLanes; i += 8) {
        const __m256 isEmpty = _mm256_cmp_ps(_mm256_loadu_ps(&bins[i]), _mm256_setzero_ps(), _CMP_EQ_UQ);
        count += static_cast<unsigned>(std::popcount(static_cast<unsigned>(_mm256_movemask_ps(isEmpty))));
    }
    return count;
}

WIDE float ratioDistanceAvx(const Bins& a, const Bins& b)
{
    __m256 differences = _mm256_setzero_ps();
    __m256 sums = _mm256_setzero_ps();
    for (std::size_t i = 0; i < wholeLanes; i += 8) {
        const __m256 x = _mm256_loadu_ps(&a[i]);
        const __m256 y = _mm256_loadu_ps(&b[i]);
        differences = _mm256_add_ps(differences, absolute(_mm256_sub_ps(x, y)));
        sums = _mm256_add_ps(sums, _mm256_add_ps(x, y));
    }
    return (sumOfLanes(differences) + std::abs(a[32] - b[32])) / (sumOfLanes(sums) + (a[32] + b[32]));
}

WIDE float squaredDistanceAvx(const Bins& a, const Bins& b)
{
    __m256 sum = _mm256_setzero_ps();
    for (std::size_t i = 0; i < wholeLanes; i += 8) {
        const __m256 d = _mm256_sub_ps(_mm256_loadu_ps(&a[i]), _mm256_loadu_ps(&b[i]));
        sum = _mm256_add_ps(sum, _mm256_mul_ps(d, d));
    }
    const float last = a[32] - b[32];
    return sumOfLanes(sum) + last * last;
}

WIDE float chi2DistanceAvx(const Bins& a, const Bins& b)
{
    __m256 sum = _mm256_setzero_ps();
    for (std::size_t i = 0; i < wholeLanes; i += 8) {
        const __m256 x = _mm256_loadu_ps(&a[i]);
        const __m256 y = _mm256_loadu_ps(&b[i]);
        const __m256 d = _mm256_sub_ps(x, y);
        const __m256 term = _mm256_div_ps(_mm256_mul_ps(d, d), _mm256_add_ps(x, y));
        const __m256 isNumber = _mm256_cmp_ps(term, term, _CMP_ORD_Q);
        sum = _mm256_add_ps(sum, _mm256_and_ps(term, isNumber));
    }
    const float last = a[32] - b[32];
    const float lastTerm = last * last / (a[32] + b[32]);
    return sumOfLanes(sum) + (std::isnan(lastTerm) ? 0.0F : lastTerm);
}

} // namespace prereg::detail
