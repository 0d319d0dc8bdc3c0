// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

namespace Zorvan {

/// What the processor and the operating system offer beyond the baseline (x86-64 with SSE4.2).
struct CpuFeatures
{
    bool bAvx = false;  ///< 256-bit floats, and the system saves the wide registers (CPUID and XCR0)
    bool bAvx2 = false; ///< 256-bit integers too
};

/// Looked up once, then constant. Thread-safe.
[[nodiscard]] ZORVAN_API const CpuFeatures& GetCpuFeatures();

/// The vector units that inner loops are written for. What both compute agrees to the last bit; features need AVX.
enum class ESimd
{
    Baseline, ///< SSE4.2, four lanes
    Avx       ///< eight lanes
};

/// The one in use: AVX where the processor has it, unless the environment says ZORVAN_SIMD=baseline. Thread-safe.
[[nodiscard]] ZORVAN_API ESimd GetSimd();
/// Uses nothing wider from now on, whatever the environment says; what the processor lacks stays unused. For tests that
/// compare the two: nothing may compute meanwhile. @return  the one in use before
ZORVAN_API ESimd LimitSimd(ESimd widest);
/// "avx", or "baseline" as the environment has it.
[[nodiscard]] ZORVAN_API const char* NameOf(ESimd simd);

} // namespace Zorvan
