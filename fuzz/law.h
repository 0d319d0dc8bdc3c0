// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program with the law that does not hold, so that fuzzer and replay both keep the input.
inline void Law(bool holds, const char* law)
{
    if (holds) return;
    std::fprintf(stderr, "broken law: %s\n", law);
    std::abort();
}
