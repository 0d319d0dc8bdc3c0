// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/crefinedpreregistration.h"

#include "tests/preregistration/measuredsurface.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>

namespace {

using prereg::CRefinedPreRegistration;

TEST(CRefinedPreRegistration, RefinesAsManyCandidatesAsItIsToldAndGoesOnWhileTheyFail)
{
    const support::LogCapture log;
    auto config = support::SearchSettings();
    config.uiNumPolygons = 30;
    config.uiTrafoClusteringQuorum = 0;
    config.dTrafoPositionClusteringBandwidth = 0; // each pose is a candidate by itself
    auto failing = config.icpConfig;
    failing.dMaxRMSE = 1e-9;
    const auto search = [&](const prereg::ConfigurationICP& refinement, std::size_t maxCandidates, bool refineAll) {
        CRefinedPreRegistration made(support::Measure(1), support::Measure(2), config, refinement);
        made.SetEffort(maxCandidates, refineAll);
        EXPECT_EQ(made.Compute({}), refinement.dMaxRMSE > 1e-6);
        EXPECT_EQ(made.HasMoreResults(), refinement.dMaxRMSE > 1e-6);
        return made.GetCandidates().size();
    };
    EXPECT_EQ(search(config.icpConfig, 3, true), 3U);
    EXPECT_EQ(search(config.icpConfig, 3, false), 1U);
    EXPECT_EQ(search(failing, 3, false), 3U);
    EXPECT_EQ(search(failing, 0, false), 0U);
}

} // namespace
