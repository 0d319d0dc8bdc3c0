// SPDX-License-Identifier: MIT
#pragma once

// Four single-precision lanes, SSE4.2, in the vocabulary that simd_avx.h has for eight; four lanes of 32 and eight of
// 16 bits; and what else needs intrinsics of the baseline. Not installed: intrinsics stay inside the library.

#include <nmmintrin.h>

#include <atomic>
#include <bit>
#include <cstdint>

namespace Zorvan::simd {

namespace detail {

/// Below 0 until somebody has asked.
extern std::atomic<int> isWide;
bool chooseWidth();

} // namespace detail

/// Whether eight lanes are in use, see `GetSimd`; as cheap as reading a variable.
inline bool IsWide()
{
    const int isWide = detail::isWide.load(std::memory_order_relaxed);
    return isWide < 0 ? detail::chooseWidth() : isWide != 0;
}

/// All bits set, then none: a load `count` before the middle gives a mask of the first `count` lanes.
alignas(32) inline constexpr std::int32_t laneMasks[16] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};

/// Comparisons give masks: all bits of a lane, or none.
struct Float4
{
    static constexpr std::uint32_t width = 4;
    __m128 v;

    static Float4 Load(const float* p) { return {_mm_loadu_ps(p)}; }
    static Float4 Set1(float a) { return {_mm_set1_ps(a)}; }
    static Float4 SetBits(std::uint32_t bits) { return Set1(std::bit_cast<float>(bits)); }
    /// A mask of the first `count` lanes.
    static Float4 First(std::uint32_t count)
    {
        return {_mm_loadu_ps(reinterpret_cast<const float*>(laneMasks + 8 - count))};
    }
    void Store(float* p) const { _mm_storeu_ps(p, v); }
    /// Each lane to the nearest integer, ties to even; NaN and what does not fit become the lowest number.
    void StoreRounded(std::int32_t* p) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_cvtps_epi32(v)); }

    friend Float4 operator+(Float4 a, Float4 b) { return {_mm_add_ps(a.v, b.v)}; }
    friend Float4 operator-(Float4 a, Float4 b) { return {_mm_sub_ps(a.v, b.v)}; }
    friend Float4 operator*(Float4 a, Float4 b) { return {_mm_mul_ps(a.v, b.v)}; }
    friend Float4 operator&(Float4 a, Float4 b) { return {_mm_and_ps(a.v, b.v)}; }
    friend Float4 operator<(Float4 a, Float4 b) { return {_mm_cmplt_ps(a.v, b.v)}; }
    friend Float4 operator<=(Float4 a, Float4 b) { return {_mm_cmple_ps(a.v, b.v)}; }
    friend Float4 operator==(Float4 a, Float4 b) { return {_mm_cmpeq_ps(a.v, b.v)}; }

    /// One bit per lane of a mask.
    [[nodiscard]] unsigned Bits() const { return static_cast<unsigned>(_mm_movemask_ps(v)); }
    [[nodiscard]] float Smallest() const
    {
        const __m128 pairs = _mm_min_ps(v, _mm_movehl_ps(v, v));
        return _mm_cvtss_f32(_mm_min_ss(pairs, _mm_movehdup_ps(pairs)));
    }
    /// Lanes 0 and 2, and 1 and 3, then both.
    [[nodiscard]] float Sum() const
    {
        const __m128 pairs = _mm_add_ps(v, _mm_movehl_ps(v, v));
        return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehdup_ps(pairs)));
    }
};

/// b where the mask is set, else a.
inline Float4 Select(Float4 a, Float4 b, Float4 mask) { return {_mm_blendv_ps(a.v, b.v, mask.v)}; }

/// Lane k in all lanes.
template <int k>
inline Float4 Splat(Float4 a)
{
    return {_mm_shuffle_ps(a.v, a.v, _MM_SHUFFLE(k, k, k, k))};
}

/// Lane-wise; b where either lane is NaN.
inline Float4 Min(Float4 a, Float4 b) { return {_mm_min_ps(a.v, b.v)}; }
inline Float4 Max(Float4 a, Float4 b) { return {_mm_max_ps(a.v, b.v)}; }
inline Float4 Floor(Float4 a) { return {_mm_floor_ps(a.v)}; }

/// The same lane of four vectors with three coordinates.
struct Vector4
{
    Float4 x;
    Float4 y;
    Float4 z;
};

/// Columns 0 to 2 of four rows of four numbers each.
/// @param row  gives the start of row 0 to 3
template <typename Row>
inline Vector4 LoadFourRows(Row row)
{
    const __m128 a0 = _mm_loadu_ps(row(0)), a1 = _mm_loadu_ps(row(1));
    const __m128 a2 = _mm_loadu_ps(row(2)), a3 = _mm_loadu_ps(row(3));
    const __m128 xy01 = _mm_unpacklo_ps(a0, a1), xy23 = _mm_unpacklo_ps(a2, a3);
    const __m128 zw01 = _mm_unpackhi_ps(a0, a1), zw23 = _mm_unpackhi_ps(a2, a3);
    return {{_mm_movelh_ps(xy01, xy23)}, {_mm_movehl_ps(xy23, xy01)}, {_mm_movelh_ps(zw01, zw23)}};
}

/// Lanes 0, 1, 2 added left to right.
inline float Sum3(Float4 a)
{
    const __m128 xy = _mm_add_ss(a.v, _mm_movehdup_ps(a.v));
    return _mm_cvtss_f32(_mm_add_ss(xy, _mm_movehl_ps(a.v, a.v)));
}

/// About 12 bits; the last bits differ between processors.
inline float ApproximateReciprocal(float a) { return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(a))); }
inline float ApproximateReciprocalSqrt(float a) { return _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(a))); }

/// To the nearest integer, ties to even; NaN and what does not fit become the lowest number.
inline std::int32_t RoundToInt(float a) { return _mm_cvtss_si32(_mm_set_ss(a)); }

/// Four unsigned lanes of 32 bits, arithmetic modulo 2^32.
struct UInt4
{
    __m128i v;
};

inline UInt4 Load(const std::uint32_t* p) { return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))}; }
inline UInt4 Set1(std::uint32_t a) { return {_mm_set1_epi32(static_cast<int>(a))}; }
inline UInt4 operator-(UInt4 a, UInt4 b) { return {_mm_sub_epi32(a.v, b.v)}; }
inline UInt4 operator&(UInt4 a, UInt4 b) { return {_mm_and_si128(a.v, b.v)}; }
inline UInt4 operator|(UInt4 a, UInt4 b) { return {_mm_or_si128(a.v, b.v)}; }
inline UInt4 operator>>(UInt4 a, int bits) { return {_mm_srli_epi32(a.v, bits)}; }
/// Lanes 0 and 1, lane 0 in the lower half.
inline std::uint64_t LowPair(UInt4 a) { return static_cast<std::uint64_t>(_mm_cvtsi128_si64(a.v)); }
/// Lanes 2 and 3.
inline std::uint64_t HighPair(UInt4 a) { return static_cast<std::uint64_t>(_mm_extract_epi64(a.v, 1)); }

/// Eight unsigned lanes of 16 bits.
struct UShort8
{
    __m128i v;
};

inline UShort8 Load(const std::uint16_t* p) { return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))}; }
inline void Store(std::uint16_t* p, UShort8 a) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), a.v); }
inline UShort8 ZeroUShort8() { return {_mm_setzero_si128()}; }
/// What does not fit becomes 65535.
inline UShort8 AddSaturated(UShort8 a, UShort8 b) { return {_mm_adds_epu16(a.v, b.v)}; }
inline UShort8 Max(UShort8 a, UShort8 b) { return {_mm_max_epu16(a.v, b.v)}; }
/// Lanes 1 to 7 of a, then lane 0 of b.
inline UShort8 ShiftedDown(UShort8 a, UShort8 b) { return {_mm_alignr_epi8(b.v, a.v, sizeof(std::uint16_t))}; }
inline std::uint16_t Largest(UShort8 a)
{
    const __m128i flipped = _mm_xor_si128(a.v, _mm_set1_epi16(-1)); // there is an instruction for the smallest only
    return static_cast<std::uint16_t>(~_mm_cvtsi128_si32(_mm_minpos_epu16(flipped)));
}

/// One step of CRC-32C (Castagnoli), without the inversions at start and end.
inline std::uint32_t Crc32(std::uint32_t crc, std::uint8_t value) { return _mm_crc32_u8(crc, value); }
inline std::uint32_t Crc32(std::uint32_t crc, std::uint32_t value) { return _mm_crc32_u32(crc, value); }
inline std::uint32_t Crc32(std::uint32_t crc, std::uint64_t value)
{
    return static_cast<std::uint32_t>(_mm_crc32_u64(crc, value));
}

} // namespace Zorvan::simd
