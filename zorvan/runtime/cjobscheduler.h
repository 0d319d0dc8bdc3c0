// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/runtime/waitobjects.h"

#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>

namespace Zorvan {

/// Runs functions in the background, first in, first out, at most `GetMaxConcurrency()` at a time, and hands back a
/// future for each. Jobs have threads of their own, so they may wait for one another as long as that limit allows.
///
///     CJobScheduler scheduler(2);
///     const auto group = scheduler.CreateJobGroup([] { showBusy(); }, [] { showIdle(); });
///     std::future<void> done = group->Schedule([&] { compute(); });
///     group->Wait();
///
/// A scheduler is running from its construction on. Paused, it keeps its queue and takes more jobs, but neither `Wait`
/// nor `IsIdle` answers true. A job cannot be stopped from outside; a long one polls `GetCancelationFlag()`.
///
/// What a future reports: the function's result or exception; std::bad_function_call when `Cancel` took the job out of
/// the queue or the function was empty; a broken promise when `Cancel(true)` met the job between queue and start.
///
/// All operations are thread-safe. While one thread is in `Wait` or `Cancel(true)`, others wait with `Cancel`,
/// `CancelAndPause`, `Pause`, `Continue`, `Wait` and `IsIdle`, but can schedule. A job that calls `Wait` on its own
/// scheduler, or its destructor, waits for itself.
class ZORVAN_API CJobScheduler
{
public:
    class ZORVAN_API JobBase
    {
    public:
        virtual void Run() = 0;
        virtual void Cancel() = 0;
        virtual ~JobBase() = default;
    };

    /// Jobs that are waited for together. Calls back, with no lock held, when the group turns busy (`onStart`, on the
    /// thread that schedules) and when it turns idle (`onIdle`, on a job's thread, before that job counts as ended for
    /// the scheduler). An exception from either is not caught.
    ///
    /// The count falls only when a function has run. A group that lost a job to `Cancel`, or was given an empty
    /// function, stays busy for good: `Wait` does not return and `onIdle` is not called again. Callers cancel and drop
    /// the group.
    class ZORVAN_API Group : public std::enable_shared_from_this<Group>
    {
    public:
        std::future<void> Schedule(const std::function<void()>& function);
        /// Waits until the group has no job. Holds no lock of the scheduler.
        void Wait() const;
        [[nodiscard]] unsigned int GetMaxConcurrency() const;

    private:
        friend class CJobScheduler;

        Group(CJobScheduler& scheduler, const std::function<void()>& onStart, const std::function<void()>& onIdle);

        void notifyJobStart();
        void notifyJobTermination();

        CJobScheduler* m_scheduler; ///< outlives the use of the group
        std::uint64_t m_activeJobs = 0;
        CManualResetEvent m_idleEvent{true};
        std::mutex m_mutex;
        std::function<void()> m_onStart;
        std::function<void()> m_onIdle;
    };

    template <class Signature>
    class FunctionCallJob;

    /// As many jobs at once as the machine runs threads.
    CJobScheduler();
    /// The argument is taken as it is. With 0 no job ever starts, and once one is scheduled, neither `Pause` nor the
    /// destructor returns.
    explicit CJobScheduler(unsigned int maxConcurrency);
    CJobScheduler(const CJobScheduler&) = delete;
    CJobScheduler& operator=(const CJobScheduler&) = delete;
    /// Removes what is queued and waits for what runs.
    ~CJobScheduler();

    std::future<void> Schedule(const std::function<void()>& function);
    /// @param group  notified before the job exists; may be null
    std::future<void> Schedule(const std::shared_ptr<Group>& group, const std::function<void()>& function);

    /// The same for functions with a result.
    template <class F, class R = std::invoke_result_t<F&>>
    requires(!std::is_void_v<R>) std::future<R> Schedule(const F& function)
    {
        return scheduleCall<R>(nullptr, function);
    }
    template <class F, class R = std::invoke_result_t<F&>>
    requires(!std::is_void_v<R>) std::future<R> Schedule(const std::shared_ptr<Group>& group, const F& function)
    {
        return scheduleCall<R>(group, function);
    }

    /// Calls `onIdle` once before it returns: a group is idle at birth, and says so. Both may be empty.
    [[nodiscard]] std::shared_ptr<Group> CreateJobGroup(const std::function<void()>& onStart,
                                                        const std::function<void()>& onIdle);
    /// A new group without callbacks, so that a scheduler can be passed where a group is asked for.
    operator std::shared_ptr<Group>();

    /// Takes all jobs out of the queue.
    /// @param waitForRunning  true: jobs that left the queue but have not started are skipped, `GetCancelationFlag()`
    ///                        reads true, and the call returns when the running jobs have ended; not on a paused
    ///                        scheduler, where it returns at once
    /// @return                how many jobs were in the queue
    unsigned int Cancel(bool waitForRunning);
    /// `Cancel` and `Pause` with no other call in between. @return as `Cancel`
    unsigned int CancelAndPause(bool waitForRunning);
    /// Takes effect ahead of the queue: returns when the jobs that have left it have ended. @return false: was paused
    bool Pause();
    /// @return false: was running
    bool Continue();
    /// Waits until no job is queued or running. @return false, at once, when paused
    bool Wait() const;
    /// @return false when paused
    [[nodiscard]] bool IsIdle() const;

    /// True while `Cancel(true)` waits. Lives as long as the scheduler. Read it through ReadSharedFlag (sharedflag.h).
    [[nodiscard]] const bool& GetCancelationFlag() const { return m_cancelationFlag; }
    [[nodiscard]] unsigned int GetMaxConcurrency() const { return m_maxConcurrency; }

private:
    template <class R>
    std::future<R> scheduleCall(const std::shared_ptr<Group>& group, const std::function<R()>& function);

    void distribute();
    void runJob(std::unique_ptr<JobBase> job);
    /// Owns the job from the call on.
    void enqueueJob(JobBase* job);
    [[nodiscard]] std::unique_ptr<JobBase> getNextJob();
    [[nodiscard]] std::unique_ptr<JobBase> popFront();
    void takeSpace();
    void giveSpace();
    [[nodiscard]] bool cancelNextJob();
    void countTermination();

    // Order of locks: control, a semaphore's own (released before the next), queue, the idle event's.
    std::deque<std::unique_ptr<JobBase>> m_jobQueue; ///< null: the distributor stops here
    std::thread m_distributorThread;                 ///< joinable: running
    std::mutex m_queueMutex;
    CCountingSemaphore m_queueItems{0};
    std::optional<CCountingSemaphore> m_queueSpaces; ///< free places of a bounded queue; absent: unbounded
    mutable std::recursive_mutex m_controlMutex;
    std::uint32_t m_pendingJobs = 0; ///< queued, waiting for a slot or running; guarded by the queue's mutex
    const std::uint32_t m_maxConcurrency;
    CManualResetEvent m_idleEvent{true}; ///< set exactly while no job is pending
    bool m_cancelationFlag = false;      ///< only through sharedflag.h
};

template <class R>
class CJobScheduler::FunctionCallJob<R()> : public JobBase
{
public:
    FunctionCallJob(const std::shared_ptr<Group>& jobGroup, const std::function<R()>& call)
        : group(jobGroup), function(call)
    {
    }

    void Run() override
    {
        if (!function) return Cancel();
        try {
            if constexpr (std::is_void_v<R>) {
                function();
                promise.set_value();
            } else {
                promise.set_value(function());
            }
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
        if (group) group->notifyJobTermination();
    }

    void Cancel() override { promise.set_exception(std::make_exception_ptr(std::bad_function_call())); }

    std::shared_ptr<Group> group;
    std::function<R()> function;
    std::promise<R> promise;
};

template <class R>
std::future<R> CJobScheduler::scheduleCall(const std::shared_ptr<Group>& group, const std::function<R()>& function)
{
    if (group) group->notifyJobStart();
    auto job = std::make_unique<FunctionCallJob<R()>>(group, function);
    std::future<R> future = job->promise.get_future();
    enqueueJob(job.release());
    return future;
}

} // namespace Zorvan
