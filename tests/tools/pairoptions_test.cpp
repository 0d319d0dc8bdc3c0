// SPDX-License-Identifier: MIT
// What a user knows of the files of a pair: that one is a model, and from where the others were taken.
#include "workfolder.h"

#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/align.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

namespace {

class Models : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = new WorkFolder;
        const std::string common = "--views 3 --spacing 0.7 --mesh --overlap --quiet";
        ASSERT_EQ(folder->Run("simulate -o bracket --object bracket --seed 4 " + common).exitCode, 0);
    }
    static void TearDownTestSuite() { delete folder; }

    /// In the frame of the model.
    static prereg::CTrafo Truth(const char* view)
    {
        const Zorvan::PosesFile truth = Zorvan::ReadPoses(*folder / "bracket/truth.json");
        return truth.Find("object.stl").scan->pose.GetInverse(true) * truth.Find(view).scan->pose;
    }

    static WorkFolder* folder;
};

WorkFolder* Models::folder = nullptr;

TEST_F(Models, HoldAScanOfThePart)
{
    const auto outcome = folder->Run("align bracket/object.stl bracket/view02.ply -o found.json");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    EXPECT_NE(outcome.err.find("object.stl is a model: "), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("spacing of the floating scan"), std::string::npos) << outcome.err;
    const prereg::CTrafo found = Zorvan::ReadPoses(*folder / "found.json").Find("view02.ply").scan->pose;
    EXPECT_LT(found.GetRotationDistance(Truth("view02.ply")), 0.005F);
    EXPECT_LT((found.GetTranslation() - Truth("view02.ply").GetTranslation()).Length(), 0.2F);
    const auto json = nlohmann::json::parse(folder->Read("found.json"))["clusters"][0]["scans"][1]["uncertainty"];
    EXPECT_EQ(json["covariance"].size(), 6U);
    EXPECT_FALSE(json["text"].get<std::string>().empty());

    const std::string corners = folder->Run("align bracket/object.stl bracket/view02.ply --mesh none").err;
    EXPECT_EQ(corners.find("is a model"), std::string::npos) << corners;
}

TEST_F(Models, AreNoScans)
{
    const std::string files = "bracket/view01.ply bracket/view02.ply";
    EXPECT_NE(folder->Run("align " + files + " --mesh fixed").err.find("no faces"), std::string::npos);
    EXPECT_EQ(folder->Run("align " + files + " --ray-fix 0,0,0").exitCode, 2);
    EXPECT_EQ(folder->Run("align " + files + " --ray-flt 0,0,1 --sensor-flt 0,0,9").exitCode, 2);
    EXPECT_EQ(folder->Run("align " + files + " --sensor-fix 0,0").exitCode, 2);
}

TEST_F(Models, AreWeighedByTheSensorThatTheUserNames)
{
    const auto judge = [](const std::string& how) {
        return folder->Run("judge bracket/object.stl bracket/view02.ply bracket/truth.json " + how);
    };
    for (const char* how : {"", "--ray-flt 0,0,2", "--sensor-flt 0,0,900", "--sensor 0,0,900"})
        EXPECT_EQ(judge(how).exitCode, 0) << how << judge(how).out;
    const auto outcome = judge("--ray-flt 0,0,-1");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.out.find("meets surface that looks another way"), std::string::npos) << outcome.out;
}

} // namespace
