// SPDX-License-Identifier: MIT
#include "tests/clusterregistration/scans.h"
#include "zorvan/clusterregistration/cclusterregistration.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using prereg::CClusterRegistration;
using prereg::CTrafo;
using support::ID;
using support::IDs;
using support::IsNearPose;
using Trafos = CClusterRegistration::Trafos;

const CTrafo aside = CTrafo().Translate({7, 0, 0});

/// Three scans of which nobody knows where they are; the first one is the primary cluster.
class Arrangement : public testing::Test
{
protected:
    Arrangement()
    {
        for (unsigned k = 0; k < 3; ++k) registration.AddPointSet(ID(k), support::SixViews()[k].set, nullptr);
    }

    bool Arrange(std::vector<Trafos> answer)
    {
        registration.SetArranger([&](const auto&, const Zorvan::Hooks&) { return answer; });
        return registration.Run();
    }

    CClusterRegistration registration{{}, nullptr, nullptr};
};

TEST_F(Arrangement, PutsEntitiesTogetherAndTakesThemApart)
{
    registration.GetChanges(false);
    ASSERT_TRUE(Arrange({{{ID(1), aside}, {ID(0), aside * aside}}}));
    EXPECT_EQ(registration.GetClusterIDs(), (IDs{ID(0), ID(2)})) << "what is left out lies by itself";
    EXPECT_EQ(registration.GetPrimaryClusterID(), ID(0));
    EXPECT_THAT(registration.GetTrafo(ID(0)), IsNearPose(CTrafo(), 1e-4, 1e-3)) << "the cluster keeps its frame";
    EXPECT_THAT(registration.GetTrafo(ID(1)), IsNearPose(aside.GetInverse(true), 1e-4, 1e-3));
    EXPECT_EQ(registration.GetChanges(true).count(ID(1)), 1U);
    EXPECT_FALSE(Arrange({registration.GetTrafos(ID(0), true), {{ID(2), aside}}})) << "nothing has changed";

    // The larger group goes on as the primary cluster, without the entity that it is named after.
    ASSERT_TRUE(Arrange({{{ID(0), CTrafo()}}, {{ID(1), CTrafo()}, {ID(2), aside}}}));
    EXPECT_EQ(registration.Size(registration.GetClusterID(ID(2))), 2U);
    EXPECT_EQ(registration.Size(registration.GetClusterID(ID(0))), 1U);
    EXPECT_NE(registration.GetClusterID(ID(0)), registration.GetClusterID(ID(1)));
    registration.SetArranger({});
    EXPECT_EQ(registration.GetClusterIDs().size(), 2U);
}

TEST_F(Arrangement, RefusesWhatMakesNoSenseAndStaysAsItWas)
{
    ASSERT_TRUE(Arrange({{{ID(0), CTrafo()}, {ID(1), aside}}}));
    const std::vector<std::vector<Trafos>> bad{
        {{{ID(5), CTrafo()}}}, {{{ID(0), CTrafo()}}, {{ID(0), aside}}}, {{{ID(2), CTrafo::Invalid()}}}};
    for (const auto& answer : bad) {
        EXPECT_THROW(Arrange(answer), std::invalid_argument);
        EXPECT_EQ(registration.Size(ID(0)), 2U);
        EXPECT_THAT(registration.GetTrafo(ID(1)), IsNearPose(aside, 1e-4, 1e-3));
    }
}

} // namespace
