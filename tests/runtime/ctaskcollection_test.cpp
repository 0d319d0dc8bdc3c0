// SPDX-License-Identifier: MIT
#include "zorvan/platform/ctaskcollection.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

using Zorvan::CTaskCollection;

TEST(ForEachTask, CallsEachIndexOnceForAnyNumberOfTasks)
{
    for (const unsigned tasks : {0U, 1U, 3U, 200U}) {
        std::vector<int> calls(50, 0);
        Zorvan::ForEachTask(calls.size(), tasks, [&](std::size_t i) { ++calls[i]; });
        EXPECT_EQ(calls, std::vector<int>(50, 1)) << tasks;
        EXPECT_THROW(Zorvan::ForEachTask(2, tasks, [](std::size_t) { throw std::runtime_error("no"); }),
                     std::runtime_error);
    }
}

TEST(CTaskCollection, RunsNestedTasksAndThrowsTheFirstScheduledFailureWhenAllHaveRun)
{
    std::vector<int> sums(100, 0); // plain: every task writes its own, and the wait makes them visible
    CTaskCollection outer;
    for (int round = 1; round <= 50; ++round) {
        for (int i = 0; i < 100; ++i)
            outer.Schedule([&sum = sums[static_cast<std::size_t>(i)], i] {
                int parts[8] = {};
                CTaskCollection inner;
                for (int& part : parts) inner.Schedule([&part] { part = 1; });
                inner.RunAndWait();
                for (const int part : parts) sum += part;
                if (i % 30 == 29) throw std::runtime_error(std::to_string(i));
            });
        EXPECT_EQ(sums, std::vector<int>(100, 8 * (round - 1))) << "none runs before the call";
        EXPECT_THAT([&] { outer.RunAndWait(); }, testing::ThrowsMessage<std::runtime_error>("29"));
        EXPECT_EQ(sums, std::vector<int>(100, 8 * round));
    }
}
