// SPDX-License-Identifier: MIT
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

// Nobody is woken under the mutex: he would find it locked and go to sleep again. Workers end before the object does.

void CJobWorkers::Schedule(std::unique_ptr<CJobScheduler::JobBase> job)
{
    std::unique_lock lock(m_mutex);
    m_jobs.push_back(std::move(job));
    // A worker that was called for an earlier job still counts as sleeping, and so does that job as waiting.
    const bool isThreadMissing = m_jobs.size() > m_sleeping && m_threads.size() < m_maxThreads;
    const bool isCalled = callWorker();
    lock.unlock();
    if (isCalled) m_changed.notify_one();
    const bool isWithoutThread = isThreadMissing && !tryAddThread() && m_threads.empty();
    lock.lock();
    if (isWithoutThread) return runNextJob(lock);
    m_placeFree.wait(lock, [this] { return hasPlaceForAll(); });
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
    std::unique_lock lock(m_mutex);
    for (;;) {
        while (!m_jobs.empty()) runNextJob(lock);
        if (m_closed) return;
        ++m_sleeping;
        m_changed.wait(lock);
        --m_sleeping;
        m_isCalled = false;
    }
}

void CJobWorkers::runNextJob(std::unique_lock<std::mutex>& lock)
{
    std::unique_ptr<CJobScheduler::JobBase> job = std::move(m_jobs.front());
    m_jobs.pop_front();
    ++m_running;
    const bool isCalled = callWorker();
    const bool isPlaceFree = hasPlaceForAll();
    lock.unlock();
    if (isPlaceFree) m_placeFree.notify_one();
    if (isCalled) m_changed.notify_one();
    m_run(std::move(job));
    lock.lock();
    --m_running;
}

/// @return whether a sleeper has to be woken now
bool CJobWorkers::callWorker()
{
    if (m_jobs.empty() || m_sleeping == 0 || m_isCalled) return false;
    m_isCalled = true;
    return true;
}

} // namespace Zorvan
