// SPDX-License-Identifier: MIT
// A joint system of many sets, dense and sparse: a strip where each set touches the next ten.

#include "zorvan/core/jointsystem.h"

#include <benchmark/benchmark.h>

#include <algorithm>

namespace {

using prereg::IJointSystem;

void solve(benchmark::State& state, std::size_t numSets, std::size_t maxDenseSets)
{
    constexpr std::size_t uiReach = 10;
    IJointSystem::SetPairs pairs;
    for (std::size_t i = 1; i < numSets; ++i)
        for (std::size_t j = i - std::min(i, uiReach); j < i; ++j) pairs.emplace_back(i, j);
    const auto system = IJointSystem::Make(numSets, maxDenseSets);
    const IJointSystem::Packed identity{1, 0, 1, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1};
    std::vector<double> x(IJointSystem::uiParameters * (numSets - 1), 1.0);
    for (auto _ : state) {
        system->Clear(pairs);
        for (const auto& [i, j] : pairs) system->Add(i, j, identity);
        if (!system->Factor()) state.SkipWithError("singular");
        system->Solve(x);
        system->Invert();
        for (std::size_t set = 1; set < numSets; ++set) benchmark::DoNotOptimize(system->InverseBlock(set));
    }
}

void BM_Dense(benchmark::State& state) { solve(state, static_cast<std::size_t>(state.range(0)), 1000); }
void BM_Sparse(benchmark::State& state) { solve(state, static_cast<std::size_t>(state.range(0)), 1); }

BENCHMARK(BM_Dense)->Arg(25)->Arg(50)->Arg(100)->Arg(200)->Arg(400)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sparse)->Arg(25)->Arg(50)->Arg(100)->Arg(200)->Arg(400)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace
