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

} // namespace Zorvan
