#pragma once

// The vocabulary of the leaf scans, one struct a width: so many single-precision lanes, and masks of as many lanes.
// All widths add in the same order, so they find the same points and the same squared distances.

#include "zorvan/platform/simd.h"

#include <bit>
#include <cstdint>

namespace Zorvan::detail {

/// All bits set, then none: a load `count` before the middle gives a mask of the first `count` lanes.
alignas(32) inline constexpr std::int32_t laneMasks[16] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};

struct SseLanes
{
    static constexpr std::uint32_t width = 4;
    __m128 v;

    static SseLanes Load(const float* p) { return {_mm_loadu_ps(p)}; }
    static SseLanes Set1(float a) { return {_mm_set1_ps(a)}; }
    static SseLanes SetBits(std::uint32_t bits) { return Set1(std::bit_cast<float>(bits)); }
    static SseLanes First(std::uint32_t count)
    {
        return {_mm_loadu_ps(reinterpret_cast<const float*>(laneMasks + 8 - count))};
    }
    void Store(float* p) const { _mm_storeu_ps(p, v); }

    friend SseLanes operator+(SseLanes a, SseLanes b) { return {_mm_add_ps(a.v, b.v)}; }
    friend SseLanes operator-(SseLanes a, SseLanes b) { return {_mm_sub_ps(a.v, b.v)}; }
    friend SseLanes operator*(SseLanes a, SseLanes b) { return {_mm_mul_ps(a.v, b.v)}; }
    friend SseLanes operator&(SseLanes a, SseLanes b) { return {_mm_and_ps(a.v, b.v)}; }
    friend SseLanes operator<(SseLanes a, SseLanes b) { return {_mm_cmplt_ps(a.v, b.v)}; }
    friend SseLanes operator<=(SseLanes a, SseLanes b) { return {_mm_cmple_ps(a.v, b.v)}; }
    friend SseLanes operator==(SseLanes a, SseLanes b) { return {_mm_cmpeq_ps(a.v, b.v)}; }

    /// b where the mask is set, else a.
    static SseLanes Select(SseLanes a, SseLanes b, SseLanes mask) { return {_mm_blendv_ps(a.v, b.v, mask.v)}; }
    [[nodiscard]] unsigned Bits() const { return static_cast<unsigned>(_mm_movemask_ps(v)); }
    [[nodiscard]] float Smallest() const
    {
        const __m128 pairs = _mm_min_ps(v, _mm_movehl_ps(v, v));
        return _mm_cvtss_f32(_mm_min_ss(pairs, _mm_movehdup_ps(pairs)));
    }
};

} // namespace Zorvan::detail
