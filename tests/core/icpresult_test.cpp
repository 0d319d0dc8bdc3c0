// SPDX-License-Identifier: MIT
#include "zorvan/core/configurationicp.h"
#include "zorvan/core/icpresult.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using prereg::ConfigurationICP;
using prereg::ICPResult;

TEST(ConfigurationICP, ScalesLengthsOnly)
{
    const ConfigurationICP config;
    EXPECT_EQ(config.Scale(1), config);
    const ConfigurationICP twice = config.Scale(2);
    EXPECT_DOUBLE_EQ(twice.dMinQueryRadius, 0.6);
    EXPECT_DOUBLE_EQ(twice.dMaxStdDev, 0.04);
    EXPECT_EQ(twice.dMaxMovement, -1) << "switched off stays switched off";
    EXPECT_EQ(twice.dMinSmallBigRatio, config.dMinSmallBigRatio);

    ConfigurationICP other;
    other.dMaxMovement = 3;
    other.dMinOverlapArea = 5;
    EXPECT_TRUE(other.SupportsOracleCheck());
    EXPECT_EQ(other.Scale(2).dMaxMovement, 6);
    EXPECT_EQ(other.Scale(2).dMinOverlapArea, 20);
}

TEST(ICPResult, SaysWhatHappened)
{
    ICPResult result;
    EXPECT_FALSE(result);
    EXPECT_EQ(result.ToString(false), "undefined ICP result");

    result = ICPResult(prereg::CTrafo());
    result.fStart_OverlapRatio = 0.5F;
    result.fStart_RMSE = 1.5F;
    result.iStart_NumberOfInliers = 300;
    result.fStop_OverlapRatio = 0.75F;
    result.fStop_RMSE = 0.0125F;
    result.vStop_StdDev = {0.003F, 0.004F, 0};
    result.iStop_NumberOfInliers = 400;
    result.iStop_Iterations = 7;
    EXPECT_TRUE(result);
    EXPECT_EQ(result.ToString(true), "success (RMSE: 0.013mm)");
    EXPECT_EQ(result.ToWString(false),
              L"success / start (Overlap Ratio: 50.0p, RMSE: 1.500mm, #inliers=300) stop (Overlap Ratio: 75.0p, "
              L"RMSE: 0.013mm, Slip: 0.005mm, #inliers=400, #iters: 7) ");

    const char* texts[] = {"success (RMSE: 0.013mm)",
                           "success/rejected (RMSE: 0.013mm)",
                           "initial overlap of point sets is too small",
                           "too few inliers, initially",
                           "too many mismatches during iteration",
                           "overlap too small during iteration",
                           "unknown result type",
                           "final pose too far away from original pose",
                           "too many mismatches at final pose",
                           "overlap too small",
                           "RMSE too large",
                           "too much slip at final pose",
                           "unknown result type"};
    for (int i = 0; i < 13; ++i) {
        result.eICPResult = i;
        EXPECT_EQ(result.ToString(true), texts[i]);
        EXPECT_EQ(static_cast<bool>(result), i == 0);
    }
}

ICPResult resultOf(float slip, float ratio, float rmse, float overlap, int inliers)
{
    ICPResult result;
    result.vStop_StdDev = {slip, 0, 0};
    result.fStop_SmallBigRatio = ratio;
    result.fStop_RMSE = rmse;
    result.fStop_OverlapRatio = overlap;
    result.iStop_NumberOfInliers = inliers;
    return result;
}

// Each row is better by one key, and worse by the next where that must not count.
TEST(ICPResult, BetterResultsComeFirstKeyByKey)
{
    const ICPResult typical = resultOf(0.01F, 0.8F, 0.02F, 0.5F, 100);
    const std::pair<const char*, ICPResult> better[] = {
        {"smaller slip", resultOf(0.0089F, 0, 0.02F, 0.5F, 100)},
        {"larger ratio", resultOf(0.01F, 0.806F, 1, 0.5F, 100)},
        {"smaller RMSE", resultOf(0.01F, 0.8F, 0.018F, 0, 100)},
        {"larger overlap", resultOf(0.01F, 0.8F, 0.02F, 0.516F, 0)},
        {"more inliers", resultOf(0.01F, 0.8F, 0.02F, 0.505F, 110)},
        {"smaller overlap within the tolerance", resultOf(0.01F, 0.8F, 0.02F, 0.49F, 105)},
    };
    for (const auto& [name, result] : better) {
        EXPECT_TRUE(result < typical && typical > result) << name;
        EXPECT_FALSE(typical < result || result > typical) << name;
    }
    EXPECT_FALSE(typical < typical || typical > typical || ICPResult() < ICPResult());
}

} // namespace
