#include "workfolder.h"

#include "tools/zorvan/documentfile.h"
#include "tools/zorvan/posesfile.h"
#include "tools/zorvan/scanreader.h"
#include "tools/zorvan/session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

constexpr const char* sLimits = " truth.json --max-degrees 0.2 --max-mm 0.1";

/// Six patches of a virtual row of teeth and one of another, made once.
class RegisteredPatches : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = new WorkFolder;
        ASSERT_EQ(folder->Run("simulate -o . --views 6 --field 28 --points 8000 --seed 4 --quiet").exitCode, 0);
        ASSERT_EQ(folder->Run("simulate -o other --views 1 --field 28 --points 8000 --seed 9 --quiet").exitCode, 0);
        std::filesystem::rename(*folder / "other/view00.ply", *folder / "stranger.ply");
        const auto outcome = folder->Run("register view0?.ply -o all --optimize");
        ASSERT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    }
    static void TearDownTestSuite() { delete folder; }

    static void ExpectNearTruth(const std::string& poses)
    {
        const auto outcome = folder->Run("evaluate " + poses + sLimits);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    }

    static void ExpectRefusal(const std::string& arguments, const std::string& words)
    {
        const auto outcome = folder->Run(arguments);
        EXPECT_EQ(outcome.exitCode, 2) << arguments << '\n' << outcome.out;
        EXPECT_NE(outcome.err.find(words), std::string::npos) << arguments << '\n' << outcome.err;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << arguments << '\n' << outcome.err;
    }

    static WorkFolder* folder;
};

WorkFolder* RegisteredPatches::folder = nullptr;

TEST_F(RegisteredPatches, ComeIntoOneFrameAndAreWrittenInEveryForm)
{
    ExpectNearTruth("all/poses.json");
    const tools::PosesFile poses = tools::ReadPoses(*folder / "all/poses.json");
    ASSERT_EQ(poses.clusters.size(), 1U);
    EXPECT_TRUE(poses.clusters[0].isPrimary);

    const std::string merged = folder->Read("all/merged.ply");
    const auto points = std::stoul(merged.substr(merged.find("element vertex ") + 15));
    EXPECT_GT(points, 6 * 5000U);
    EXPECT_EQ(merged.size(), merged.find("end_header\n") + 11 + points * 27) << "points, normals and colours";
    const auto dump = folder->Run("dump all/session.zdoc");
    EXPECT_EQ(dump.exitCode, 0) << dump.err;
    for (const char* words :
         {"\"view05.ply\"", "\"primary_cluster_id\"", "\"run\" : true", "\"optimize\"", "\"Features\""})
        EXPECT_NE(dump.out.find(words), std::string::npos) << words;
    EXPECT_NE(folder->Read("all/report.html").find("view03.ply"), std::string::npos);
}

TEST_F(RegisteredPatches, AreTheSameForAnyNumberOfThreads)
{
    ASSERT_EQ(folder->Run("register view0?.ply -o threads --optimize --threads 3 --quiet").err, "");
    for (const char* file : {"/poses.json", "/session.zdoc", "/merged.ply", "/report.html"})
        EXPECT_EQ(folder->Read(std::string("threads") + file), folder->Read(std::string("all") + file)) << file;
}

TEST_F(RegisteredPatches, GoOnWhereASessionStopped)
{
    ASSERT_EQ(folder->Run("register view00.ply view01.ply view02.ply view03.ply -o some").exitCode, 0);
    const auto outcome = folder->Run("register view04.ply view05.ply --session some/session.zdoc -o more --optimize");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    ExpectNearTruth("more/poses.json");

    // Without new scans: the poses stay what they are.
    ASSERT_EQ(folder->Run("register --session more/session.zdoc -o again").exitCode, 0);
    const tools::PosesFile before = tools::ReadPoses(*folder / "more/poses.json");
    const tools::PosesFile after = tools::ReadPoses(*folder / "again/poses.json");
    for (const tools::ScanPose& scan : before.clusters.at(0).scans) {
        const auto* const found = after.Find(scan.file).scan;
        ASSERT_NE(found, nullptr);
        EXPECT_LT((found->pose.GetTranslation() - scan.pose.GetTranslation()).Length(), 1e-4F) << scan.file;
        EXPECT_LT(found->pose.GetRotationDistance(scan.pose), 1e-3F) << scan.file;
    }
    ExpectRefusal("register view04.ply --session more/session.zdoc -o x", "is in the session already");
    ExpectRefusal("register --session more/session.zdoc -o x --grid 0.3", "a session keeps the settings");
}

TEST_F(RegisteredPatches, LeaveOutWhatDoesNotBelong)
{
    folder->Write("few.xyz", "0 0 0\n1 0 0\n0 1 0\n1 1 0\n0.5 0.5 0.1\n");
    const auto outcome = folder->Run("register stranger.ply few.xyz view0?.ply -o strangers --optimize");
    EXPECT_EQ(outcome.exitCode, 1) << outcome.out;
    EXPECT_NE(outcome.err.find("left out, too few points or features: few.xyz"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.out.find("6 of 7 scans registered, in 2 clusters"), std::string::npos) << outcome.out;
    ExpectNearTruth("strangers/poses.json");
    const tools::PosesFile poses = tools::ReadPoses(*folder / "strangers/poses.json");
    ASSERT_EQ(poses.clusters.size(), 2U);
    EXPECT_EQ(poses.clusters[0].scans.size(), 6U);
    EXPECT_EQ(poses.clusters[1].scans.at(0).file, "stranger.ply");
}

// Copies fit without any error, and the others are not measured by that.
TEST_F(RegisteredPatches, FindTheirPlaceAmongCopies)
{
    for (const char* copy : {"copy1.ply", "copy2.ply", "copy3.ply", "copy4.ply"})
        folder->Write(copy, folder->Read("view00.ply"));
    const auto outcome = folder->Run("register copy?.ply view0?.ply -o copies");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    EXPECT_NE(outcome.out.find("10 of 10 scans registered, in 1 cluster"), std::string::npos) << outcome.out;
    ExpectNearTruth("copies/poses.json");
}

TEST_F(RegisteredPatches, TryTheRoughPosesThatTheyAreGiven)
{
    folder->Write("nosearch.txt", "{'uiNumPolygons' : 0}");
    const std::string call = "register view0?.ply --settings nosearch.txt -o rough ";
    EXPECT_EQ(folder->Run(call).exitCode, 1) << "found without a search and without rough poses";
    const auto outcome = folder->Run(call + "--initial all/poses.json");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    ExpectNearTruth("rough/poses.json");
    ExpectRefusal("register stranger.ply --initial all/poses.json -o x", "has no pose of any of the scans");
}

TEST_F(RegisteredPatches, KeepWhatWasFoundWhenTheUserInterrupts)
{
    folder->Write("endless.txt", "{'uiNumPolygons' : 1000000, 'uiTrafoClusteringQuorum' : 30}");
    const auto outcome = folder->Run("register stranger.ply view0?.ply --settings endless.txt -o stopped",
                                     "timeout --foreground --preserve-status -s INT 3");
    EXPECT_EQ(outcome.exitCode, 1) << outcome.out << outcome.err;
    EXPECT_NE(outcome.err.find("stopped; this is what was found so far"), std::string::npos) << outcome.err;
    EXPECT_EQ(tools::CSession::Load(*folder / "stopped/session.zdoc", nullptr).GetFiles().size(), 7U);
}

TEST_F(RegisteredPatches, LeaveTheOldOrTheNewSessionWhenTheyAreKilled)
{
    ASSERT_EQ(folder->Run("register view00.ply view01.ply -o killed").exitCode, 0);
    const std::string old = folder->Read("killed/session.zdoc");
    int numKilled = 0;
    for (int hundredths = 5; hundredths < 100; hundredths += 6) {
        const auto outcome =
            folder->Run("register view02.ply view03.ply --session killed/session.zdoc -o killed --quiet",
                        "timeout -s KILL 0." + std::string(hundredths < 10 ? "0" : "") + std::to_string(hundredths));
        if (outcome.exitCode != 0) ++numKilled;
        const std::size_t scans = tools::CSession::Load(*folder / "killed/session.zdoc", nullptr).GetFiles().size();
        EXPECT_EQ(scans, folder->Read("killed/session.zdoc") == old ? 2U : 4U) << hundredths;
        if (scans == 4) break;
    }
    EXPECT_GT(numKilled, 0) << "no call was killed";
}

TEST_F(RegisteredPatches, RefuseSessionsThatAreNone)
{
    const std::string whole = folder->Read("all/session.zdoc");
    for (const double share : {0.0, 0.001, 0.5, 0.999}) {
        folder->Write("cut.zdoc", whole.substr(0, static_cast<std::size_t>(share * static_cast<double>(whole.size()))));
        ExpectRefusal("register --session cut.zdoc -o x", "cut.zdoc: ");
    }
    const bson::object document = tools::ReadDocumentFile(*folder / "all/session.zdoc");
    struct Damage
    {
        std::string name;
        bson::object document;
    };
    const auto without = [&](const char* key) { return Damage{key, document.erase(key)}; };
    const auto with = [&](const bson::element& e) { return Damage{e.name_string(), document.update(e)}; };
    const auto inside = [](const char* name, const auto& value) { return bson::object(bson::element(name, value)); };
    const bson::object turn = inside("trafo", inside("Rotation", inside("w", 2.0F)));
    const bson::object scaling = inside("clustering", inside("cluster", inside("entities", inside("entity", turn))));
    const Damage damages[] = {Damage{"a pose that scales", document.update(scaling)},
                              without("configuration"),
                              without("clustering"),
                              without("point_sets"),
                              without("files"),
                              without("primary_cluster_id"),
                              with({"mm_per_unit", -1.0}),
                              with({"mm_per_unit", "m"}),
                              with({"files", bson::object()}),
                              with({"clustering", bson::object()}),
                              with({"point_sets", bson::object()}),
                              with({"configuration", 3})};
    for (const Damage& damage : damages) {
        SCOPED_TRACE(damage.name);
        tools::WriteDocumentFile(*folder / "damaged.zdoc", damage.document);
        ExpectRefusal("register --session damaged.zdoc -o x", "damaged.zdoc: ");
    }
    ExpectRefusal("register -o x", "no scans");
    ExpectRefusal("register view00.ply other/../view00.ply -o x", "two scans are named view00.ply");
}

} // namespace
