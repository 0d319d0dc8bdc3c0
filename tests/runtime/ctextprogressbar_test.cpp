#include "zorvan/runtime/ctextprogressbar.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

using namespace Zorvan;

TEST(CTextProgressBar, DrawsEachPercentOfItsStagesOnce)
{
    std::ostringstream out;
    CTextProgressBar bar(out, "scan");
    bar.Start(128);
    CStageProgressMeter first(bar, 32), second(bar, 96);
    first.Start(64);
    for (int step = 0; step < 64; ++step) first.Advance(1);
    EXPECT_DOUBLE_EQ(bar.Fraction(), 0.25);
    second.Start(192);
    for (int step = 0; step < 192; ++step) second.Advance(1);
    EXPECT_DOUBLE_EQ(bar.Fraction(), 1.0);
    bar.Finish();
    EXPECT_EQ(std::ranges::count(out.str(), '\r'), 101);
    EXPECT_NE(out.str().find("\rscan [####################                    ]  50%\r"), std::string::npos);
    EXPECT_TRUE(out.str().ends_with("] 100%\n"));
}
