// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace Zorvan {

/// A set of independent tasks that run on all processors, joined at one point.
///
///     CTaskCollection tasks;
///     for (const Range& part : parts) tasks.Schedule([&] { compute(part); });
///     tasks.RunAndWait(); // all parts are done, or the first failure is thrown
///
/// Nothing runs before `RunAndWait`; a collection that is dropped without it drops its tasks. Tasks must not block on
/// one another: there may be a single thread for all of them (jobs that wait belong on a CJobScheduler). A collection
/// is used by one thread; a task may use a collection of its own.
class ZORVAN_API CTaskCollection
{
public:
    void Schedule(std::function<void()> task);

    /// Runs what was scheduled, with the help of the calling thread, and returns when all of it has ended. The
    /// collection is then empty and can be filled again. The calling thread takes on no foreign task meanwhile, so it
    /// may hold locks that other tasks of the process want.
    /// @throws what a task threw. The others run to their end all the same, and of several exceptions the one scheduled
    ///         first is thrown, so that a failure does not depend on the number of threads.
    void RunAndWait();

private:
    std::vector<std::function<void()>> m_tasks;
};

/// Calls `work(i)` for each index below the count, spread over at most so many tasks; on the calling thread alone for
/// one. @throws what `work` threw, see RunAndWait
template <typename Work>
void ForEachTask(std::size_t count, unsigned uiNumTasks, const Work& work)
{
    const std::size_t step = uiNumTasks < 1 ? 1 : uiNumTasks;
    const auto runFrom = [&work, step, count](std::size_t first) {
        for (std::size_t i = first; i < count; i += step) work(i);
    };
    if (step == 1) return runFrom(0);
    CTaskCollection tasks;
    for (std::size_t first = 0; first < step && first < count; ++first)
        tasks.Schedule([&runFrom, first] { runFrom(first); });
    tasks.RunAndWait();
}

} // namespace Zorvan
