// SPDX-License-Identifier: MIT
#include "zorvan/platform/cpufeatures.h"

#include "zorvan/platform/simd.h"

#include <cpuid.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace Zorvan {

namespace {

// XGETBV by its opcode name, since the intrinsic would ask for a wider target than our baseline.
std::uint64_t readXcr0()
{
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (std::uint64_t{high} << 32) | low;
}

CpuFeatures detect()
{
    constexpr unsigned int osUsesXsave = 1U << 27;
    constexpr unsigned int avx = 1U << 28;
    constexpr unsigned int avx2 = 1U << 5;
    constexpr std::uint64_t sseAndAvxState = 0x6;

    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
    unsigned int d = 0;
    CpuFeatures features;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0) return features;
    if ((c & osUsesXsave) == 0 || (c & avx) == 0) return features;
    if ((readXcr0() & sseAndAvxState) != sseAndAvxState) return features;

    features.bAvx = true;
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) != 0) features.bAvx2 = (b & avx2) != 0;
    return features;
}

} // namespace

const CpuFeatures& GetCpuFeatures()
{
    static const CpuFeatures features = detect();
    return features;
}

namespace simd::detail {

std::atomic<int> isWide{-1};

bool chooseWidth()
{
    const char* const wish = std::getenv("ZORVAN_SIMD");
    const bool wide = GetCpuFeatures().bAvx && (wish == nullptr || std::strcmp(wish, NameOf(ESimd::Baseline)) != 0);
    isWide.store(wide ? 1 : 0, std::memory_order_relaxed);
    return wide;
}

} // namespace simd::detail

ESimd GetSimd() { return simd::IsWide() ? ESimd::Avx : ESimd::Baseline; }

ESimd LimitSimd(ESimd widest)
{
    const ESimd before = GetSimd();
    simd::detail::isWide.store(widest == ESimd::Avx && GetCpuFeatures().bAvx ? 1 : 0, std::memory_order_relaxed);
    return before;
}

const char* NameOf(ESimd simd) { return simd == ESimd::Avx ? "avx" : "baseline"; }

} // namespace Zorvan
