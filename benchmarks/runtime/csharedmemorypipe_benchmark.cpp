// SPDX-License-Identifier: MIT
// Bytes a second from one process to another: our pipe beside a Unix stream socket and a copy within one process, in
// one run. Each message is answered by its last byte, so that a message counts when the other side holds all of it.

#include "zorvan/runtime/csharedmemorypipe.h"

#include <benchmark/benchmark.h>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

using Zorvan::CSharedMemoryPipe;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint64_t uiHeader = 8;

/// Runs the other side until the benchmark is over. `connected` lets this side go on.
class CPeer
{
public:
    explicit CPeer(const std::function<void(const std::function<void()>& connected)>& body)
    {
        int ends[2] = {-1, -1};
        if (::pipe(ends) != 0) return;
        m_pid = ::fork();
        if (m_pid == 0) {
            body([&] { (void)!::write(ends[1], "!", 1); });
            ::_exit(0);
        }
        char token = 0;
        (void)!::read(ends[0], &token, 1);
        ::close(ends[0]);
        ::close(ends[1]);
    }
    CPeer(const CPeer&) = delete;
    ~CPeer()
    {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }

private:
    pid_t m_pid = -1;
};

[[nodiscard]] bool sendAll(int socket, const unsigned char* data, std::uint64_t size)
{
    while (size > 0) {
        const ssize_t sent = ::write(socket, data, size);
        if (sent <= 0) return false;
        data += sent;
        size -= static_cast<std::uint64_t>(sent);
    }
    return true;
}

[[nodiscard]] bool receiveAll(int socket, unsigned char* data, std::uint64_t size)
{
    while (size > 0) {
        const ssize_t got = ::read(socket, data, size);
        if (got <= 0) return false;
        data += got;
        size -= static_cast<std::uint64_t>(got);
    }
    return true;
}

[[nodiscard]] Bytes message(const benchmark::State& state)
{
    Bytes bytes(static_cast<std::size_t>(state.range(0)), 1);
    bytes.back() = 42;
    return bytes;
}

void count(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations());
}

void BM_Pipe(benchmark::State& state)
{
    const std::uint64_t buffer = static_cast<std::uint64_t>(state.range(1)) + uiHeader;
    const std::wstring name = L"bench_pipe" + std::to_wstring(::getpid());
    const CPeer peer([&](const std::function<void()>& connected) {
        CSharedMemoryPipe in = CSharedMemoryPipe::Create(name, buffer);
        CSharedMemoryPipe answer = CSharedMemoryPipe::Create(name + L".answer", buffer);
        connected();
        for (Bytes bytes;;) {
            in.Receive(bytes);
            answer.Send(&bytes.back(), 1);
        }
    });

    CSharedMemoryPipe out = CSharedMemoryPipe::Open(name, buffer);
    CSharedMemoryPipe answer = CSharedMemoryPipe::Open(name + L".answer", buffer);
    const Bytes bytes = message(state);
    for (auto _ : state) {
        out.Send(bytes);
        if (answer.Receive() != Bytes{42}) return state.SkipWithError("wrong answer");
    }
    count(state);
}

void BM_UnixSocket(benchmark::State& state)
{
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return state.SkipWithError("no socket");
    const Bytes bytes = message(state);
    const CPeer peer([&](const std::function<void()>& connected) {
        connected();
        Bytes in(bytes.size());
        while (receiveAll(ends[1], in.data(), in.size()) && sendAll(ends[1], &in.back(), 1)) {
        }
    });

    unsigned char answer = 0;
    for (auto _ : state)
        if (!sendAll(ends[0], bytes.data(), bytes.size()) || !receiveAll(ends[0], &answer, 1) || answer != 42)
            return state.SkipWithError("wrong answer");
    count(state);
    ::close(ends[0]);
    ::close(ends[1]);
}

void BM_Copy(benchmark::State& state)
{
    const Bytes bytes = message(state);
    Bytes target(bytes.size());
    for (auto _ : state) {
        std::memcpy(target.data(), bytes.data(), bytes.size());
        benchmark::ClobberMemory();
    }
    count(state);
}

} // namespace

BENCHMARK(BM_Pipe)
    ->ArgNames({"bytes", "slot"})
    ->Args({64, 4088})
    ->Args({4088, 4088})
    ->Args({1 << 20, 4088})
    ->Args({1 << 20, 1 << 16})
    ->Args({1 << 20, 1 << 20})
    ->Args({100'000'000, 1 << 16})
    ->Args({100'000'000, 1 << 20})
    ->UseRealTime();
BENCHMARK(BM_UnixSocket)->ArgName("bytes")->Arg(64)->Arg(4088)->Arg(1 << 20)->Arg(100'000'000)->UseRealTime();
BENCHMARK(BM_Copy)->ArgName("bytes")->Arg(64)->Arg(4088)->Arg(1 << 20)->Arg(100'000'000)->UseRealTime();
