// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/runtime/cjobscheduler.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace prereg {

/// Calls f(0) .. f(count - 1) and returns after the last: in jobs of the group, as many as it may run at once, or on
/// the calling thread when the group is null. A job takes one free index after the other, so long and short calls even
/// out. Where a call writes only what belongs to its index, the result does not depend on the number of threads.
///
/// Work of jobs that somebody takes out of the scheduler's queue is done by the calling thread.
/// @throws what the first call to fail has thrown
ZORVAN_API void ForEachIndex(const std::shared_ptr<Zorvan::CJobScheduler::Group>& group, std::size_t count,
                             const std::function<void(std::size_t)>& f);

} // namespace prereg
