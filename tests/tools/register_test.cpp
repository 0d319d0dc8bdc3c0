// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "tests/support/childprocess.h"
#include "tests/support/faultpoints.h"
#include "tools/zorvan/commands.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/documentfile.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <memory>
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

    static std::size_t scansIn(const std::string& session)
    {
        return prereg::CSession::Load(*folder / session, nullptr).GetFiles().size();
    }

    /// A call of the program in a process that dies at a rename. @return whether it lived on
    static bool runInChild(const std::string& arguments, int deadlyRename)
    {
        return CChildProcess([&] {
                   std::filesystem::current_path(folder->Path());
                   faults::KillAtRename(deadlyRename);
                   tools::CCommandLine program("zorvan", "");
                   tools::AddRegister(program.Root());
                   return program.Run(arguments) == tools::Done;
               })
            .Succeeded();
    }

    static WorkFolder* folder;
};

WorkFolder* RegisteredPatches::folder = nullptr;

TEST_F(RegisteredPatches, ComeIntoOneFrameAndAreWrittenInEveryForm)
{
    ExpectNearTruth("all/poses.json");
    const Zorvan::PosesFile poses = Zorvan::ReadPoses(*folder / "all/poses.json");
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

TEST_F(RegisteredPatches, ArePlacedWhereAllPairsAgree)
{
    const auto outcome = folder->Run("register view0?.ply stranger.ply -o weighed --optimize --weighed");
    EXPECT_EQ(outcome.exitCode, 1) << outcome.out << outcome.err;
    EXPECT_NE(outcome.out.find("6 of 7 scans registered, in 1 cluster; 1 "), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.err.find(" of 21 pairs searched"), std::string::npos) << outcome.err;
    ExpectNearTruth("weighed/poses.json");
    ASSERT_EQ(folder->Run("register view0?.ply stranger.ply -o more --optimize --weighed --threads 3 --quiet").err, "");
    EXPECT_EQ(folder->Read("more/poses.json"), folder->Read("weighed/poses.json"));
}

TEST_F(RegisteredPatches, AreWeighedWhenOneOfThemHasPlaneFaces)
{
    ASSERT_EQ(folder->Run("simulate -o part --object steps --views 2 --seed 5 --spacing 0.8 --quiet").exitCode, 0);
    const auto isWeighed = [&](const std::string& call) {
        const auto outcome = folder->Run("register " + call);
        EXPECT_NE(outcome.exitCode, 2) << outcome.err;
        return outcome.err.find("pairs searched") != std::string::npos;
    };
    EXPECT_FALSE(isWeighed("view00.ply view01.ply -o pair"));
    EXPECT_TRUE(isWeighed("part/view00.ply part/view01.ply -o part/out"));
    EXPECT_TRUE(isWeighed("--session part/out/session.zdoc -o part/again"));
    EXPECT_FALSE(isWeighed("part/view00.ply part/view01.ply -o part/merged --first-fit"));
    ExpectRefusal("register view00.ply view01.ply -o pair --first-fit --weighed", "contradict each other");
}

TEST_F(RegisteredPatches, AreTheSameForAnyNumberOfThreads)
{
    for (const std::string threads : {"1", "3"})
        ASSERT_EQ(folder
                      ->Run("register view0?.ply -o threads" + threads + " --optimize --quiet --threads " + threads,
                            ">stdout.txt", "SOURCE_DATE_EPOCH=0 ")
                      .err,
                  "");
    for (const char* file : {"/poses.json", "/session.zdoc", "/merged.ply", "/report.html"})
        EXPECT_EQ(folder->Read(std::string("threads3") + file), folder->Read(std::string("threads1") + file)) << file;
}

// Merged as they come, one pair fits badly, and the optimisation takes all twelve apart.
TEST_F(RegisteredPatches, ArePlacedByAllPairsWhereMergingLeavesThemApart)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) GTEST_SKIP() << "ZORVAN_DATA names no folder with scans";
    const std::string homer = std::string(data) + "/homer/";
    for (const std::string threads : {"1", "2", "8"}) {
        const auto outcome =
            folder->Run("register " + homer + "*.ply -o homer" + threads + " --optimize --threads " + threads);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
        EXPECT_NE(outcome.err.find(" of 66 pairs searched"), std::string::npos) << outcome.err;
        EXPECT_EQ(folder->Read("homer" + threads + "/poses.json"), folder->Read("homer1/poses.json"));
    }
    const auto outcome =
        folder->Run("evaluate homer1/poses.json " + homer + "truth.json --max-degrees 0.5 --max-mm 0.5");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
}

// In this order the first pairs that fit bring four views together with the others, turned about.
TEST_F(RegisteredPatches, AreTakenApartWherePairsRefuteAMerge)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) GTEST_SKIP() << "ZORVAN_DATA names no folder with scans";
    const std::string views = std::string(data) + "/cheburashka/";
    std::string files;
    for (const char* number : {"11", "02", "08", "10", "05", "00", "09", "07", "06", "01", "04", "03"})
        files += views + "view" + number + ".ply ";
    ASSERT_EQ(folder->Run("register " + files + "-o weighed --optimize").exitCode, 0);
    const auto outcome =
        folder->Run("evaluate weighed/poses.json " + views + "truth.json --max-degrees 0.5 --max-mm 0.5");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
}

TEST_F(RegisteredPatches, GoOnWhereASessionStopped)
{
    ASSERT_EQ(folder->Run("register view00.ply view01.ply view02.ply view03.ply -o some").exitCode, 0);
    const auto outcome = folder->Run("register view04.ply view05.ply --session some/session.zdoc -o more --optimize");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    ExpectNearTruth("more/poses.json");

    // Without new scans: the poses stay what they are.
    ASSERT_EQ(folder->Run("register --session more/session.zdoc -o again").exitCode, 0);
    const Zorvan::PosesFile before = Zorvan::ReadPoses(*folder / "more/poses.json");
    const Zorvan::PosesFile after = Zorvan::ReadPoses(*folder / "again/poses.json");
    for (const Zorvan::ScanPose& scan : before.clusters.at(0).scans) {
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
    const auto outcome = folder->Run("register stranger.ply few.xyz view0?.ply -o strangers --optimize --export ply");
    EXPECT_EQ(outcome.exitCode, 1) << outcome.out;
    EXPECT_NE(outcome.err.find("left out: too few points or features: few.xyz"), std::string::npos) << outcome.err;
    const std::string words = "6 of 7 scans registered, in 1 cluster; 1 alone; others could not be used";
    EXPECT_TRUE(outcome.out.ends_with(words + "\n")) << outcome.out;
    for (const char* file : {"strangers/report.html", "strangers/run.json"})
        for (const std::string& said : {words, std::string("left out: too few points or features: few.xyz")})
            EXPECT_NE(folder->Read(file).find(said), std::string::npos) << file << ": " << said;
    ExpectNearTruth("strangers/poses.json");
    const Zorvan::PosesFile poses = Zorvan::ReadPoses(*folder / "strangers/poses.json");
    ASSERT_EQ(poses.clusters.size(), 2U);
    EXPECT_EQ(poses.clusters[0].scans.size(), 6U);
    EXPECT_EQ(poses.clusters[1].scans.at(0).file, "stranger.ply");

    // All results show the same cluster, though the stranger came first.
    EXPECT_TRUE(poses.clusters[0].isPrimary && !poses.clusters[1].isPrimary);
    const auto applied = folder->Run("apply strangers/poses.json stranger.ply view0?.ply -o moved");
    EXPECT_NE(applied.out.find("6 of 7 scans written"), std::string::npos) << applied.out << applied.err;
    std::size_t numMoved = 0;
    for (const Zorvan::ScanPose& scan : poses.clusters[0].scans)
        numMoved += Zorvan::ReadScanFile(*folder / "moved" / scan.file).points.size();
    EXPECT_EQ(Zorvan::ReadScanFile(*folder / "strangers/scans.ply").points.size(), numMoved);
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

// It lies together with them, but with nothing else.
TEST_F(RegisteredPatches, LeaveOutAStrangerWithItsCopies)
{
    for (const char* copy : {"twice.ply", "thrice.ply"}) folder->Write(copy, folder->Read("stranger.ply"));
    for (const auto& [how, why] : {std::pair{"", "; 3 alone\n"}, {" --first-fit", "; 3 found no place\n"}}) {
        const auto outcome = folder->Run("register stranger.ply twice.ply thrice.ply view00.ply view01.ply -o strange" +
                                         std::string(how));
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_NE(outcome.out.find(std::string("2 of 5 scans registered, in 1 cluster") + why), std::string::npos)
            << outcome.out;
        const Zorvan::PosesFile poses = Zorvan::ReadPoses(*folder / "strange/poses.json");
        ASSERT_EQ(poses.clusters.size(), 2U);
        EXPECT_EQ(poses.clusters[0].scans.size(), 2U) << "what all results show";
        EXPECT_TRUE(poses.clusters[0].isPrimary);
    }
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

TEST_F(RegisteredPatches, FindTheirPlacesWhenAStartPoseIsWrong)
{
    Zorvan::PosesFile start = Zorvan::ReadPoses(*folder / "all/poses.json");
    for (Zorvan::ScanPose& scan : start.clusters.front().scans)
        if (scan.file == "view03.ply") scan.pose = scan.pose * prereg::CTrafo({0, 0, 1}, 1.6F, {5, 0, 0});
    Zorvan::WritePoses(*folder / "wrong.json", start);
    for (const std::string how : {"", " --weighed", " --optimize"}) {
        SCOPED_TRACE(how);
        EXPECT_EQ(folder->Run("register view0?.ply --initial wrong.json -o start" + how).exitCode, 0);
        ExpectNearTruth("start/poses.json");
        // The wrong one comes to the others of a session.
        const std::string more = "register view03.ply --session five/session.zdoc --initial wrong.json -o six";
        EXPECT_EQ(folder->Run("register view0[01245].ply -o five" + how).exitCode, 0);
        EXPECT_EQ(folder->Run(more + how).exitCode, 0);
        ExpectNearTruth("six/poses.json");
    }
}

TEST_F(RegisteredPatches, KeepWhatWasFoundWhenTheUserInterrupts)
{
    folder->Write("endless.txt", "{'uiNumPolygons' : 1000000, 'uiTrafoClusteringQuorum' : 30}");
    for (const int signal : {SIGINT, SIGTERM}) {
        auto running =
            folder->Start("endless", "register stranger.ply view0?.ply --settings endless.txt -o stopped --log info");
        ASSERT_TRUE(running.HasSaid("computing preregistration"));
        ::kill(running.Pid(), signal);
        const auto outcome = running.Ended();
        EXPECT_EQ(outcome.exitCode, 1) << outcome.out << outcome.err;
        EXPECT_NE(outcome.err.find("stopped; this is what was found so far"), std::string::npos) << outcome.err;
        EXPECT_NE(outcome.out.find("stopped; so far "), std::string::npos) << outcome.out;
        for (const char* file : {"stopped/report.html", "stopped/run.json"})
            for (const char* said : {"stopped; so far ", prereg::sStoppedWords})
                EXPECT_NE(folder->Read(file).find(said), std::string::npos) << file << ": " << said;
        EXPECT_EQ(scansIn("stopped/session.zdoc"), 7U);
        std::filesystem::remove_all(*folder / "stopped");
    }
}

TEST_F(RegisteredPatches, LeaveTheOldOrTheNewSessionWhenTheyAreKilled)
{
    const std::string call = "register view02.ply view03.ply --session killed/session.zdoc -o killed --quiet";
    ASSERT_EQ(folder->Run("register view00.ply view01.ply -o old").exitCode, 0);
    // Each of the five files is renamed when it is whole, then their folder, then each into its place.
    for (const auto& [rename, scans] : {std::pair{1, 2U}, {6, 2U}, {7, 4U}, {10, 4U}, {11, 4U}}) {
        SCOPED_TRACE(rename);
        std::filesystem::remove_all(*folder / "killed");
        std::filesystem::copy(*folder / "old", *folder / "killed");
        EXPECT_FALSE(runInChild(call, rename));
        // The next run cleans up.
        ASSERT_EQ(folder->Run("register --session killed/session.zdoc -o after --quiet").exitCode, 0);
        EXPECT_EQ(scansIn("killed/session.zdoc"), scans);
        EXPECT_EQ(Zorvan::ReadPoses(*folder / "killed/poses.json").clusters.at(0).scans.size(), scans);
        EXPECT_EQ(folder->Read("killed/report.html").find("view03.ply") != std::string::npos, scans == 4U);
        EXPECT_EQ(folder->Read("killed/merged.ply") == folder->Read("old/merged.ply"), scans == 2U);
        const std::filesystem::directory_iterator entries(*folder / "killed");
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 5) << "nothing of the dead run stays";
    }
}

TEST_F(RegisteredPatches, GoOnOneAfterTheOtherWhenTwoRunsShareASession)
{
    ASSERT_EQ(folder->Run("register view00.ply view01.ply -o shared").exitCode, 0);
    const std::string more = " --session shared/session.zdoc -o shared";
    {
        const Zorvan::CFileLock lock(std::filesystem::canonical(*folder / "shared") / "session.zdoc", {});
        ExpectRefusal("register view02.ply" + more, "in use by process " + std::to_string(::getpid()));
        ExpectRefusal("register view02.ply --session shared/session.zdoc -o elsewhere", "in use by process ");
        ExpectRefusal("register view02.ply -o shared", "in use by process ");
    }
    auto first = folder->Start("first", "register view02.ply --wait" + more);
    auto second = folder->Start("second", "register view03.ply --wait" + more);
    for (auto* run : {&first, &second}) EXPECT_EQ(run->Ended().exitCode, 0) << run->Ended().err;
    EXPECT_EQ(scansIn("shared/session.zdoc"), 4U);

    auto lock = std::make_unique<Zorvan::CFileLock>(std::filesystem::canonical(*folder / "shared") / "session.zdoc",
                                                    Zorvan::CFileLock::WhenHeld());
    auto third = folder->Start("third", "register view04.ply --wait" + more);
    EXPECT_TRUE(third.HasSaid("waiting for process " + std::to_string(::getpid())));
    EXPECT_EQ(scansIn("shared/session.zdoc"), 4U);
    lock.reset();
    EXPECT_EQ(third.Ended().exitCode, 0);
    EXPECT_EQ(scansIn("shared/session.zdoc"), 5U);
}

TEST_F(RegisteredPatches, NeitherReplaceScansNorTakeResultsForThem)
{
    std::filesystem::create_directory(*folder / "d");
    for (const char* name : {"view00.ply", "view01.ply"}) std::filesystem::copy(*folder / name, *folder / "d");
    std::filesystem::copy(*folder / "view02.ply", *folder / "d/merged.ply");
    ExpectRefusal("register d/*.ply -o d", "d/merged.ply: would replace d/merged.ply");
    std::filesystem::create_directory_symlink("d", *folder / "e");
    ExpectRefusal("register d/*.ply -o e", "e/merged.ply: would replace d/merged.ply");
    EXPECT_EQ(folder->Read("d/merged.ply"), folder->Read("view02.ply"));
    std::filesystem::remove(*folder / "d/merged.ply");
    ASSERT_EQ(folder->Run("register d/*.ply -o d").exitCode, 0);
    ExpectRefusal("register d/*.ply -o e", "would replace");
    ExpectRefusal("register d/*.ply -o f", "d/merged.ply: a merged or coloured cloud");
    ExpectRefusal("register d/view*.ply --initial d/poses.json -o d", "d/poses.json: would replace");
    const auto outcome = folder->Run("features d/merged.ply");
    EXPECT_NE(outcome.err.find("d/merged.ply: a merged or coloured cloud"), std::string::npos) << outcome.err;
}

TEST_F(RegisteredPatches, GoOnWithoutWhatCannotBeReadOnlyWhenTold)
{
    folder->Write("broken.ply", "ply\n");
    ExpectRefusal("register view00.ply broken.ply view01.ply -o x", "--keep-going");
    EXPECT_FALSE(std::filesystem::exists(*folder / "x/session.zdoc"));
    const auto outcome = folder->Run("register view00.ply broken.ply missing.ply view01.ply -o kept --keep-going");
    EXPECT_EQ(outcome.exitCode, 1) << outcome.out << outcome.err;
    for (const char* words : {"left out: broken.ply: ", "left out: missing.ply: no such file"})
        EXPECT_NE(outcome.err.find(words), std::string::npos) << outcome.err;
    EXPECT_EQ(scansIn("kept/session.zdoc"), 2U);
    EXPECT_EQ(folder->Run("register broken.ply missing.ply -o x --keep-going").exitCode, 2);
}

TEST_F(RegisteredPatches, RefuseSessionsThatAreNone)
{
    const std::string whole = folder->Read("all/session.zdoc");
    for (const double share : {0.0, 0.001, 0.5, 0.999}) {
        folder->Write("cut.zdoc", whole.substr(0, static_cast<std::size_t>(share * static_cast<double>(whole.size()))));
        ExpectRefusal("register --session cut.zdoc -o x", "cut.zdoc: ");
    }
    const bson::object document = prereg::ReadDocumentFile(*folder / "all/session.zdoc");
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
        prereg::WriteDocumentFile(*folder / "damaged.zdoc", damage.document);
        ExpectRefusal("register --session damaged.zdoc -o x", "damaged.zdoc: ");
    }
    ExpectRefusal("register -o x", "no scans");
    ExpectRefusal("register view00.ply other/../view00.ply -o x", "two scans are named view00.ply");
}

} // namespace
