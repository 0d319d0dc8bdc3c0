// SPDX-License-Identifier: MIT
#include "zorvan/runtime/cjobscheduler.h"

#include "zorvan/runtime/sharedflag.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Zorvan::CJobScheduler;

namespace {

const std::string canceled = std::bad_function_call().what();
const std::string skipped = std::future_error(std::future_errc::broken_promise).what();

std::string outcomeOf(std::future<void>& future)
{
    if (future.wait_for(0s) != std::future_status::ready) return "pending";
    try {
        return future.get(), "done";
    } catch (const std::exception& error) {
        return error.what();
    }
}

struct Job
{
    std::future<void> future;
    std::atomic<int> runs = 0;
};

/// Waits until a thread of this process waits for something.
void waitUntilAsleep(pid_t thread)
{
    for (std::string state; state != "S"; std::this_thread::yield()) {
        std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::string number, name;
        status >> number >> name >> state;
    }
}

/// @return how many jobs were taken out of the queue
unsigned int disturb(CJobScheduler& scheduler, std::mt19937& random)
{
    scheduler.Continue();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
    const auto action = random() % 32;
    if (action < 2) return scheduler.Cancel(action == 1);
    if (action == 2) return scheduler.CancelAndPause(random() % 2 == 0);
    EXPECT_TRUE(action == 3 ? scheduler.Wait() : scheduler.Pause());
    return 0;
}

class JobStorm : public testing::TestWithParam<unsigned int>
{
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Concurrency, JobStorm, testing::Values(1U, 3U, 16U));

TEST_P(JobStorm, EveryFutureTellsWhetherItsJobRan)
{
    CJobScheduler scheduler(GetParam());
    const std::shared_ptr<CJobScheduler::Group> group = scheduler;
    std::vector<Job> jobs(24120);
    std::atomic<unsigned int> running = 0;
    const auto run = [&](std::size_t i, unsigned int kind) {
        EXPECT_LE(++running, GetParam());
        ++jobs[i].runs;
        if (kind % 16 == 0) std::this_thread::sleep_for(50us);
        --running;
        if (kind % 5 == 0) throw std::runtime_error("thrown");
    };
    const auto produce = [&](unsigned int part) {
        std::mt19937 random(part);
        for (std::size_t i = part; i < 24000; i += 3) {
            const auto job = [&run, i, kind = static_cast<unsigned int>(random())] { run(i, kind); };
            jobs[i].future = random() % 2 == 0 ? scheduler.Schedule(job) : group->Schedule(job);
            if (random() % 16 == 0) std::this_thread::sleep_for(500us);
        }
    };
    std::future<void> producers[3];
    for (unsigned int i = 0; i < 3; ++i) producers[i] = std::async(std::launch::async, produce, i);

    std::mt19937 random(47110815);
    unsigned int removed = 0;
    for (std::future<void>& producer : producers)
        while (producer.wait_for(0s) != std::future_status::ready) removed += disturb(scheduler, random);
    // However the machine was busy, some jobs are taken out of the queue.
    scheduler.Pause();
    for (std::size_t i = 24000; i < 24020; ++i) jobs[i].future = scheduler.Schedule([] {});
    removed += scheduler.CancelAndPause(false);
    scheduler.Continue();
    // And now some are sure to run.
    for (unsigned int i = 24020; i < jobs.size(); ++i) jobs[i].future = scheduler.Schedule([&run, i] { run(i, i); });
    ASSERT_TRUE(scheduler.Wait() && scheduler.IsIdle());
    EXPECT_FALSE(Zorvan::ReadSharedFlag(scheduler.GetCancelationFlag()));

    std::map<std::string, unsigned int> outcomes;
    for (Job& job : jobs) {
        const std::string outcome = outcomeOf(job.future);
        ++outcomes[outcome];
        EXPECT_EQ(job.runs, outcome == "done" || outcome == "thrown" ? 1 : 0);
    }
    EXPECT_EQ(outcomes[canceled], removed);
    EXPECT_EQ(outcomes["pending"], 0U);
    EXPECT_TRUE(removed > 10 && outcomes["done"] > 50 && outcomes["thrown"] > 10);
}

TEST(CJobScheduler, GroupsTurnBusyAndIdleInTurnThroughPausesAndExceptions)
{
    CJobScheduler scheduler(3);
    std::atomic<int> starts = 0, idles = 0, ran = 0;
    const auto group = scheduler.CreateJobGroup([&] { ++starts; }, [&] { ++idles; });
    for (int i = 1; i <= 3000; ++i) {
        group->Schedule([&] { throw std::runtime_error(std::to_string(++ran)); });
        if (i % 50 == 0) scheduler.Pause();
        scheduler.Continue();
        if (i % 20 == 0) group->Wait();
        EXPECT_TRUE(ran == i || i % 20 != 0);
    }
    scheduler.Wait();
    EXPECT_EQ(idles, starts + 1);
    EXPECT_GE(starts, 100);
}

TEST(CJobScheduler, RunsAsManyJobsAtOnceAsItSays)
{
    CJobScheduler scheduler(12);             // more than the machine has processors
    for (int jobs = 1; jobs <= 12; ++jobs) { // each round needs one more thread than there is
        std::barrier meeting(jobs);
        for (int i = 0; i < jobs; ++i) scheduler.Schedule([&] { meeting.arrive_and_wait(); });
        scheduler.Wait();
    }
}

TEST(CJobScheduler, PauseGoesAheadOfTheQueueAndKeepsItsOrderAndAGroupThatLostAJobStaysBusy)
{
    CJobScheduler scheduler(1);
    int idles = 0;
    const auto group = scheduler.CreateJobGroup({}, [&] { ++idles; });
    std::promise<void> started, release;
    group->Schedule([&] { started.set_value(), release.get_future().wait(); });
    started.get_future().wait();
    auto empty = group->Schedule({});
    std::vector<int> order;
    for (int i = 0; i < 100; ++i) scheduler.Schedule([&order, i] { order.push_back(i); });
    std::promise<pid_t> pauser;
    auto paused = std::async(std::launch::async, [&] { return pauser.set_value(::gettid()), scheduler.Pause(); });
    waitUntilAsleep(pauser.get_future().get());
    EXPECT_EQ(paused.wait_for(0s), std::future_status::timeout); // the running job ends first
    release.set_value();
    EXPECT_TRUE(paused.get());

    EXPECT_LE(order.size(), 1U); // what the distributor held
    EXPECT_FALSE(scheduler.Pause() || scheduler.Wait() || scheduler.IsIdle());
    EXPECT_TRUE(scheduler.Continue() && !scheduler.Continue() && scheduler.Wait());
    EXPECT_TRUE(order.size() == 100 && std::ranges::is_sorted(order));
    EXPECT_EQ(outcomeOf(empty), canceled);
    EXPECT_EQ(idles, 1);
}

TEST(CJobScheduler, CancelThatWaitsSkipsWhatHasNotStarted)
{
    CJobScheduler scheduler(1);
    std::atomic<bool> started = false;
    const auto poll = [&] {
        for (started = true; !Zorvan::ReadSharedFlag(scheduler.GetCancelationFlag());) std::this_thread::yield();
    };
    std::future<void> jobs[] = {scheduler.Schedule(poll), scheduler.Schedule(poll), scheduler.Schedule(poll)};
    while (!started) std::this_thread::yield();
    std::this_thread::sleep_for(20ms); // the distributor takes the second in hand
    const unsigned int removed = scheduler.Cancel(true);
    std::multiset<std::string> outcomes;
    for (std::future<void>& job : jobs) outcomes.insert(outcomeOf(job));
    EXPECT_TRUE(outcomes.count("done") == 1 && outcomes.count(canceled) == removed);
    EXPECT_EQ(outcomes.count(skipped), 2 - removed);
}
