// SPDX-License-Identifier: MIT
#include "zorvan/platform/parallelcalls.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

namespace Zorvan {

void RunInParallel(std::size_t count, void (*call)(void*), void* context)
{
    tbb::this_task_arena::isolate([=] {
        const auto body = [=](std::size_t) { call(context); };
        tbb::parallel_for(std::size_t{0}, count, body, tbb::simple_partitioner());
    });
}

} // namespace Zorvan
