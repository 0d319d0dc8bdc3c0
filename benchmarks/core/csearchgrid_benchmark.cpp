// SPDX-License-Identifier: MIT
#include "benchmarks/support/scans.h"
#include "zorvan/core/csearchgrid.h"

#include <benchmark/benchmark.h>

namespace {

using Zorvan::CSearchGrid;

constexpr double cellSize = 2.0; // mm
constexpr float radiusSq = 4.0F;

// points 0: the real pair.
const benchmarks::ScanPair& pairFor(const benchmark::State& state)
{
    return state.range(0) == 0 ? benchmarks::RealPair()
                               : benchmarks::SimulatedPair(static_cast<std::size_t>(state.range(0)));
}

void BM_Build(benchmark::State& state)
{
    const auto& points = pairFor(state).fixPoints;
    for (auto _ : state) benchmark::DoNotOptimize(CSearchGrid(cellSize, points.data(), points.size()));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size()));
}

void BM_QueryNN(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const CSearchGrid grid(cellSize, pair.fixPoints.data(), pair.fixPoints.size());
    const auto queries = benchmarks::Queries(pair, state.range(1) != 0);
    for (auto _ : state) {
        for (const auto& q : queries) benchmark::DoNotOptimize(grid.Query_NN(q, radiusSq, nullptr));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(queries.size()));
}

void BM_QueryRange(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const CSearchGrid grid(cellSize, pair.fixPoints.data(), pair.fixPoints.size());
    const auto queries = benchmarks::Queries(pair, state.range(1) != 0);
    std::vector<unsigned> found;
    for (auto _ : state) {
        for (const auto& q : queries) {
            found.clear();
            grid.QueryRange(found, {q, radiusSq});
            benchmark::DoNotOptimize(found.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(queries.size()));
}

BENCHMARK(BM_Build)->ArgNames({"points"})->Arg(0)->Arg(400'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QueryNN)->ArgNames({"points", "shuffled"})->ArgsProduct({{0}, {0, 1}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QueryRange)->ArgNames({"points", "shuffled"})->ArgsProduct({{0}, {0, 1}})->Unit(benchmark::kMillisecond);

} // namespace
