// SPDX-License-Identifier: MIT
#include "zorvan/features/cmeanshiftclusterer.h"

#include "zorvan/features/cmeanshiftclusterer3d.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using Zorvan::CMeanShiftClusterer;
using Zorvan::CMeanShiftClusterer3D;

constexpr float bandwidth = 5.0F; // mm, as of the positions that a search proposes

// Seven heaps of positions, 10 mm wide, in a room of 100 mm.
std::vector<float> positions(std::size_t count)
{
    std::mt19937 rng(1);
    const auto draw = [&rng](float width) { return width * static_cast<float>(rng() >> 8) * 0x1p-24F; };
    float places[7][3];
    for (auto& place : places) {
        for (float& p : place) p = draw(100.0F);
    }
    std::vector<float> xyz;
    for (std::size_t i = 0; i < count; ++i) {
        for (const float p : places[rng() % 7]) xyz.push_back(p + draw(10.0F));
    }
    return xyz;
}

bool equalResults(const std::vector<float>& xyz)
{
    CMeanShiftClusterer general(xyz.data(), xyz.size() / 3, 3, bandwidth);
    CMeanShiftClusterer3D special(xyz.data(), xyz.size() / 3, bandwidth);
    return general.Run() && special.Run() && general.GetClusterHistogram() == special.GetClusterHistogram();
}

template <typename Clusterer>
Clusterer make(const std::vector<float>& xyz);
template <>
CMeanShiftClusterer make(const std::vector<float>& xyz)
{
    return {xyz.data(), xyz.size() / 3, 3, bandwidth};
}
template <>
CMeanShiftClusterer3D make(const std::vector<float>& xyz)
{
    return {xyz.data(), xyz.size() / 3, bandwidth};
}

template <typename Clusterer>
void BM_Run(benchmark::State& state)
{
    const auto xyz = positions(static_cast<std::size_t>(state.range(0)));
    if (!equalResults(xyz)) return state.SkipWithError("the two forms differ");
    for (auto _ : state) {
        auto clusterer = make<Clusterer>(xyz); // a second run goes on with the engine, and may differ
        benchmark::DoNotOptimize(clusterer.Run());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Clusterer>
void BM_ComputeDunnIndex(benchmark::State& state)
{
    auto clusterer = make<Clusterer>(positions(static_cast<std::size_t>(state.range(0))));
    if (!clusterer.Run()) return state.SkipWithError("no clusters");
    for (auto _ : state) benchmark::DoNotOptimize(clusterer.ComputeDunnIndex());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_Run<CMeanShiftClusterer>)->ArgName("points")->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Run<CMeanShiftClusterer3D>)
    ->ArgName("points")
    ->Arg(20)
    ->Arg(200)
    ->Arg(2000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ComputeDunnIndex<CMeanShiftClusterer>)->ArgName("points")->Arg(2000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ComputeDunnIndex<CMeanShiftClusterer3D>)->ArgName("points")->Arg(2000)->Unit(benchmark::kMicrosecond);

} // namespace
