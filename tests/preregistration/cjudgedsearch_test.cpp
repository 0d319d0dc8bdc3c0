// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cjudgedsearch.h"

#include "tests/preregistration/boxscans.h"
#include "tests/verdict/sphereobject.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace prereg;
using support::Vector3;

CTrafo turn(float degrees) { return {Vector3(0, 1, 0), degrees * 0.01745329F, Vector3()}; }

/// With a single feature, too few to search by.
SearchedScan scanOf(const std::vector<support::Sphere>& object, const CTrafo& pose, std::uint32_t seed)
{
    const auto scan = support::ScanSpheres(object, pose, 0.25F, 0.02F, seed);
    const Vectors first{scan.points.front()};
    return {std::make_shared<const CFPFHPointSet>(scan.points, scan.normals, first, first,
                                                  std::vector<CPointFeatureHistogram>(1)),
            std::make_shared<const CScanView>(support::PointSet(scan))};
}

ConfigurationICP refinement()
{
    ConfigurationICP icp;
    icp.dMinQueryRadius = 0.4;
    icp.dMaxRMSE = 0.1;
    icp.dMaxStdDev = 0.1;
    icp.dMinOverlapRatio = 0.05;
    return icp;
}

std::string bytesOf(const CJudgedSearch& search)
{
    std::string bytes;
    for (const auto& candidate : search.GetCandidates()) {
        const auto matrix = candidate.refined.GetTrafo().GetMatrix();
        bytes.append(reinterpret_cast<const char*>(&matrix), sizeof matrix);
        bytes += candidate.verdict.ToString();
    }
    return bytes + search.GetVerdict().ToString();
}

TEST(CJudgedSearch, AlignsWithoutFeaturesAndWithAnyNumberOfTasks)
{
    const CTrafo truth = turn(-40);
    const SearchedScan fix = scanOf(support::Cluster(), CTrafo(), 1);
    const SearchedScan flt = scanOf(support::Cluster(), turn(40), 2);
    std::string first;
    for (const unsigned tasks : {1U, 2U, 8U}) {
        CJudgedSearch search(fix, flt, ConfigurationFPFH(), refinement());
        search.SetNumTasks(tasks);
        search.SetTwins(true); // spheres are no box
        EXPECT_TRUE(search.Compute(Zorvan::Hooks::None())) << search.GetVerdict().ToString();
        ASSERT_FALSE(search.GetCandidates().empty());
        const auto& best = search.GetCandidates().front();
        EXPECT_EQ(best.eProposer, CJudgedSearch::EProposer::Vote);
        EXPECT_LT(static_cast<double>(best.refined.GetTrafo().GetRotationDistance(truth)), 0.01);
        EXPECT_LT(static_cast<double>(best.refined.GetTrafo().GetTranslation().Length()), 0.2);
        if (first.empty()) first = bytesOf(search);
        EXPECT_EQ(bytesOf(search), first) << tasks;
    }
}

TEST(CJudgedSearch, IsNotSureOfARingOfEqualPartsAndRefusesStrangers)
{
    std::vector<support::Sphere> ring{{{0, 0, 0}, 6}};
    for (int i = 0; i < 6; ++i) {
        const CTrafo sixth(Vector3(0, 0, 1), 1.04719755F * static_cast<float>(i), Vector3());
        ring.push_back({sixth * Vector3(9, 0, 0), 3});
    }
    const SearchedScan fix = scanOf(ring, CTrafo(), 1);
    CJudgedSearch turns(fix, scanOf(ring, turn(25), 2), ConfigurationFPFH(), refinement());
    EXPECT_FALSE(turns.Compute(Zorvan::Hooks::None()));
    EXPECT_EQ(turns.GetVerdict().eVerdict, EPairVerdict::Ambiguous) << turns.GetVerdict().ToString();
    EXPECT_GE(turns.GetVerdict().explanations.size(), 2U);

    CJudgedSearch strangers(fix, scanOf(support::Cluster(), CTrafo(), 3), ConfigurationFPFH(), refinement());
    EXPECT_FALSE(strangers.Compute(Zorvan::Hooks::None())) << strangers.GetVerdict().ToString();
}

TEST(CJudgedSearch, IsNotSureOfABoxOfWhichTheOtherSideMayHaveBeenScanned)
{
    // A groove tells the turns of the upper side from one another, but who knows whether the lower one has one too?
    const support::Boxes box{{{0, 0, 0}, {60, 40, 24}}, {{0, 0, 24}, {60, 10, 30}}, {{0, 16, 24}, {60, 40, 30}}};
    const auto scan = [&](float degrees) {
        const CTrafo seen = CTrafo({0, 1, 0}, -0.8F, Vector3()) * CTrafo({0, 0, 1}, degrees * 0.01745329F, Vector3());
        const auto voting = support::ToVotingScan(support::ScanOfBoxes(box, seen, 0.5F, 0.01F));
        return SearchedScan{voting.set, voting.view};
    };
    CJudgedSearch search(scan(30), scan(55), ConfigurationFPFH(), refinement());
    search.SetTwins(true);
    EXPECT_FALSE(search.Compute(Zorvan::Hooks::None()));
    const PairVerdict& verdict = search.GetVerdict();
    EXPECT_EQ(verdict.eVerdict, EPairVerdict::Ambiguous) << verdict.ToString();
    ASSERT_GE(verdict.explanations.size(), 2U) << verdict.ToString();
    EXPECT_TRUE(verdict.poses.front());
    EXPECT_EQ(verdict.poses[verdict.explanations.back()].eFinding, EFinding::NotRuledOut);
    EXPECT_EQ(search.GetCandidates()[verdict.explanations.back()].eProposer, CJudgedSearch::EProposer::Twin);
}

TEST(CJudgedSearch, EndsAtAnAbortAndWantsBothViews)
{
    const SearchedScan scan = scanOf(support::Cluster(), CTrafo(), 1);
    CJudgedSearch search(scan, scan, ConfigurationFPFH(), refinement());
    EXPECT_FALSE(search.Compute(Zorvan::Hooks([] { return true; })));
    EXPECT_EQ(search.GetVerdict().eVerdict, EPairVerdict::TooLittle);
    EXPECT_THROW(CJudgedSearch(scan, {scan.set, nullptr}, ConfigurationFPFH(), refinement()), std::invalid_argument);
}

} // namespace
