// SPDX-License-Identifier: MIT
#include "tests/support/logcapture.h"
#include "zorvan/platform/clogger.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using Logging::ELogLevel;
using support::LogCapture;

const Logging::CLogger logger(L"Test.Domain");

TEST(CLogger, FormatsEveryKindOfArgumentAndTellsWhereItWasCalled)
{
    const LogCapture log;
    const int line = __LINE__ + 1;
    logger.Info(L"%i %u %zu %.1f %s %s %.3f", -3, 4U, std::size_t{5'000'000'000}, 6.25, L"wide", "caf\xC3\xA9", 0.5F);
    ASSERT_EQ(log.Messages().size(), 1U);
    const auto& message = log.Messages().front();
    EXPECT_EQ(message.text, L"-3 4 5000000000 6.2 wide caf\u00E9 0.500");
    EXPECT_EQ(message.domain, L"Test.Domain");
    EXPECT_EQ(message.eLevel, ELogLevel::Info);
    EXPECT_EQ(message.line, line);
    EXPECT_EQ(message.function, "TestBody");
}

TEST(CLogger, PassesOnlyEnabledLevels)
{
    const LogCapture log(ELogLevel::Warn);
    EXPECT_FALSE(logger.IsLogLevelEnabled(ELogLevel::Info));
    EXPECT_TRUE(logger.IsLogLevelEnabled(ELogLevel::Warn));
    logger.Info(L"quiet");
    logger.Warn(L"heard");
    logger.Fatal(L"heard too");
    EXPECT_EQ(log.Messages().size(), 2U);
}

TEST(CLogger, GivesTheRawTextWhenItDoesNotFitItsArguments)
{
    const LogCapture log;
    logger.Warn(L"%s of %d", 3);
    EXPECT_EQ(log.Messages().at(0).text, L"%s of %d");
}

TEST(CLogger, KeepsMessagesWholeWhenManyThreadsLog)
{
    const LogCapture log;
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 250; ++i) logger.Debug(L"thread %i", t);
        });
    }
    threads.clear();
    EXPECT_EQ(log.Messages().size(), 1000U);
}

} // namespace
