// SPDX-License-Identifier: MIT
// Walking and printing all classes of a partition: the time an element should not grow with their number.

#include "zorvan/graphs/cdisjointsets.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>

namespace {

using Zorvan::CDisjointSets;

/// n elements in classes of this size, members all over.
CDisjointSets Classes(unsigned int n, unsigned int size)
{
    CDisjointSets sets(n);
    const unsigned int classes = n / size;
    for (unsigned int i = classes; i < n; ++i) sets.Unify(i % classes, i);
    return sets;
}

CDisjointSets Classes(const benchmark::State& state)
{
    return Classes(static_cast<unsigned int>(state.range(0)), static_cast<unsigned int>(state.range(1)));
}

void BM_WalkAllClasses(benchmark::State& state)
{
    const CDisjointSets sets = Classes(state);
    for (auto _ : state) {
        unsigned int sum = 0;
        for (const auto& oneClass : sets)
            for (const unsigned int member : oneClass) sum += member;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_PrintAllClasses(benchmark::State& state)
{
    const CDisjointSets sets = Classes(state);
    for (auto _ : state) benchmark::DoNotOptimize(std::string(sets));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// Pairs at random until half as many classes are left: what keeping the members costs.
void BM_Unify(benchmark::State& state)
{
    const auto n = static_cast<unsigned int>(state.range(0));
    for (auto _ : state) {
        std::mt19937 engine(47110815);
        const auto draw = [&] { return static_cast<unsigned int>(engine() % n); };
        CDisjointSets sets(n);
        while (sets.GetNumClasses() > n / 2) {
            const unsigned int a = draw();
            sets.Unify(a, draw());
        }
        benchmark::DoNotOptimize(sets.GetNumClasses());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

} // namespace

BENCHMARK(BM_WalkAllClasses)
    ->ArgNames({"elements", "size"})
    ->ArgsProduct({{2000, 20000}, {1, 10}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PrintAllClasses)->ArgNames({"elements", "size"})->Args({20000, 1})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Unify)->ArgName("elements")->Arg(20000)->Unit(benchmark::kMillisecond);
