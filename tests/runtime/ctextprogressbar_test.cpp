// SPDX-License-Identifier: MIT
#include "zorvan/runtime/ctextprogressbar.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

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

// 29, 57 and 58 divided by 100 lie below the true quotient.
TEST(CTextProgressBar, ShowsEachOfAHundredStepsAsItsPercentAlsoThroughAStage)
{
    std::ostringstream out;
    CTextProgressBar bar(out, "scan");
    bar.Start(100);
    CStageProgressMeter stage(bar, 100);
    stage.Start(100);
    for (int step = 1; step < 100; ++step) {
        stage.Advance(1);
        EXPECT_TRUE(out.str().ends_with(std::to_string(step) + "%")) << step;
    }
}

TEST(CTextProgressBar, VanishesWhenAStageEndsAndWhenItGoesItself)
{
    std::ostringstream out;
    {
        CTextProgressBar bar(out, "", CTextProgressBar::EStyle::Vanishing);
        bar.Start(2, "reading");
        bar.Advance(2);
        EXPECT_TRUE(out.str().ends_with("100%\x1b[K\r\x1b[K"));
        bar.Start(4, "merging");
        bar.Advance(1);
        EXPECT_NE(out.str().find("\rmerging [##########                              ]  25%"), std::string::npos);
    }
    EXPECT_TRUE(out.str().ends_with("\x1b[K\r\x1b[K"));
}

TEST(CTextProgressBar, EndsTheLineOfAStageThatWasStopped)
{
    std::ostringstream out;
    {
        CTextProgressBar bar(out, "reading");
        bar.Start(2);
        bar.Start(4, "merging");
        EXPECT_NE(out.str().find("%\n\rmerging"), std::string::npos);
        bar.Advance(1);
    }
    EXPECT_TRUE(out.str().ends_with(" 25%\n"));
}
