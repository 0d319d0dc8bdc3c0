// SPDX-License-Identifier: MIT
#include "zorvan/runtime/cjobscheduler.h"

#include "zorvan/runtime/jobworkers.h"
#include "zorvan/runtime/sharedflag.h"

#include <algorithm>
#include <utility>

namespace Zorvan {

CJobScheduler::CJobScheduler() : CJobScheduler(std::max(1U, std::thread::hardware_concurrency())) {}

CJobScheduler::CJobScheduler(unsigned int maxConcurrency) : m_maxConcurrency(maxConcurrency) { Continue(); }

CJobScheduler::~CJobScheduler() { CancelAndPause(false); }

std::future<void> CJobScheduler::Schedule(const std::function<void()>& function)
{
    return scheduleCall<void>(nullptr, function);
}

std::future<void> CJobScheduler::Schedule(const std::shared_ptr<Group>& group, const std::function<void()>& function)
{
    return scheduleCall<void>(group, function);
}

std::shared_ptr<CJobScheduler::Group> CJobScheduler::CreateJobGroup(const std::function<void()>& onStart,
                                                                    const std::function<void()>& onIdle)
{
    return std::shared_ptr<Group>(new Group(*this, onStart, onIdle));
}

CJobScheduler::operator std::shared_ptr<Group>() { return CreateJobGroup({}, {}); }

unsigned int CJobScheduler::Cancel(bool waitForRunning)
{
    const std::lock_guard control(m_controlMutex);
    WriteSharedFlag(m_cancelationFlag, waitForRunning);
    unsigned int removed = 0;
    while (m_queueItems.TryDown())
        if (cancelNextJob()) ++removed;

    if (!ReadSharedFlag(m_cancelationFlag)) return removed;
    Wait();
    WriteSharedFlag(m_cancelationFlag, false);
    return removed;
}

unsigned int CJobScheduler::CancelAndPause(bool waitForRunning)
{
    const std::lock_guard control(m_controlMutex);
    const unsigned int removed = Cancel(waitForRunning);
    Pause();
    return removed;
}

bool CJobScheduler::Pause()
{
    const std::lock_guard control(m_controlMutex);
    if (!m_distributorThread.joinable()) return false;
    takeSpace();
    {
        const std::lock_guard queue(m_queueMutex);
        m_jobQueue.push_front(nullptr);
    }
    m_queueItems.Up();
    m_distributorThread.join();
    return true;
}

bool CJobScheduler::Continue()
{
    const std::lock_guard control(m_controlMutex);
    if (m_distributorThread.joinable()) return false;
    m_distributorThread = std::thread([this] { distribute(); });
    return true;
}

bool CJobScheduler::Wait() const
{
    const std::lock_guard control(m_controlMutex);
    if (!m_distributorThread.joinable()) return false;
    m_idleEvent.Wait();
    return true;
}

bool CJobScheduler::IsIdle() const
{
    const std::lock_guard control(m_controlMutex);
    return m_distributorThread.joinable() && m_idleEvent.IsSet();
}

void CJobScheduler::distribute()
{
    CJobWorkers workers(m_maxConcurrency, [this](std::unique_ptr<JobBase> job) { runJob(std::move(job)); });
    // Without a free place the job waits in hand: out of the queue, so that `Cancel` cannot remove it any more.
    while (std::unique_ptr<JobBase> job = getNextJob()) workers.Schedule(std::move(job));
}

void CJobScheduler::runJob(std::unique_ptr<JobBase> job)
{
    if (!ReadSharedFlag(m_cancelationFlag)) job->Run();
    // What the function holds is gone before anybody who waits for the scheduler goes on.
    job.reset();
    const std::lock_guard queue(m_queueMutex);
    countTermination();
}

void CJobScheduler::enqueueJob(JobBase* job)
{
    std::unique_ptr<JobBase> owned(job);
    takeSpace();
    {
        const std::lock_guard queue(m_queueMutex);
        m_jobQueue.push_back(std::move(owned));
        if (++m_pendingJobs == 1) m_idleEvent.Reset();
    }
    m_queueItems.Up();
}

std::unique_ptr<CJobScheduler::JobBase> CJobScheduler::getNextJob()
{
    m_queueItems.Down();
    std::unique_lock queue(m_queueMutex);
    std::unique_ptr<JobBase> job = popFront();
    queue.unlock();
    giveSpace();
    return job;
}

std::unique_ptr<CJobScheduler::JobBase> CJobScheduler::popFront()
{
    std::unique_ptr<JobBase> job = std::move(m_jobQueue.front());
    m_jobQueue.pop_front();
    return job;
}

void CJobScheduler::takeSpace()
{
    if (m_queueSpaces) m_queueSpaces->Down();
}

void CJobScheduler::giveSpace()
{
    if (m_queueSpaces) m_queueSpaces->Up();
}

/// @return whether the front entry was a job; the caller has taken its item
bool CJobScheduler::cancelNextJob()
{
    std::unique_lock queue(m_queueMutex);
    const std::unique_ptr<JobBase> job = popFront();
    if (job) {
        job->Cancel();
        countTermination();
    }
    queue.unlock();
    giveSpace();
    return job != nullptr;
}

/// Called with the queue's mutex held throughout: a job that is scheduled between the count and the event would be
/// pending on a scheduler that calls itself idle.
void CJobScheduler::countTermination()
{
    if (--m_pendingJobs != 0) return;
    m_idleEvent.Set();
    WriteSharedFlag(m_cancelationFlag, false);
}

CJobScheduler::Group::Group(CJobScheduler& scheduler, const std::function<void()>& onStart,
                            const std::function<void()>& onIdle)
    : m_scheduler(&scheduler), m_onStart(onStart), m_onIdle(onIdle)
{
    if (m_onIdle) m_onIdle();
}

std::future<void> CJobScheduler::Group::Schedule(const std::function<void()>& function)
{
    return m_scheduler->Schedule(shared_from_this(), function);
}

void CJobScheduler::Group::Wait() const { m_idleEvent.Wait(); }

unsigned int CJobScheduler::Group::GetMaxConcurrency() const { return m_scheduler->GetMaxConcurrency(); }

void CJobScheduler::Group::notifyJobStart()
{
    std::unique_lock lock(m_mutex);
    const bool started = ++m_activeJobs == 1 && m_idleEvent.Reset();
    lock.unlock();
    if (started && m_onStart) m_onStart();
}

void CJobScheduler::Group::notifyJobTermination()
{
    std::unique_lock lock(m_mutex);
    const bool ended = --m_activeJobs == 0 && m_idleEvent.Set();
    lock.unlock();
    if (ended && m_onIdle) m_onIdle();
}

} // namespace Zorvan
