#include "zorvan/features/configurationfpfh.h"

#include <gtest/gtest.h>

using prereg::ConfigurationFPFH;

TEST(ConfigurationFPFH, ScalesLengthsAndLeavesAllElse)
{
    ConfigurationFPFH expected;
    expected.dMaxPolygonVertexError = 2.0;
    expected.dFeatureRadius = 3.0;
    expected.dGridSize = 0.6;
    expected.dFeatureGridSize = 0.6;
    expected.dTrafoPositionClusteringBandwidth = 10.0;
    expected.icpConfig = expected.icpConfig.Scale(2.0);
    EXPECT_EQ(ConfigurationFPFH().Scale(2.0), expected);
    EXPECT_NE(ConfigurationFPFH().Scale(2.0).icpConfig, ConfigurationFPFH().icpConfig);

    ConfigurationFPFH ball;
    ball.dMaxPolygonDiameter = 4.0;
    EXPECT_EQ(ball.Scale(0.5).dMaxPolygonDiameter, 2.0);
}
