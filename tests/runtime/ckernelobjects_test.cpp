// SPDX-License-Identifier: MIT
#include "zorvan/platform/ckernelobjects.h"

#include "tests/support/childprocess.h"
#include "zorvan/runtime/csharedmemory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

using Zorvan::CNamedMemory;
using Zorvan::CNamedSemaphore;
using Zorvan::CSharedMemory;

namespace {

constexpr std::uint64_t uiSize = std::uint64_t{3} * 4096;

auto& firstWord(const std::shared_ptr<void>& view) { return *static_cast<std::atomic<std::uint64_t>*>(view.get()); }

bool isAllZero(CSharedMemory memory)
{
    const auto view = memory.CreateView();
    const std::string zeros(memory.MappedSize(), '\0');
    return std::memcmp(view.get(), zeros.data(), zeros.size()) == 0;
}

/// A process that makes a block, fills it and holds it.
CChildProcess startHolder(const std::wstring& name)
{
    CChildProcess holder([&] {
        CSharedMemory memory = CSharedMemory::Create(name, uiSize);
        std::fill_n(static_cast<char*>(memory.CreateView().get()), uiSize, 'x');
        return CChildProcess::Stop();
    });
    holder.WaitUntilStopped();
    return holder;
}

/// Opens and closes a block until two handles held at one time lead to different blocks.
bool openAndClose(const std::wstring& name)
{
    for (int i = 0;; ++i) {
        CSharedMemory first = CSharedMemory::Create(name, uiSize);
        if (i % 4 == 0) std::this_thread::yield();
        CSharedMemory second = i % 3 == 0 ? CSharedMemory::Open(name, uiSize) : first;
        if (!first || !second) return false;
        const std::uint64_t before = firstWord(first.CreateView()).fetch_add(1);
        if (firstWord(second.CreateView()).load() <= before) return false;
    }
}

auto countFiles(const std::wstring& name)
{
    return std::ranges::count_if(std::filesystem::directory_iterator("/dev/shm"), [&](const auto& entry) {
        return entry.path().wstring().find(name) != std::wstring::npos;
    });
}

} // namespace

TEST(KernelObjects, BlockInUseSurvivesOthersThatCloseOrDie)
{
    const std::wstring name = UniqueName(L"survivor");
    CChildProcess owner = startHolder(name);
    CSharedMemory memory = CSharedMemory::Open(name, uiSize);
    const auto view = memory.CreateView();
    owner.Kill();
    firstWord(view) = 42;
    const auto useAndClose = [&] { return static_cast<bool>(CSharedMemory::Open(name, uiSize)); };
    EXPECT_TRUE(CChildProcess(useAndClose).Succeeded());
    EXPECT_TRUE(CChildProcess([&] { return memory.Close(), true; }).Succeeded()); // the handle shared by the fork
    CSharedMemory again = CSharedMemory::Create(name, 1);
    EXPECT_EQ(firstWord(again.CreateView()), 42U);
    EXPECT_EQ(again.MappedSize(), uiSize);

    CChildProcess last([&] { return useAndClose() && CChildProcess::Stop(); });
    last.WaitUntilStopped();
    memory.Close();
    again.Close();
    last.Kill();
    EXPECT_FALSE(useAndClose());
    EXPECT_TRUE(isAllZero(CSharedMemory::Create(name, 1)));
    EXPECT_EQ(firstWord(view), 42U) << "a view outlives the name";
}

TEST(KernelObjects, ManyWhoOpenAndCloseMeetInOneBlockAndLeaveNothingWhenKilledAnywhere)
{
    const std::wstring file = UniqueName(L"openers"), name = L"some/many\\" + file;
    for (int round = 0; round < 20; ++round) {
        std::vector<CChildProcess> children;
        for (int i = 0; i < 4; ++i) children.emplace_back([&] { return openAndClose(name); });
        std::this_thread::sleep_for(std::chrono::milliseconds(round == 0 ? 1000 : 10 + round));
        for (const CChildProcess& child : children) EXPECT_TRUE(child.IsRunning());
        children.clear();
        EXPECT_TRUE(isAllZero(CSharedMemory::Create(round % 2 == 0 ? name : UniqueName(L"another"), uiSize)));
        EXPECT_EQ(countFiles(file), 0) << "whoever comes next clears away";
    }
}

TEST(KernelObjects, FileOfAnotherUserIsRefusedAlsoWhileHeHoldsItsLocks)
{
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file to another user";
    const std::wstring name = UniqueName(L"foreign");
    const std::string path = "/dev/shm/zorvan-0-mem-" + std::filesystem::path(name).string();
    const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
    struct flock gate = {};
    gate.l_type = F_WRLCK;
    gate.l_len = 1;
    if (::fchown(file, 65534, 65534) != 0 || ::fcntl(file, F_OFD_SETLK, &gate) != 0) GTEST_SKIP() << "not allowed here";

    CChildProcess visitor([&] {
        ::alarm(60); // for one that waits
        int opening = 0, making = 0;
        return !CNamedMemory::Open(name, opening) && !CNamedMemory::Create(name, 1, making) && opening == EACCES &&
               making == EACCES;
    });
    EXPECT_TRUE(visitor.Succeeded());
    ::close(file);
    EXPECT_TRUE(CSharedMemory::Create(UniqueName(L"next"), 1)); // clears away what was left behind
    EXPECT_EQ(::unlink(path.c_str()), 0) << "it was not ours";
}

TEST(KernelObjects, RefusesWhatTheSystemCannotGive)
{
    int error = 0;
    EXPECT_TRUE(!CNamedMemory::Create(L"", 1, error) && error == EINVAL);
    EXPECT_TRUE(!CNamedMemory::Create(std::wstring(300, L'n'), 1, error) && error == ENAMETOOLONG);
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1} << 50U, UINT64_MAX})
        EXPECT_FALSE(CSharedMemory::Create(UniqueName(L"size"), size)) << size;
    EXPECT_EQ(Zorvan::SystemErrorText(4711), "failed; Unknown error code 00001267 (4711)");
    const CNamedSemaphore semaphore = CNamedSemaphore::Create(UniqueName(L"count"), 0, 3, error);
    for (const bool hasRoom : {true, true, true, false}) EXPECT_EQ(semaphore.Release(), hasRoom);
}
