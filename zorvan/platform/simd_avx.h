// SPDX-License-Identifier: MIT
#pragma once

// Eight single-precision lanes, AVX, in the vocabulary of simd.h. For files named *_avx.cpp: only functions marked WIDE
// may use it, and they are called where `IsWide` holds. Not installed.

#include "zorvan/platform/simd.h"

#include <immintrin.h>

#include <array>
#include <cstddef>

/// Compiles one function for AVX, whatever the build is for.
#define WIDE __attribute__((target("avx")))

namespace Zorvan::simd {

struct Float8
{
    static constexpr std::uint32_t width = 8;
    __m256 v;

    WIDE static Float8 Load(const float* p) { return {_mm256_loadu_ps(p)}; }
    WIDE static Float8 Set1(float a) { return {_mm256_set1_ps(a)}; }
    WIDE static Float8 SetBits(std::uint32_t bits) { return Set1(std::bit_cast<float>(bits)); }
    WIDE static Float8 First(std::uint32_t count)
    {
        return Load(reinterpret_cast<const float*>(laneMasks + 8 - count));
    }
    WIDE void Store(float* p) const { _mm256_storeu_ps(p, v); }
    /// Each lane to the nearest integer, ties to even; NaN and what does not fit become the lowest number.
    WIDE void StoreRounded(std::int32_t* p) const
    {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm256_cvtps_epi32(v));
    }

    WIDE friend Float8 operator+(Float8 a, Float8 b) { return {_mm256_add_ps(a.v, b.v)}; }
    WIDE friend Float8 operator-(Float8 a, Float8 b) { return {_mm256_sub_ps(a.v, b.v)}; }
    WIDE friend Float8 operator*(Float8 a, Float8 b) { return {_mm256_mul_ps(a.v, b.v)}; }
    WIDE friend Float8 operator/(Float8 a, Float8 b) { return {_mm256_div_ps(a.v, b.v)}; }
    WIDE friend Float8 operator&(Float8 a, Float8 b) { return {_mm256_and_ps(a.v, b.v)}; }
    WIDE friend Float8 operator|(Float8 a, Float8 b) { return {_mm256_or_ps(a.v, b.v)}; }
    WIDE friend Float8 operator<(Float8 a, Float8 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LT_OQ)}; }
    WIDE friend Float8 operator<=(Float8 a, Float8 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LE_OQ)}; }
    WIDE friend Float8 operator>(Float8 a, Float8 b) { return b < a; }
    WIDE friend Float8 operator>=(Float8 a, Float8 b) { return b <= a; }
    WIDE friend Float8 operator==(Float8 a, Float8 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_EQ_OQ)}; }

    [[nodiscard]] WIDE unsigned Bits() const { return static_cast<unsigned>(_mm256_movemask_ps(v)); }
    [[nodiscard]] WIDE float Smallest() const { return Float4{_mm_min_ps(low(), high())}.Smallest(); }
    /// Lanes four apart, then as four lanes are added.
    [[nodiscard]] WIDE float Sum() const { return Float4{_mm_add_ps(low(), high())}.Sum(); }

private:
    [[nodiscard]] WIDE __m128 low() const { return _mm256_castps256_ps128(v); }
    [[nodiscard]] WIDE __m128 high() const { return _mm256_extractf128_ps(v, 1); }
};

/// b where the mask is set, else a. Not the blend instruction: for plain AVX, g++ 12 takes it apart lane by lane, at
/// eight times the cost of a leaf of the k-d tree.
WIDE inline Float8 Select(Float8 a, Float8 b, Float8 mask)
{
    return {_mm256_or_ps(_mm256_andnot_ps(mask.v, a.v), _mm256_and_ps(mask.v, b.v))};
}

/// Lane-wise; b where either lane is NaN.
WIDE inline Float8 Min(Float8 a, Float8 b) { return {_mm256_min_ps(a.v, b.v)}; }
WIDE inline Float8 Max(Float8 a, Float8 b) { return {_mm256_max_ps(a.v, b.v)}; }
WIDE inline Float8 Floor(Float8 a) { return {_mm256_floor_ps(a.v)}; }
WIDE inline Float8 Abs(Float8 a) { return {_mm256_andnot_ps(_mm256_set1_ps(-0.0F), a.v)}; }
WIDE inline Float8 EqualOrNaN(Float8 a, Float8 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_EQ_UQ)}; }
/// About 12 bits; the last bits differ between processors.
WIDE inline Float8 ApproximateReciprocalSqrt(Float8 a) { return {_mm256_rsqrt_ps(a.v)}; }

/// The same lane of eight vectors with three coordinates.
struct Vector8
{
    Float8 x;
    Float8 y;
    Float8 z;
};

/// Columns 0 to 2, and columns 4 to 6, of eight rows of eight numbers each.
/// @param row  gives the start of row 0 to 7
template <typename Row>
WIDE inline std::array<Vector8, 2> LoadColumns(Row row)
{
    const __m256 a0 = _mm256_loadu_ps(row(0)), a1 = _mm256_loadu_ps(row(1));
    const __m256 a2 = _mm256_loadu_ps(row(2)), a3 = _mm256_loadu_ps(row(3));
    const __m256 xy01 = _mm256_unpacklo_ps(a0, a1), z01 = _mm256_unpackhi_ps(a0, a1);
    const __m256 xy23 = _mm256_unpacklo_ps(a2, a3), z23 = _mm256_unpackhi_ps(a2, a3);
    const __m256 b0 = _mm256_loadu_ps(row(4)), b1 = _mm256_loadu_ps(row(5));
    const __m256 b2 = _mm256_loadu_ps(row(6)), b3 = _mm256_loadu_ps(row(7));
    const __m256 xy45 = _mm256_unpacklo_ps(b0, b1), z45 = _mm256_unpackhi_ps(b0, b1);
    const __m256 xy67 = _mm256_unpacklo_ps(b2, b3), z67 = _mm256_unpackhi_ps(b2, b3);
    // Columns 0 to 2 in the low half, 4 to 6 in the high half.
    const __m256 x0 = _mm256_shuffle_ps(xy01, xy23, 0x44), x4 = _mm256_shuffle_ps(xy45, xy67, 0x44);
    const __m256 y0 = _mm256_shuffle_ps(xy01, xy23, 0xEE), y4 = _mm256_shuffle_ps(xy45, xy67, 0xEE);
    const __m256 z0 = _mm256_shuffle_ps(z01, z23, 0x44), z4 = _mm256_shuffle_ps(z45, z67, 0x44);
    return {{{{_mm256_permute2f128_ps(x0, x4, 0x20)},
              {_mm256_permute2f128_ps(y0, y4, 0x20)},
              {_mm256_permute2f128_ps(z0, z4, 0x20)}},
             {{_mm256_permute2f128_ps(x0, x4, 0x31)},
              {_mm256_permute2f128_ps(y0, y4, 0x31)},
              {_mm256_permute2f128_ps(z0, z4, 0x31)}}}};
}

/// For each mask of eight lanes the numbers of those that are set, lowest first.
inline constexpr auto setLanes = [] {
    std::array<std::array<std::uint8_t, 8>, 256> table{};
    for (unsigned mask = 0; mask < table.size(); ++mask) {
        std::size_t n = 0;
        for (std::uint8_t lane = 0; lane < 8; ++lane) {
            if ((mask >> lane & 1U) != 0) table[mask][n++] = lane;
        }
    }
    return table;
}();

/// Appends i plus each set lane of the mask to a list of n entries; writes up to eight entries past its end.
/// @return  the entries it has then
WIDE inline std::size_t AppendSetLanes(std::uint32_t* list, std::size_t n, std::size_t i, unsigned mask)
{
    const __m128i base = _mm_set1_epi32(static_cast<int>(i));
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(setLanes[mask].data()));
    const __m128i low = _mm_add_epi32(base, _mm_cvtepu8_epi32(bytes));
    const __m128i high = _mm_add_epi32(base, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 4)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(list + n), low);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(list + n + 4), high);
    return n + static_cast<std::size_t>(std::popcount(mask));
}

} // namespace Zorvan::simd
