#pragma once

// Four single-precision lanes, SSE4.2. Not installed: intrinsics stay inside the library.

#include <nmmintrin.h>

#include <cstdint>

namespace Zorvan::simd {

struct Float4
{
    __m128 v;
};

inline Float4 Load(const float* p) { return {_mm_loadu_ps(p)}; }
inline void Store(float* p, Float4 a) { _mm_storeu_ps(p, a.v); }
inline Float4 Set1(float a) { return {_mm_set1_ps(a)}; }

inline Float4 operator+(Float4 a, Float4 b) { return {_mm_add_ps(a.v, b.v)}; }
inline Float4 operator-(Float4 a, Float4 b) { return {_mm_sub_ps(a.v, b.v)}; }
inline Float4 operator*(Float4 a, Float4 b) { return {_mm_mul_ps(a.v, b.v)}; }

/// Lane-wise; b where either lane is NaN.
inline Float4 Min(Float4 a, Float4 b) { return {_mm_min_ps(a.v, b.v)}; }
inline Float4 Max(Float4 a, Float4 b) { return {_mm_max_ps(a.v, b.v)}; }

/// Lanes 0, 1, 2 added left to right.
inline float Sum3(Float4 a)
{
    const __m128 xy = _mm_add_ss(a.v, _mm_movehdup_ps(a.v));
    return _mm_cvtss_f32(_mm_add_ss(xy, _mm_movehl_ps(a.v, a.v)));
}

inline Float4 Floor(Float4 a) { return {_mm_floor_ps(a.v)}; }

/// About 12 bits; the last bits differ between processors.
inline float ApproximateReciprocal(float a) { return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(a))); }
inline float ApproximateReciprocalSqrt(float a) { return _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(a))); }

/// To the nearest integer, ties to even; NaN and what does not fit become the lowest number.
inline std::int32_t RoundToInt(float a) { return _mm_cvtss_si32(_mm_set_ss(a)); }
inline void RoundToInt(Float4 a, std::int32_t* out)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_cvtps_epi32(a.v));
}

/// One step of CRC-32C (Castagnoli), without the inversions at start and end.
inline std::uint32_t Crc32(std::uint32_t crc, std::uint32_t value) { return _mm_crc32_u32(crc, value); }
inline std::uint32_t Crc32(std::uint32_t crc, std::uint64_t value)
{
    return static_cast<std::uint32_t>(_mm_crc32_u64(crc, value));
}

} // namespace Zorvan::simd
