// SPDX-License-Identifier: MIT
// What it costs to turn a surface into features, to follow a change, and to look features up.
//
// BM_Features takes points as they are (no grid inside), so that it does the work that other libraries do with the same
// points, normals and radius; pairs are ordered ones, a point and a neighbour within the radius.

#include "benchmarks/support/scans.h"
#include "zorvan/features/cdirtymap.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/cfpfhpointset.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

namespace {

using prereg::CFPFHDataSource;
using prereg::CFPFHPointSet;
using prereg::CPointFeatureHistogram;
using prereg::Vectors;
using Vector3 = kdtree::Vector<3>;

constexpr double radiusInGrids = 5.0;

std::size_t countPairs(const Vectors& points, double radius)
{
    const Zorvan::TKdTree<3, 48> tree(points.data(), points.size());
    const auto radiusSq = static_cast<float>(radius * radius);
    std::vector<unsigned> found;
    std::size_t pairs = 0;
    for (const auto& p : points) {
        found.clear();
        tree.FindInBall(found, {p, radiusSq});
        pairs += found.size() - 1;
    }
    return pairs;
}

void report(benchmark::State& state, const CFPFHDataSource& source, const Vectors& points, double radius)
{
    const auto rounds = static_cast<double>(state.iterations());
    const auto pairs = static_cast<double>(countPairs(points, radius));
    state.counters["points"] = static_cast<double>(points.size());
    state.counters["features"] = static_cast<double>(source.GetNumFeatures());
    state.counters["pairs"] = pairs;
    state.counters["points_per_s"] =
        benchmark::Counter(static_cast<double>(points.size()) * rounds, benchmark::Counter::kIsRate);
    state.counters["pairs_per_s"] = benchmark::Counter(pairs * rounds, benchmark::Counter::kIsRate);
}

// The real scan on a grid (micrometres), as a surface of its own.
void BM_Features(benchmark::State& state)
{
    const auto& pair = benchmarks::RealPair();
    const double grid = static_cast<double>(state.range(0)) / 1000.0;
    const auto tasks = static_cast<unsigned>(state.range(1));
    Vectors points = pair.fixPoints;
    Vectors normals = pair.fixNormals;
    if (grid > pair.dSpacing) {
        CFPFHDataSource reduced(radiusInGrids * grid, grid, grid, 1, nullptr);
        reduced.Load(points, normals, nullptr);
        points = reduced.GetFeaturePointsV();
        normals = reduced.GetFeatureNormalsV();
    }
    CFPFHDataSource source(radiusInGrids * grid, 0, 0, tasks, nullptr);
    for (auto _ : state) source.Load(points, normals, nullptr);
    report(state, source, points, radiusInGrids * grid);
}

// From raw scan to features, grid at the scan's own spacing, but no finer than 1/1250 of its extent: with a radius
// below 1/250 the search grid would have more cells than it takes.
void BM_Load(benchmark::State& state)
{
    const auto& pair = benchmarks::SimulatedPair(static_cast<std::size_t>(state.range(0)));
    const Zorvan::TKdTree<3, 48> tree(pair.fixPoints.data(), pair.fixPoints.size());
    const auto box = tree.GetAABB();
    const double grid = std::max(pair.dSpacing, static_cast<double>((box.high - box.low).Length()) / 1250);
    const double radius = radiusInGrids * grid;
    CFPFHDataSource source(radius, grid, grid, static_cast<unsigned>(state.range(1)), nullptr);
    for (auto _ : state) source.Load(pair.fixPoints, pair.fixNormals, nullptr);
    report(state, source, source.GetFeaturePointsV(), radius);
}

// A surface of which one point in a hundred, around one place, moves to and fro.
struct Changing
{
    const benchmarks::ScanPair& pair;
    Vectors moved;

    explicit Changing(std::size_t n) : pair(benchmarks::SimulatedPair(n)), moved(pair.fixPoints)
    {
        const Vector3 place = pair.fixPoints[n / 3];
        std::vector<std::pair<float, std::size_t>> byDistance;
        for (std::size_t i = 0; i < moved.size(); ++i) byDistance.emplace_back(DistanceSq(moved[i], place), i);
        const auto middle = byDistance.begin() + static_cast<std::ptrdiff_t>(moved.size() / 100);
        std::nth_element(byDistance.begin(), middle, byDistance.end());
        const auto shift = static_cast<float>(1.3 * pair.dSpacing);
        for (auto it = byDistance.begin(); it != middle; ++it) {
            moved[it->second] = moved[it->second] + pair.fixNormals[it->second] * shift;
        }
    }
};

void BM_UpdateOfOnePercent(benchmark::State& state)
{
    const Changing surface(static_cast<std::size_t>(state.range(0)));
    const double grid = surface.pair.dSpacing;
    CFPFHDataSource source(radiusInGrids * grid, grid, grid, static_cast<unsigned>(state.range(1)), nullptr);
    source.Update(surface.pair.fixPoints, surface.pair.fixNormals, nullptr);
    bool isMoved = false;
    for (auto _ : state) {
        isMoved = !isMoved;
        source.Update(isMoved ? surface.moved : surface.pair.fixPoints, surface.pair.fixNormals, nullptr);
    }
    state.counters["features"] = static_cast<double>(source.GetNumFeatures());
}

// The part of an update that the input alone costs, whatever changed: both grids (here one) and the map of changes.
void BM_UpdateWithoutChange(benchmark::State& state)
{
    const auto& pair = benchmarks::SimulatedPair(static_cast<std::size_t>(state.range(0)));
    CFPFHDataSource source(radiusInGrids * pair.dSpacing, pair.dSpacing, pair.dSpacing,
                           static_cast<unsigned>(state.range(1)), nullptr);
    source.Update(pair.fixPoints, pair.fixNormals, nullptr);
    for (auto _ : state) source.Update(pair.fixPoints, pair.fixNormals, nullptr);
}

void BM_HistogramUpdate(benchmark::State& state)
{
    const auto& pair = benchmarks::RealPair();
    CPointFeatureHistogram h;
    std::size_t i = 0;
    for (auto _ : state) {
        h.Update(pair.fixPoints[i], pair.fixNormals[i], pair.fixPoints[i + 1], pair.fixNormals[i + 1]);
        i = i + 2 < pair.fixPoints.size() ? i + 1 : 0;
    }
    benchmark::DoNotOptimize(h);
}

void BM_HistogramAdd(benchmark::State& state)
{
    std::vector<CPointFeatureHistogram> others(1000, CPointFeatureHistogram(1.0F));
    CPointFeatureHistogram h;
    std::size_t i = 0;
    for (auto _ : state) {
        h.Add(others[i], 0.001F);
        i = (i + 1) % others.size();
    }
    benchmark::DoNotOptimize(h);
}

void BM_LookupSimilarFeatures(benchmark::State& state)
{
    const auto& pair = benchmarks::RealPair();
    const double grid = static_cast<double>(state.range(0)) / 1000.0;
    CFPFHDataSource source(radiusInGrids * grid, grid, grid, 1, nullptr);
    source.Load(pair.fixPoints, pair.fixNormals, nullptr);
    const CFPFHPointSet fix(source);
    source.Load(pair.fltPoints, pair.fltNormals, nullptr);
    const CFPFHPointSet flt(source);
    std::size_t i = 0;
    std::size_t found = 0;
    for (auto _ : state) {
        found += fix.LookupSimilarFeatures(flt.GetFeature(i), 10, 2.0F).size();
        i = (i + 7919) % flt.SizeFeatures();
    }
    state.counters["features"] = static_cast<double>(fix.SizeFeatures());
    state.counters["found"] = static_cast<double>(found) / static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_Features)
    ->ArgsProduct({{500, 1000, 2000}, {1, 2}})
    ->ArgNames({"grid_um", "tasks"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_Load)
    ->ArgsProduct({{30000, 300000, 3000000}, {1, 2}})
    ->ArgNames({"points", "tasks"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_UpdateOfOnePercent)
    ->ArgsProduct({{300000}, {1, 2}})
    ->ArgNames({"points", "tasks"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_UpdateWithoutChange)
    ->ArgsProduct({{300000}, {1, 2}})
    ->ArgNames({"points", "tasks"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_HistogramUpdate);
BENCHMARK(BM_HistogramAdd);
BENCHMARK(BM_LookupSimilarFeatures)->ArgName("grid_um")->Arg(500)->Arg(1000)->Arg(2000);

} // namespace
