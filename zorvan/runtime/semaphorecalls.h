// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/ckernelobjects.h"

#include <stdexcept>

namespace Zorvan {

/// The named semaphore's operations with the exceptions that the classes of shared memory promise.

inline void WaitOrThrow(const CNamedSemaphore& semaphore)
{
    if (!semaphore.Wait()) throw std::runtime_error("WaitForSingleObject() failed!");
}

inline void ReleaseOrThrow(const CNamedSemaphore& semaphore)
{
    if (!semaphore.Release()) throw std::runtime_error("ReleaseSemaphore() failed!");
}

} // namespace Zorvan
