// SPDX-License-Identifier: MIT
#include "zorvan/runtime/csharedmemorypipe.h"

#include "tests/support/childprocess.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstring>
#include <random>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;
using Zorvan::CNamedSemaphore;
using Zorvan::CSharedMemory;
using Zorvan::CSharedMemoryPipe;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint64_t uiBuffer = 4096;
constexpr std::uint64_t uiPayload = uiBuffer - 8;

Bytes message(std::uint64_t size)
{
    Bytes bytes(size);
    std::mt19937 random(static_cast<unsigned int>(size));
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 8U);
    return bytes;
}

/// The other side may be half way through its `Create`.
CSharedMemoryPipe openWhenThere(const std::wstring& name)
{
    for (;; std::this_thread::sleep_for(1ms)) {
        try {
            CSharedMemoryPipe pipe = CSharedMemoryPipe::Open(name, uiBuffer);
            if (pipe) return pipe;
        } catch (const std::runtime_error&) {
        }
    }
}

/// A sender written from the layout of the block: each header stands for a chunk of any bytes.
void putChunks(const std::wstring& name, const std::vector<std::array<std::uint32_t, 2>>& headers)
{
    int error = 0;
    CSharedMemory memory = CSharedMemory::Open(name, uiBuffer);
    const CNamedSemaphore items = CNamedSemaphore::Open(L"Global\\" + name + L".sem.items", error);
    const CNamedSemaphore spaces = CNamedSemaphore::Open(L"Global\\" + name + L".sem.spaces", error);
    for (const auto& header : headers) {
        EXPECT_TRUE(spaces.Wait());
        std::memcpy(memory.CreateView().get(), header.data(), sizeof(header));
        EXPECT_TRUE(items.Release());
    }
}

} // namespace

TEST(CSharedMemoryPipe, CarriesMessagesOfAllSizesBetweenProcesses)
{
    constexpr std::uint64_t sizes[] = {1, 0, uiPayload, uiPayload + 1, 0, 3 * uiPayload, 12345, 100'000'000};
    const std::wstring name = UniqueName(L"sizes");
    CChildProcess sender([&] {
        CSharedMemoryPipe pipe = openWhenThere(name);
        for (const std::uint64_t size : sizes) pipe.Send(message(size));
        pipe.Send(std::string("ab"));
        return true;
    });
    CSharedMemoryPipe pipe = CSharedMemoryPipe::Create(name, uiBuffer);
    for (const std::uint64_t size : sizes) EXPECT_TRUE(size == 0 || pipe.Receive() == message(size)) << size;
    EXPECT_EQ(pipe.Receive(), (Bytes{'a', 'b', 0}));
    EXPECT_FALSE(pipe.TryReceive().second);
    EXPECT_TRUE(sender.Succeeded());
}

TEST(CSharedMemoryPipe, NumbersItsChunksAndHoldsBrokenOnesWithinTheBlock)
{
    const std::wstring name = UniqueName(L"chunks");
    CSharedMemoryPipe pipe = CSharedMemoryPipe::Create(name, uiBuffer);
    CSharedMemoryPipe believer = CSharedMemoryPipe::Open(name, 1U << 20U); // in a larger block than there is
    const std::jthread sender([&] {
        putChunks(name, {{3, uiPayload}, {1, uiPayload}, {2, 5}});
        putChunks(name, {{UINT32_MAX, UINT32_MAX}, {UINT32_MAX, UINT32_MAX}}); // terabytes, if it were believed
        believer.Send(message(100'000));
    });
    EXPECT_EQ(pipe.Receive().size(), 2 * uiPayload + 5);
    EXPECT_EQ(pipe.Receive().size(), 2 * uiPayload);
    EXPECT_EQ(pipe.Receive(), message(100'000));
}

TEST(CSharedMemoryPipe, NextRunDoesNotInheritTheMessageOfAKilledSender)
{
    const std::wstring name = UniqueName(L"killed");
    CChildProcess receiver([&] { return CSharedMemoryPipe::Create(name, uiBuffer).Receive().empty(); });
    CChildProcess sender([&] {
        CSharedMemoryPipe pipe = openWhenThere(name);
        putChunks(name, {{1000, uiPayload}, {1, uiPayload}, {2, uiPayload}});
        return CChildProcess::Stop();
    });
    sender.WaitUntilStopped();
    sender.Kill();
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(receiver.IsRunning()); // it waits for the rest, without limit
    receiver.Kill();

    CChildProcess next([&] { return openWhenThere(name).Send(message(9999)), true; });
    CSharedMemoryPipe pipe = CSharedMemoryPipe::Create(name, uiBuffer);
    EXPECT_EQ(pipe.Receive(), message(9999));
    EXPECT_FALSE(pipe.TryReceive().second);
}

TEST(CSharedMemoryPipe, SenderWaitsForAReceiverThatStartsLate)
{
    const std::wstring name = UniqueName(L"late");
    CChildProcess sender([&] { return CSharedMemoryPipe::Create(name, uiBuffer).Send(message(50'000)), true; });
    std::this_thread::sleep_for(100ms);
    EXPECT_TRUE(sender.IsRunning());
    Bytes out;
    CSharedMemoryPipe pipe = openWhenThere(name);
    while (!pipe.TryReceive(out)) std::this_thread::sleep_for(1ms); // once begun, it waits for all chunks
    EXPECT_EQ(out, message(50'000));
    EXPECT_TRUE(sender.Succeeded());
}

TEST(CSharedMemoryPipe, TellsMisuse)
{
    const std::wstring name = UniqueName(L"misuse");
    EXPECT_FALSE(CSharedMemoryPipe::Open(name, uiBuffer));
    CSharedMemoryPipe tiny = CSharedMemoryPipe::Create(name, 8);
    EXPECT_THROW(tiny.Send(nullptr, 0), std::invalid_argument);
    tiny.Close();
    EXPECT_THROW((void)tiny.Receive(), std::runtime_error);
    const CSharedMemory bare = CSharedMemory::Create(name, uiBuffer);
    EXPECT_THROW((void)CSharedMemoryPipe::Open(name, uiBuffer), std::runtime_error);
}
