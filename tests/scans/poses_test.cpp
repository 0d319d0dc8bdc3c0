// SPDX-License-Identifier: MIT
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/poseerrors.h"
#include "zorvan/scans/posesfile.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using prereg::CTrafo;
using Zorvan::PosesFile;
using Vector3 = kdtree::Vector<3>;

constexpr float fDegree = 3.14159265F / 180;

CTrafo turned(float degrees, const Vector3& shift) { return {Vector3(0, 0, degrees * fDegree), shift}; }

TEST(PosesFile, IsReadBackBitForBit)
{
    const TemporaryFolder folder;
    const CTrafo pose(Vector3(0.1F, -0.7F, 2.0F), Vector3(12.3456789F, -0.001F, 1e5F));
    const Zorvan::RegistrationSummary failed{8, "too many", 0.1, std::numeric_limits<double>::quiet_NaN(), INFINITY};
    const PosesFile written{1.0, {{"c", true, {{"a.ply", "a", pose, {}}, {"b.ply", "b", CTrafo::Invalid(), failed}}}}};
    Zorvan::WritePoses(folder / "p.json", written);
    const PosesFile read = Zorvan::ReadPoses(folder / "p.json");
    ASSERT_NE(read.Find("elsewhere/a.ply").scan, nullptr);
    EXPECT_EQ(read.Find("elsewhere/a.ply").scan->pose, pose);
    EXPECT_TRUE(read.clusters.front().isPrimary);
    EXPECT_FALSE(read.Find("b.ply").scan->pose);
    EXPECT_EQ(read.Find("c.ply").scan, nullptr);
    EXPECT_NE(folder.Read("p.json").find("\"overlap\": null"), std::string::npos);
}

std::string posesText(const std::string& head, const std::string& rows)
{
    return "{" + head + "\"clusters\": [{\"scans\": [{\"file\": \"a.ply\", \"pose\": " + rows + "}]}]}";
}

TEST(PosesFile, ScalesTranslationsByItsOwnUnitFirst)
{
    const std::string rows = "[[1,0,0,2],[0,1,0,0],[0,0,1,0],[0,0,0,1]]";
    const struct
    {
        const char* head;
        float millimetres;
    } cases[] = {{"", 14},
                 {"\"unit\": \"mm\",", 2},
                 {"\"unit\": \"m\",", 2000},
                 {"\"unit\": \"unit\", \"mm_per_unit\": 25.4,", 50.8F}};
    const TemporaryFolder folder;
    for (const auto& c : cases) {
        const auto file = folder.Write("p.json", posesText(c.head, rows));
        EXPECT_FLOAT_EQ(Zorvan::ReadPoses(file, 7.0).Find("a.ply").scan->pose.GetTranslation().x, c.millimetres)
            << c.head;
    }
}

TEST(PosesFile, RefusesWhatIsNoPose)
{
    const TemporaryFolder folder;
    const std::string good = "[[1,0,0,2],[0,1,0,0],[0,0,1,0],[0,0,0,1]]";
    ASSERT_NO_THROW(static_cast<void>(Zorvan::ReadPoses(folder.Write("p.json", posesText("", good)))));
    const std::string bad[] = {
        "",
        "{",
        "[]",
        std::string(100000, '['),
        "{\"clusters\": [3]}",
        "{\"clusters\": [{\"scans\": [{\"file\": 3}]}]}",
        "{\"clusters\": [{\"scans\": [{\"file\": \"x/a.ply\"}, {\"file\": \"a.ply\"}]}]}",
        posesText("\"unit\": \"furlong\",", good),
        posesText("\"mm_per_unit\": 0,", good),
        posesText("", "[[1,0,0,2],[0,1,0,0],[0,0,1,0]]"),
        posesText("", "[[1,0,0,\"2\"],[0,1,0,0],[0,0,1,0],[0,0,0,1]]"),
        posesText("", "[[1,0,0,1e39],[0,1,0,0],[0,0,1,0],[0,0,0,1]]"),
        posesText("", "[[1.002,0,0,2],[0,1,0,0],[0,0,1,0],[0,0,0,1]]"),
        posesText("", "[[-1,0,0,2],[0,1,0,0],[0,0,1,0],[0,0,0,1]]"), // a mirror
        posesText("", "[[1,0,0,2],[0,1,0,0],[0,0,1,0],[0,0,1,1]]"),
    };
    for (const std::string& text : bad)
        EXPECT_THROW(static_cast<void>(Zorvan::ReadPoses(folder.Write("p.json", text))), Zorvan::CInputError)
            << text.substr(0, 100);
}

TEST(PoseErrors, OfAHandMadeCase)
{
    const PosesFile truth{1.0,
                          {{"t",
                            true,
                            {{"a", "", {}, {}},
                             {"b", "", turned(90, {10, 0, 0}), {}},
                             {"c", "", {}, {}},
                             {"d", "", turned(0, {0, 7, 0}), {}}}}}};
    // The estimate's frame is another one: turned by half a circle and shifted. b is off by 2 degrees and 3-4-5 mm.
    const CTrafo frame = turned(180, {100, 200, 300});
    const PosesFile poses{
        1.0,
        {{"e", true, {{"x/b", "", frame * turned(92, {13, 4, 0}), {}}, {"a", "", frame, {}}, {"stranger", "", {}, {}}}},
         {"f", false, {{"c", "", turned(5, {1, 2, 3}), {}}}}}};
    const Zorvan::PoseErrors errors = Zorvan::ComparePoses(poses, truth);
    ASSERT_EQ(errors.scans.size(), 4U);
    EXPECT_EQ(errors.scans[0].ePlace, Zorvan::EPlace::Reference);
    EXPECT_EQ(errors.scans[1].ePlace, Zorvan::EPlace::Measured);
    EXPECT_NEAR(errors.scans[1].dDegrees, 2.0, 1e-4);
    EXPECT_NEAR(errors.scans[1].dMm, 5.0, 1e-3); // four ulp of the frame's 300 mm
    EXPECT_EQ(errors.scans[2].ePlace, Zorvan::EPlace::Alone);
    EXPECT_EQ(errors.scans[3].ePlace, Zorvan::EPlace::Missing);
    EXPECT_FALSE(errors.isComplete);
}

TEST(PoseErrors, SmallAnglesKeepTheirDigits)
{
    const PosesFile truth{1.0, {{"t", true, {{"a", "", {}, {}}, {"b", "", {}, {}}, {"c", "", {}, {}}}}}};
    PosesFile poses = truth;
    EXPECT_EQ(Zorvan::ComparePoses(poses, truth).dWorstDegrees, 0.0);
    poses.clusters[0].scans[2].pose = turned(1e-4F, {0, 0, 0.5F});
    const Zorvan::PoseErrors errors = Zorvan::ComparePoses(poses, truth);
    EXPECT_TRUE(errors.isComplete);
    EXPECT_NEAR(errors.dWorstDegrees, 1e-4, 1e-9);
    EXPECT_NEAR(errors.dMedianDegrees, 0.5e-4, 1e-9);
    EXPECT_NEAR(errors.dMedianMm, 0.25, 1e-9);
}

} // namespace
