// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/runtime/cjobscheduler.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Zorvan {

/// Threads for the jobs of one running period of a scheduler. They start when there is something to do and nobody free
/// to do it, so a high limit costs nothing; at most `maxThreads` of them. One thread schedules and destroys.
///
/// What a short job costs is the waking of threads, so few are woken: a worker that ends its job takes the next one in
/// the same breath, also the one that still waits for its place, and of several sleepers one is called at a time, who
/// calls the next before it starts its own job.
class CJobWorkers
{
public:
    using Run = std::function<void(std::unique_ptr<CJobScheduler::JobBase>)>;

    CJobWorkers(unsigned int maxThreads, Run run);
    CJobWorkers(const CJobWorkers&) = delete;
    CJobWorkers& operator=(const CJobWorkers&) = delete;
    /// Returns when all jobs have ended.
    ~CJobWorkers();

    /// Starts the job, or waits until it has got the place of one of `maxThreads` others. A system that has no thread
    /// left to give makes the job wait for a free worker; without any worker it runs on the calling thread.
    void Schedule(std::unique_ptr<CJobScheduler::JobBase> job);

private:
    [[nodiscard]] bool tryAddThread();
    void work();
    void runNextJob(std::unique_lock<std::mutex>& lock);
    [[nodiscard]] bool callWorker();
    [[nodiscard]] bool hasPlaceForAll() const { return m_running + m_jobs.size() <= m_maxThreads; }

    const unsigned int m_maxThreads;
    const Run m_run;
    std::vector<std::thread> m_threads; ///< touched by the scheduling thread only

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::condition_variable m_placeFree;
    std::deque<std::unique_ptr<CJobScheduler::JobBase>> m_jobs; ///< not started; the last may be without a place
    std::size_t m_running = 0;
    std::size_t m_sleeping = 0;
    bool m_isCalled = false; ///< a sleeper, who is not awake yet. Set whenever jobs and sleepers are there
    bool m_closed = false;
};

} // namespace Zorvan
