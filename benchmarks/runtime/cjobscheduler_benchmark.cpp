// SPDX-License-Identifier: MIT
// What a job costs beyond its own work: empty jobs in a long queue, in a group, and one at a time, beside tasks of
// oneTBB in the same run. A round ends when all of its jobs have ended, and counts them. Besides the time, which
// depends on what else the machine does, a row gives the processor time of all threads and how often a thread went to
// sleep.

#include "zorvan/runtime/cjobscheduler.h"

#include <benchmark/benchmark.h>
#include <oneapi/tbb/task_group.h>

#include <sys/resource.h>

#include <atomic>
#include <cstdint>

using Zorvan::CJobScheduler;

namespace {

constexpr std::int64_t iJobs = 10'000;

/// Counts what ran between its making and `Report`.
class CRun
{
public:
    std::atomic<std::int64_t> ran = 0;

    void Report(benchmark::State& state, std::int64_t jobsPerRound) const
    {
        const std::int64_t jobs = state.iterations() * jobsPerRound;
        if (ran != jobs) return state.SkipWithError("a job did not run");
        state.SetItemsProcessed(jobs);
        state.counters["sleeps_per_job"] = static_cast<double>(sleeps() - m_sleepsBefore) / static_cast<double>(jobs);
    }

private:
    static long sleeps()
    {
        rusage usage = {};
        ::getrusage(RUSAGE_SELF, &usage);
        return usage.ru_nvcsw;
    }

    const long m_sleepsBefore = sleeps();
};

void BM_Queue(benchmark::State& state)
{
    CJobScheduler scheduler(static_cast<unsigned int>(state.range(0)));
    CRun run;
    for (auto _ : state) {
        for (std::int64_t i = 0; i < iJobs; ++i) scheduler.Schedule([&] { ++run.ran; });
        scheduler.Wait();
    }
    run.Report(state, iJobs);
}

void BM_Group(benchmark::State& state)
{
    CJobScheduler scheduler(static_cast<unsigned int>(state.range(0)));
    const auto group = scheduler.CreateJobGroup({}, {});
    CRun run;
    for (auto _ : state) {
        for (std::int64_t i = 0; i < iJobs; ++i) group->Schedule([&] { ++run.ran; });
        group->Wait();
    }
    run.Report(state, iJobs);
}

void BM_OneAtATime(benchmark::State& state)
{
    CJobScheduler scheduler(static_cast<unsigned int>(state.range(0)));
    CRun run;
    for (auto _ : state) scheduler.Schedule([&] { ++run.ran; }).get();
    run.Report(state, 1);
}

void BM_TbbTasks(benchmark::State& state)
{
    tbb::task_group group;
    CRun run;
    for (auto _ : state) {
        for (std::int64_t i = 0; i < iJobs; ++i) group.run([&] { ++run.ran; });
        group.wait();
    }
    run.Report(state, iJobs);
}

} // namespace

BENCHMARK(BM_Queue)->ArgName("limit")->Arg(1)->Arg(2)->Arg(8)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_Group)->ArgName("limit")->Arg(1)->Arg(2)->Arg(8)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_OneAtATime)->ArgName("limit")->Arg(1)->Arg(2)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_TbbTasks)->MeasureProcessCPUTime()->UseRealTime();
