// SPDX-License-Identifier: MIT
// A node with many edges: filled, walked and emptied. The time an edge should not grow with their number.

#include "zorvan/graphs/cdigraph.h"

#include <benchmark/benchmark.h>

namespace {

using Zorvan::CDiGraph;

CDiGraph Hub(int n)
{
    CDiGraph graph(n);
    for (int b = 0; b < n; ++b) graph.edge(0, b);
    return graph;
}

void BM_FillAHub(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(Hub(n).edges());
    state.SetItemsProcessed(state.iterations() * n);
}

/// With the filling, which is a small part; step 1 erases from the front, n - 1 from the back.
void BM_FillAndEmptyAHub(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const int step = static_cast<int>(state.range(1));
    for (auto _ : state) {
        CDiGraph graph = Hub(n);
        for (int i = 0, b = 0; i < n; ++i, b = (b + step) % n) graph.erase(0, b);
        benchmark::DoNotOptimize(graph.edges());
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_WalkAHub(benchmark::State& state)
{
    const CDiGraph graph = Hub(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        int sum = 0;
        for (const CDiGraph::Edge& e : graph.edges(0)) sum += e.target;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

} // namespace

BENCHMARK(BM_FillAHub)->ArgName("edges")->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FillAndEmptyAHub)
    ->ArgNames({"edges", "step"})
    ->Args({2000, 1})
    ->Args({20000, 1})
    ->Args({20000, 19999})
    ->Args({20000, 7919})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WalkAHub)->ArgName("edges")->Arg(20000)->Unit(benchmark::kMillisecond);
