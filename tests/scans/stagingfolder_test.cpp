// SPDX-License-Identifier: MIT
#include "zorvan/scans/stagingfolder.h"

#include "tests/support/faultpoints.h"
#include "tests/support/temporaryfolder.h"

#include "tests/support/childprocess.h"
#include "zorvan/core/hooks.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <map>
#include <stdexcept>
#include <string>

namespace {

using Contents = std::map<std::string, std::string>;

const Contents oldSet{{"a", "old a"}, {"b", "old b"}, {"c", "old c"}};
const Contents newSet{{"a", "new a"}, {"b", "new b"}, {"c", "new c"}};

void publish(const TemporaryFolder& folder, const Contents& set)
{
    Zorvan::CStagingFolder staging(folder.Path());
    for (const auto& [name, bytes] : set) Zorvan::WriteFileAtomically(staging / name, bytes);
    staging.Publish();
}

/// Everything in the folder, hidden names as well.
Contents contentsOf(const TemporaryFolder& folder)
{
    Contents contents;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        const std::string name = entry.path().filename();
        contents[name] = folder.Read(name);
    }
    return contents;
}

TEST(StagingFolder, GivesTheOldSetOrTheNewOneWhereverItsProcessDies)
{
    std::map<bool, int> outcomes;
    bool isDead = true;
    for (int call = 1; isDead; ++call) {
        const TemporaryFolder folder;
        publish(folder, oldSet);
        isDead = !CChildProcess([&] { return faults::KillAt(call), publish(folder, newSet), true; }).Succeeded();
        Zorvan::TidyStagingFolders(folder.Path());
        const Contents left = contentsOf(folder);
        EXPECT_TRUE(left == oldSet || left == newSet) << "call " << call << ": " << testing::PrintToString(left);
        ++outcomes[left == newSet];
    }
    EXPECT_GT(outcomes[false], 15) << "killed while the files were made";
    EXPECT_GT(outcomes[true], 3) << "killed between the moves";
}

TEST(StagingFolder, KeepsTheOldSetWhenTheDiskIsFull)
{
    bool isFull = true;
    for (int call = 1; isFull; ++call) {
        const TemporaryFolder folder;
        publish(folder, oldSet);
        faults::FillDiskAt(call);
        isFull = false;
        try {
            publish(folder, newSet);
        } catch (const Zorvan::CInputError& error) {
            isFull = true;
            EXPECT_EQ(std::string(error.what()).find(".zorvan"), std::string::npos) << error.what();
        }
        faults::Disarm();
        Zorvan::TidyStagingFolders(folder.Path());
        const Contents left = contentsOf(folder);
        EXPECT_TRUE(left == oldSet || left == newSet) << "call " << call << ": " << testing::PrintToString(left);
    }
}

TEST(StagingFolder, TouchesNeitherTheWorkOfTheLivingNorWhatLinksLeadTo)
{
    const TemporaryFolder folder, elsewhere;
    elsewhere.Write("a", "theirs");
    folder.Write("c", "old c");
    for (const char* name : {".zorvan-making-link", ".zorvan-whole-link"})
        std::filesystem::create_directory_symlink(elsewhere.Path(), folder / name);
    const Zorvan::CStagingFolder living(folder.Path());
    Zorvan::WriteFileAtomically(living / "b", "in the making");
    Zorvan::WriteFileAtomically(folder / "c", "new c");
    EXPECT_EQ(elsewhere.Read("a"), "theirs");
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
    EXPECT_TRUE(std::filesystem::exists(living / "b"));
    EXPECT_EQ(folder.Read("c"), "new c");

    std::filesystem::create_symlink(elsewhere / "a", living / "d"); // planted where a file will be made
    EXPECT_THROW(Zorvan::WriteFileAtomically(living / "e" / "f", ""), Zorvan::CInputError);
    Zorvan::WriteFileAtomically(living / "d", "mine");
    EXPECT_EQ(elsewhere.Read("a"), "theirs");
}

TEST(StagingFolder, RefusesBeforeAnythingMovesWhenAPlaceIsTaken)
{
    const TemporaryFolder folder;
    folder.Write("a", "old a");
    std::filesystem::create_directory(folder / "b");
    EXPECT_THROW(publish(folder, newSet), Zorvan::CInputError);
    EXPECT_EQ(folder.Read("a"), "old a");
}

TEST(StagingFolder, LeavesTheOldFileWhenWritingIsStopped)
{
    const TemporaryFolder folder;
    folder.Write("a", "old a");
    const std::string bytes(10'000'000, 'n');
    for (int last = 0; last < 2; ++last) {
        int questions = 0;
        const Zorvan::Hooks hooks([&] { return questions++ == last; });
        EXPECT_FALSE(Zorvan::WriteFileAtomically(folder / "a", bytes, hooks)) << last;
        EXPECT_EQ(contentsOf(folder), (Contents{{"a", "old a"}}));
    }
    EXPECT_TRUE(Zorvan::WriteFileAtomically(folder / "a", bytes, Zorvan::Hooks::None()));
    EXPECT_EQ(contentsOf(folder), (Contents{{"a", bytes}}));
}

TEST(StagingFolder, TakesWhatIsWrittenInStepsOrNothing)
{
    const TemporaryFolder folder;
    folder.Write("a", "old a");
    std::string whole;
    for (int i = 0; i < 1'000'000; ++i) whole += std::to_string(i) + '\n'; // of some 7 MB, over the ends of blocks
    const auto write = [](std::ostream& out) {
        for (int i = 0; i < 1'000'000; ++i) (out << i).put('\n');
    };
    EXPECT_THROW(Zorvan::WriteFileAtomically(folder / "a",
                                             [&](std::ostream& out) {
                                                 write(out);
                                                 throw std::runtime_error("no more");
                                             }),
                 std::runtime_error);
    int questions = 0;
    const Zorvan::Hooks stopping([&] { return questions++ == 1; });
    EXPECT_FALSE(Zorvan::WriteFileAtomically(folder / "a", whole.size(), write, stopping));
    EXPECT_EQ(contentsOf(folder), (Contents{{"a", "old a"}}));
    Zorvan::WriteFileAtomically(folder / "a", write);
    EXPECT_EQ(contentsOf(folder), (Contents{{"a", whole}}));
}

TEST(FileLock, KeepsOthersOutUntilItsProcessIsGone)
{
    const TemporaryFolder folder;
    const auto lockOrThrow = [&] {
        return Zorvan::CFileLock(folder / "file", [](const std::string& holder) { throw std::runtime_error(holder); });
    };
    const auto holder = [&]() -> std::string {
        try {
            return lockOrThrow(), "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    {
        CChildProcess killed([&] {
            const Zorvan::CFileLock lock = lockOrThrow();
            return CChildProcess::Stop();
        });
        killed.WaitUntilStopped();
        EXPECT_EQ(holder(), "process " + folder.Read("file.lock"));
        EXPECT_NE(holder(), "process ");
    }
    EXPECT_EQ(holder(), "") << "a lock of the dead";
    EXPECT_TRUE(contentsOf(folder).empty()) << "it goes with the lock";
    std::filesystem::create_symlink(folder / "elsewhere", folder / "file.lock");
    EXPECT_THROW(lockOrThrow(), Zorvan::CInputError);
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

// Each has to see what the one before wrote, although the last holder of the lock removes its file.
TEST(FileLock, LetsOneInAtATime)
{
    const TemporaryFolder folder;
    folder.Write("count", "0");
    const auto countUp = [&] {
        for (int i = 0; i < 200; ++i) {
            const Zorvan::CFileLock lock(folder / "count", [](const std::string&) {});
            folder.Write("count", std::to_string(std::stoi(folder.Read("count")) + 1));
        }
        return true;
    };
    CChildProcess children[] = {CChildProcess(countUp), CChildProcess(countUp), CChildProcess(countUp)};
    for (CChildProcess& child : children) EXPECT_TRUE(child.Succeeded());
    EXPECT_EQ(folder.Read("count"), "600");
}

TEST(OutputCheck, SeesTheSameFileThroughLinksAndBeforeItIsThere)
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "d");
    folder.Write("d/scan.ply", "scan");
    folder.Write("other.ply", "scan");
    std::filesystem::create_symlink("d/scan.ply", folder / "link.ply");
    std::filesystem::create_hard_link(folder / "d/scan.ply", folder / "hard.ply");
    std::filesystem::create_directory_symlink("d", folder / "e");
    for (const char* name :
         {"d/scan.ply", "link.ply", "hard.ply", "e/scan.ply", "e/../d/./scan.ply", "new/../d/scan.ply"})
        EXPECT_TRUE(Zorvan::IsSameFile(folder / name, folder / "d/scan.ply")) << name;
    EXPECT_TRUE(Zorvan::IsSameFile(folder / "d/new.ply", folder / "e/new.ply"));
    EXPECT_FALSE(Zorvan::IsSameFile(folder / "other.ply", folder / "d/scan.ply"));
    EXPECT_FALSE(Zorvan::IsSameFile(folder / "d/new.ply", folder / "new.ply"));
    EXPECT_FALSE(Zorvan::IsSameFile(folder / "d/new.ply", folder / "d/scan.ply"));
}

} // namespace
