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
class CJobWorkers
{
public:
    using Run = std::function<void(std::unique_ptr<CJobScheduler::JobBase>)>;

    CJobWorkers(unsigned int maxThreads, Run run);
    CJobWorkers(const CJobWorkers&) = delete;
    CJobWorkers& operator=(const CJobWorkers&) = delete;
    /// Returns when all jobs have ended.
    ~CJobWorkers();

    /// Starts the job at once, provided that fewer than `maxThreads` others run. A system that has no thread left to
    /// give makes it wait for a free worker; without any worker it runs on the calling thread.
    void Schedule(std::unique_ptr<CJobScheduler::JobBase> job);

private:
    [[nodiscard]] bool tryAddThread();
    void work();
    [[nodiscard]] std::unique_ptr<CJobScheduler::JobBase> takeJob();

    const unsigned int m_maxThreads;
    const Run m_run;
    std::vector<std::thread> m_threads; ///< touched by the scheduling thread only

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::deque<std::unique_ptr<CJobScheduler::JobBase>> m_jobs;
    std::size_t m_sleeping = 0;
    bool m_closed = false;
};

} // namespace Zorvan
