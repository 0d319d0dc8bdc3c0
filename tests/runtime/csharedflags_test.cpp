// SPDX-License-Identifier: MIT
#include "zorvan/runtime/csharedflags.h"

#include "tests/support/childprocess.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <typeinfo>

using bson::element;
using bson::object;
using Zorvan::CSharedFlags;
using Zorvan::CSharedMemory;

namespace {

constexpr std::uint64_t uiCapacity = 1024;

/// How often each of four processes hammers one store: a second's worth, or what the environment says, as in
///     ZORVAN_HAMMER_UPDATES=650000 build/release/bin/runtime_test --gtest_filter='*LoseNoUpdate'
unsigned int hammerUpdates()
{
    const char* const updates = std::getenv("ZORVAN_HAMMER_UPDATES");
    return updates ? static_cast<unsigned int>(std::atoi(updates)) : 50'000;
}

/// Counts up a flag of its own. An update that another process lost shows as a count that went back.
bool countUp(const std::wstring& name, const std::string& flag)
{
    CSharedFlags flags(name, uiCapacity);
    const unsigned int updates = hammerUpdates();
    for (unsigned int count = 0; count < updates; ++count) {
        const element mine = flags.Get(flag);
        if (count != 0 && (!mine || mine.as_uint32() != count)) return false;
        if (!flags.Set(element(flag, count + 1))) return false;
        if (count % 16 == 0 && (!flags.Set(element("extra" + flag)) || !flags.Erase("extra" + flag))) return false;
    }
    return true;
}

} // namespace

TEST(CSharedFlags, SecondObjectSeesWhatTheFirstSets)
{
    const std::wstring name = UniqueName(L"flags");
    CSharedFlags first(name, uiCapacity), second(name, uiCapacity);
    EXPECT_EQ(second.Get(), element(bson::convert(name), object()));
    EXPECT_TRUE(first.Set(element("debug_icp", true)));
    EXPECT_TRUE(first.Set(element("Settings", object{element("dLimit", 2.5)})));
    EXPECT_EQ(second.Get("dLimit"), element("dLimit", 2.5));
    bool value = false;
    EXPECT_TRUE(ReadBooleanFlag(second, "debug_icp", &value) && value);
    EXPECT_THROW((void)ReadObjectFlag(second, "debug_icp"), std::bad_cast);
    EXPECT_TRUE(second.Set(element("debug_icp", "text")));                  // the type is replaced
    EXPECT_FALSE(first.Erase("dLimit"));                                    // nested
    EXPECT_FALSE(first.Set(element("huge", std::string(uiCapacity, 'h')))); // leaves the old ones
    EXPECT_TRUE(first.Erase("debug_icp") && !second.Exists("debug_icp"));
}

TEST(CSharedFlags, ProcessesLoseNoUpdate)
{
    const std::wstring name = UniqueName(L"hammer");
    std::vector<CChildProcess> children;
    for (const char* flag : {"a", "b", "c", "d"}) children.emplace_back([=] { return countUp(name, flag); });
    {
        const CSharedFlags flags(name, uiCapacity);
        for (CChildProcess& child : children) EXPECT_TRUE(child.Succeeded());
        std::cout << "updates: " << flags.Get().children().to_json() << '\n';
        EXPECT_EQ(flags.Get().children().num_elements(), 4U);
    }
    EXPECT_FALSE(CSharedFlags(name, uiCapacity).Get().children()); // gone with the last of them
}

TEST(CSharedFlags, WaitingForAStoreThatCannotBeReachedEndsWhenAborted)
{
    const std::wstring name = UniqueName(L"aborted"), semaphore = L"Global\\" + name + L".mutex";
    int asked = 0, error = 0;
    const auto isAborted = [&] { return ++asked == 3; };
    // Taken, as by a process that died inside an operation.
    const auto taken = Zorvan::CNamedSemaphore::Create(semaphore, 0, 1, error);
    EXPECT_FALSE(CSharedFlags(name, uiCapacity, isAborted));
    EXPECT_TRUE(asked == 3 && taken.Release());
    EXPECT_TRUE(CSharedFlags(name, uiCapacity, isAborted));

    // A folder in place of the semaphore's file: it can neither be opened nor made.
    const std::wstring prefix = L"/dev/shm/zorvan-" + std::to_wstring(::geteuid()) + L"-sem-Global%5c;";
    const std::filesystem::path obstacle = prefix + name + L"2.mutex";
    ASSERT_TRUE(std::filesystem::create_directory(obstacle));
    asked = 0;
    EXPECT_FALSE(CSharedFlags(name + L"2", uiCapacity, isAborted));
    EXPECT_EQ(asked, 3);
    std::filesystem::remove(obstacle);
}

TEST(CSharedFlags, NameThatIsTooLongClosesTheStoreAndIsLogged)
{
    const support::LogCapture log;
    EXPECT_TRUE(CSharedFlags(std::wstring(200, L'n'), uiCapacity));
    EXPECT_FALSE(CSharedFlags(std::wstring(57, L'\xE4'), uiCapacity)); // four bytes of a file name each
    EXPECT_TRUE(log.Has(L"a name of 57 characters is too long for shared flags; the store stays closed"));
    EXPECT_EQ(log.Messages().size(), 1U);
}

TEST(CSharedFlags, CopyHoldsTheStoreOpenAndIsAsSilentAsAClosedOne)
{
    const std::wstring name = UniqueName(L"copied");
    const element kept("kept", true);
    const auto isSilent = [](CSharedFlags& flags) {
        flags.Clear();
        return !flags.Set(element("kept")) && !flags.Erase("kept") && !flags.Exists("kept") && !flags.Get() &&
               !flags.ReplaceAll(element("huge", std::string(uiCapacity, 'h'))) &&
               !ReadBooleanFlag(flags, "kept", nullptr);
    };
    CSharedFlags first(name, uiCapacity), copy;
    EXPECT_TRUE(!copy && isSilent(copy) && first.Set(kept));
    copy = first;
    EXPECT_TRUE(copy && isSilent(copy));
    EXPECT_EQ(first.Get("kept"), kept);
    CSharedFlags second = std::move(first);
    EXPECT_TRUE(!first && isSilent(first) && !CSharedFlags(first)); // NOLINT(bugprone-use-after-move): closed by it
    EXPECT_THROW((void)ReadObjectFlag(first, "kept"), std::bad_cast);
    EXPECT_EQ(second.Get("kept"), kept);

    second = CSharedFlags();
    EXPECT_EQ(CSharedFlags(name, uiCapacity).Get("kept"), kept);
    copy = CSharedFlags();
    EXPECT_FALSE(CSharedFlags(name, uiCapacity).Exists("kept"));
}

TEST(CSharedFlags, ReplaceAllTakesOnlyWhatIsTooLargeAndHoldsWhatIsBrokenWithinTheBlock)
{
    const std::wstring name = UniqueName(L"replace");
    CSharedFlags flags(name, 64);
    EXPECT_FALSE(flags.ReplaceAll(object{element("small", 1)}) || flags.Exists("small"));
    const object huge{element("first", 1), element("huge", std::string(1 << 20, 'h'))};
    EXPECT_TRUE(flags.ReplaceAll(huge));
    CSharedMemory memory = CSharedMemory::Open(name, 64);
    EXPECT_EQ(std::memcmp(memory.CreateView().get(), huge.freeze().first.get(), memory.MappedSize()), 0);
    EXPECT_EQ(flags.Get("first").as_int32(), 1);
    EXPECT_FALSE(flags.Exists("huge"));

    std::memcpy(memory.CreateView().get(), "\x10\0\0\0\x03name", 10); // no element has type 3
    for (int i = 0; i < 2; ++i) EXPECT_THROW((void)flags.Get("any"), std::invalid_argument);
    CSharedFlags believer(name, 1U << 30U); // in a larger store than there is
    believer.Clear();
    EXPECT_FALSE(believer.Set(huge.begin()[1]));
    EXPECT_TRUE(believer.Set(element("flag", true)) && flags.Exists("flag"));
}
