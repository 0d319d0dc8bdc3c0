// SPDX-License-Identifier: MIT
#include "zorvan/platform/ctaskcollection.h"

#include "zorvan/platform/parallelcalls.h"

#include <atomic>
#include <cstddef>
#include <exception>
#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

/// Touched by who hands a batch over and by who takes from it, so that the takers see the batch as it was built. It
/// stands outside the batch because an atomic in there would itself have to be seen first.
constinit std::atomic<unsigned int> handedOver = 0;

struct Batch
{
    explicit Batch(std::vector<std::function<void()>> scheduled) : tasks(std::move(scheduled)), failures(tasks.size())
    {
    }

    const std::vector<std::function<void()>> tasks;
    std::vector<std::exception_ptr> failures;
    std::atomic<std::size_t> next = 0;
    std::atomic<std::size_t> done = 0; ///< who has read the last of them sees what the tasks wrote
};

void runNextTask(void* context)
{
    (void)handedOver.load();
    Batch& batch = *static_cast<Batch*>(context);
    const std::size_t index = batch.next.fetch_add(1);
    try {
        batch.tasks[index]();
    } catch (...) {
        batch.failures[index] = std::current_exception();
    }
    batch.done.fetch_add(1);
}

} // namespace

void CTaskCollection::Schedule(std::function<void()> task) { m_tasks.push_back(std::move(task)); }

void CTaskCollection::RunAndWait()
{
    Batch batch(std::exchange(m_tasks, {}));
    handedOver.fetch_add(1);
    RunInParallel(batch.tasks.size(), runNextTask, &batch);
    if (batch.done.load() != batch.tasks.size()) throw std::logic_error("task runtime lost a task");

    for (const std::exception_ptr& failure : batch.failures)
        if (failure) std::rethrow_exception(failure);
}

} // namespace Zorvan
