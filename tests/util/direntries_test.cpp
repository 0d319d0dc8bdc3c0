// SPDX-License-Identifier: MIT
#include "zorvan/util/direntries.h"

#include "tests/support/temporaryfolder.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

std::atomic<bool> isRenameat2Missing = false;

} // namespace

// The program's own definition goes before that of the system's library.
#pragma GCC visibility push(default)
extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned int flags) noexcept
{
    if (isRenameat2Missing) {
        errno = EINVAL; // as on a file system that cannot do it
        return -1;
    }
    using Function = int(int, const char*, int, const char*, unsigned int);
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, "renameat2"))(fromFolder, from, toFolder, to, flags);
}
#pragma GCC visibility pop

namespace {

using namespace Zorvan;
namespace fs = std::filesystem;

TEST(CreateDevName, GivesNamesThatAllFileSystemsTake)
{
    const std::string longText(300, 'a');
    const std::pair<std::string, std::string> cases[] = {
        {"Upper jaw, 2.ply", "Upper jaw, 2.ply"},
        {"a/b\\c:d*e?f\"g<h>i|j", "a_b_c_d_e_f_g_h_i_j"},
        {std::string("a\0b\x7F\n", 5), "a_b__"},
        {"", "_"},
        {"..", "_"},
        {"part. . ", "part"},
        {"con", "_con"},
        {"Com7.tar.gz", "_Com7.tar.gz"},
        {"NUL .txt", "_NUL .txt"},
        {"com10", "com10"},
        {"K\xC3\xB6rper \xE2\x82\xAC", "K\xC3\xB6rper \xE2\x82\xAC"},
        {"K\xF6rper\xE2\x82", "K_rper__"},
        {longText + ".ply", std::string(251, 'a') + ".ply"},
        {std::string(254, 'a') + "\xE2\x82\xAC", std::string(254, 'a')},
    };
    for (const auto& [text, name] : cases) {
        EXPECT_EQ(CreateDevName(text), name);
        EXPECT_EQ(CreateDevName(name), name);
    }
}

TEST(DirEntries, KnowTheirKind)
{
    const TemporaryFolder folder;
    folder.Write("file", "");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    fs::create_symlink("file", folder / "link");
    fs::create_symlink("gone", folder / "dangling");
    const std::pair<const char*, const char*> cases[] = {
        {"", "folder exists"}, {"file", "file exists"}, {"link", "file exists"}, {"pipe", "exists"},
        {"gone", ""},          {"dangling", ""},        {"file/x", ""}};
    for (const auto& [name, kind] : cases) {
        const fs::path path = folder.Path() / name;
        EXPECT_EQ(std::string(IsFolder(path) ? "folder " : "") + (IsRegularFile(path) ? "file " : "") +
                      (FileOrFolderExists(path) ? "exists" : ""),
                  kind)
            << name;
    }
}

/// Both ways to rename: the system's own, and the one for file systems without it.
class RenameExistingDirEntry : public testing::TestWithParam<bool>
{
protected:
    RenameExistingDirEntry() { isRenameat2Missing = GetParam(); }
    ~RenameExistingDirEntry() override { isRenameat2Missing = false; }

    const TemporaryFolder m_folder;
};

TEST_P(RenameExistingDirEntry, MakesRoomForWhateverLiesThere)
{
    std::error_code error;
    m_folder.Write("scan.ply", "new");
    m_folder.Write("scan.ply.1", "old");
    EXPECT_EQ(RenameExistingDirEnt(m_folder / "scan.ply", error), m_folder / "scan.ply.2");
    EXPECT_EQ(m_folder.Read("scan.ply.2"), "new");
    EXPECT_EQ(m_folder.Read("scan.ply.1"), "old");

    fs::create_directory(m_folder / "views");
    m_folder.Write("views/a", "kept");
    EXPECT_EQ(RenameExistingDirEnt(m_folder / "views/", error), m_folder / "views.1");
    EXPECT_EQ(m_folder.Read("views.1/a"), "kept");

    fs::create_symlink("gone", m_folder / "link");
    EXPECT_EQ(RenameExistingDirEnt(m_folder / "link", error), m_folder / "link.1");
    EXPECT_TRUE(fs::is_symlink(m_folder / "link.1"));

    EXPECT_EQ(RenameExistingDirEnt(m_folder / "gone", error), "");
    EXPECT_FALSE(error);
    for (const char* odd : {"/", "..", ""}) {
        EXPECT_EQ(RenameExistingDirEnt(odd, error), "");
        EXPECT_EQ(error, std::errc::invalid_argument) << odd;
    }
    const std::string longName(254, 'a');
    m_folder.Write(longName, "stays");
    EXPECT_EQ(RenameExistingDirEnt(m_folder / longName, error), "");
    EXPECT_EQ(error, std::errc::filename_too_long);
    EXPECT_EQ(m_folder.Read(longName), "stays");
}

TEST_P(RenameExistingDirEntry, LosesNothingWhenManyDoItAtOnce)
{
    std::vector<std::thread> threads;
    std::set<fs::path> all;
    std::mutex mutex;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 25; ++i) {
                const fs::path own = m_folder.Write(std::to_string(thread) + "own", std::to_string(thread * 25 + i));
                std::error_code error;
                fs::create_hard_link(own, m_folder / "scan", error); // only one at a time has the name
                const fs::path aside = RenameExistingDirEnt(m_folder / "scan", error);
                const std::lock_guard lock(mutex);
                EXPECT_FALSE(error);
                EXPECT_TRUE(aside.empty() || all.insert(aside).second) << aside << " was replaced";
                fs::remove(own);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_GE(all.size(), 25U);
    for (const fs::path& aside : all) EXPECT_GT(fs::file_size(aside), 0U);
}

INSTANTIATE_TEST_SUITE_P(BothWays, RenameExistingDirEntry, testing::Bool());

} // namespace
