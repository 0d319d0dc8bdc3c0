#include "zorvan/runtime/jobworkers.h"

#include <system_error>
#include <utility>

namespace Zorvan {

CJobWorkers::CJobWorkers(unsigned int maxThreads, Run run) : m_maxThreads(maxThreads), m_run(std::move(run)) {}

CJobWorkers::~CJobWorkers()
{
    {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
        m_changed.notify_all();
    }
    for (std::thread& thread : m_threads) thread.join();
}

void CJobWorkers::Schedule(std::unique_ptr<CJobScheduler::JobBase> job)
{
    {
        const std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
        // A worker that was woken for an earlier job still counts as sleeping, and so does that job as waiting.
        if (m_jobs.size() <= m_sleeping) return m_changed.notify_one();
    }
    // At the limit a worker that is through with its job is about to look for the next one.
    if (m_threads.size() >= m_maxThreads || tryAddThread() || !m_threads.empty()) return;
    m_run(takeJob());
}

bool CJobWorkers::tryAddThread()
{
    try {
        m_threads.emplace_back([this] { work(); });
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

void CJobWorkers::work()
{
    while (std::unique_ptr<CJobScheduler::JobBase> job = takeJob()) m_run(std::move(job));
}

/// @return null: no job is left, and none will come
std::unique_ptr<CJobScheduler::JobBase> CJobWorkers::takeJob()
{
    std::unique_lock lock(m_mutex);
    ++m_sleeping;
    m_changed.wait(lock, [this] { return m_closed || !m_jobs.empty(); });
    --m_sleeping;
    if (m_jobs.empty()) return nullptr;
    std::unique_ptr<CJobScheduler::JobBase> job = std::move(m_jobs.front());
    m_jobs.pop_front();
    return job;
}

} // namespace Zorvan
