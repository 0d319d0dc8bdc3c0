// SPDX-License-Identifier: MIT
#include "zorvan/core/groupwork.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <mutex>
#include <vector>

namespace prereg {

namespace {

// Jobs refer to the frame of their caller, so it may not be left before they have ended, be it by an exception.
struct Jobs
{
    std::vector<std::future<void>> futures;

    Jobs() = default;
    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;
    ~Jobs() { Wait(); }

    // By future, not by group: a group that lost a job to `Cancel` stays busy for good.
    void Wait() const
    {
        for (const auto& future : futures) future.wait();
    }
};

} // namespace

void ForEachIndex(const std::shared_ptr<Zorvan::CJobScheduler::Group>& group, std::size_t count,
                  const std::function<void(std::size_t)>& f)
{
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::exception_ptr failure;
    const auto work = [&] {
        try {
            for (std::size_t k = next++; k < count; k = next++) f(k);
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    };

    Jobs jobs;
    const std::size_t numJobs = group ? std::min<std::size_t>(group->GetMaxConcurrency(), count) : 0;
    jobs.futures.reserve(numJobs);
    while (jobs.futures.size() < numJobs) jobs.futures.push_back(group->Schedule(work));
    jobs.Wait();
    work();
    if (failure) std::rethrow_exception(failure);
}

} // namespace prereg
