// SPDX-License-Identifier: MIT
// Bins 0 to 31 in four rounds of eight lanes, bin 32 alone.

#include "zorvan/features/histogramlanes.h"
#include "zorvan/platform/simd_avx.h"

#include <bit>
#include <cmath>

namespace prereg::detail {

namespace {

using Zorvan::simd::Float8;

constexpr std::size_t wholeLanes = 32;

} // namespace

WIDE void addAvx(Bins& bins, const Bins& other, float weight)
{
    const Float8 w = Float8::Set1(weight);
    for (std::size_t i = 0; i < wholeLanes; i += Float8::width)
        (Float8::Load(&bins[i]) + w * Float8::Load(&other[i])).Store(&bins[i]);
    bins[32] += weight * other[32];
}

WIDE void scaleAvx(Bins& bins, float factor)
{
    const Float8 f = Float8::Set1(factor);
    for (std::size_t i = 0; i < wholeLanes; i += Float8::width) (Float8::Load(&bins[i]) * f).Store(&bins[i]);
    bins[32] *= factor;
}

WIDE unsigned countEmptyAvx(const Bins& bins)
{
    unsigned count = 0;
    for (std::size_t i = 0; i < wholeLanes; i += Float8::width) {
        const Float8 isEmpty = EqualOrNaN(Float8::Load(&bins[i]), Float8::Set1(0.0F));
        count += static_cast<unsigned>(std::popcount(isEmpty.Bits()));
    }
    return count;
}

WIDE float ratioDistanceAvx(const Bins& a, const Bins& b)
{
    Float8 differences = Float8::Set1(0.0F);
    Float8 sums = Float8::Set1(0.0F);
    for (std::size_t i = 0; i < wholeLanes; i += Float8::width) {
        const Float8 x = Float8::Load(&a[i]);
        const Float8 y = Float8::Load(&b[i]);
        differences = differences + Abs(x - y);
        sums = sums + (x + y);
    }
    return (differences.Sum() + std::abs(a[32] - b[32])) / (sums.Sum() + (a[32] + b[32]));
}

WIDE float squaredDistanceAvx(const Bins& a, const Bins& b)
{
    Float8 sum = Float8::Set1(0.0F);
    for (std::size_t i = 0; i < wholeLanes; i += Float8::width) {
        const Float8 d = Float8::Load(&a[i]) - Float8::Load(&b[i]);
        sum = sum + d * d;
    }
    const float last = a[32] - b[32];
    return sum.Sum() + last * last;
}

WIDE float chi2DistanceAvx(const Bins& a, const Bins& b)
{
    Float8 sum = Float8::Set1(0.0F);
    for (std::size_t i = 0; i < wholeLanes; i += Float8::width) {
        const Float8 x = Float8::Load(&a[i]);
        const Float8 y = Float8::Load(&b[i]);
        const Float8 d = x - y;
        const Float8 term = d * d / (x + y);
        sum = sum + (term & (term == term));
    }
    const float last = a[32] - b[32];
    const float lastTerm = last * last / (a[32] + b[32]);
    return sum.Sum() + (std::isnan(lastTerm) ? 0.0F : lastTerm);
}

} // namespace prereg::detail
