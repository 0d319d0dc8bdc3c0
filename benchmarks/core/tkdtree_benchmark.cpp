// SPDX-License-Identifier: MIT
// The k-d tree beside nanoflann (leaf size 10), same points, same queries, same run.

#include "benchmarks/support/scans.h"
#include "zorvan/core/tkdtree.h"

#include <benchmark/benchmark.h>
#include <nanoflann.hpp>

#include <cstdlib>
#include <iostream>

namespace {

using Tree = Zorvan::TKdTree<3, 48>;
using kdtree::Vector;

constexpr float nearestRadius = 2.0F; // mm
constexpr float ballRadius = 2.5F;
constexpr std::size_t neighbours = 5;

struct Cloud
{
    const prereg::Vectors& points;

    [[nodiscard]] std::size_t kdtree_get_point_count() const { return points.size(); }
    [[nodiscard]] float kdtree_get_pt(std::size_t i, std::size_t d) const
    {
        return points[i][static_cast<unsigned>(d)];
    }
    template <typename Box>
    bool kdtree_get_bbox(Box&) const
    {
        return false;
    }
};

using Peer = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3, std::uint32_t>;

struct PeerIndex
{
    Cloud cloud;
    Peer tree;

    explicit PeerIndex(const prereg::Vectors& points)
        : cloud{points}, tree(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10))
    {
    }

    // The nearest point within the radius, by bounding the worst distance from the start.
    [[nodiscard]] float Nearest(const Vector<3>& q, float radiusSq) const
    {
        std::uint32_t index = 0;
        float distSq = 0;
        nanoflann::KNNResultSet<float, std::uint32_t> result(1);
        result.init(&index, &distSq);
        distSq = radiusSq;
        tree.findNeighbors(result, &q.x, nanoflann::SearchParams());
        return distSq;
    }
};

float nearest(const Tree& tree, const Vector<3>& q, float radiusSq)
{
    Zorvan::NearestQuery query{q, -1, radiusSq};
    tree.FindNearest(query);
    return query.distSq;
}

void requireSameDistances(const Tree& tree, const PeerIndex& peer, const prereg::Vectors& queries, float radiusSq)
{
    for (const auto& q : queries) {
        if (nearest(tree, q, radiusSq) == peer.Nearest(q, radiusSq)) continue;
        std::cerr << "the two trees disagree; their times would mean nothing\n";
        std::exit(1);
    }
}

template <typename Search>
void runQueries(benchmark::State& state, const prereg::Vectors& queries, Search search)
{
    for (auto _ : state) {
        for (const auto& q : queries) search(q);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(queries.size()));
    const double total = static_cast<double>(state.iterations()) * static_cast<double>(queries.size());
    state.counters["s_per_query"] =
        benchmark::Counter(total, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

const benchmarks::ScanPair& pairFor(const benchmark::State& state)
{
    return state.range(0) == 0 ? benchmarks::RealPair()
                               : benchmarks::SimulatedPair(static_cast<std::size_t>(state.range(0)));
}

void BM_Build(benchmark::State& state)
{
    const auto& points = pairFor(state).fixPoints;
    for (auto _ : state) benchmark::DoNotOptimize(Tree(points.data(), points.size()));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size()));
}

void BM_BuildPeer(benchmark::State& state)
{
    const auto& points = pairFor(state).fixPoints;
    for (auto _ : state) benchmark::DoNotOptimize(PeerIndex(points));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size()));
}

void BM_FindNearest(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const Tree tree(pair.fixPoints.data(), pair.fixPoints.size());
    const auto queries = benchmarks::Queries(pair, state.range(1) != 0);
    const float radiusSq = nearestRadius * nearestRadius;
    requireSameDistances(tree, PeerIndex(pair.fixPoints), queries, radiusSq);
    runQueries(state, queries, [&](const auto& q) { benchmark::DoNotOptimize(nearest(tree, q, radiusSq)); });
}

void BM_FindNearestPeer(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const PeerIndex peer(pair.fixPoints);
    const float radiusSq = nearestRadius * nearestRadius;
    runQueries(state, benchmarks::Queries(pair, state.range(1) != 0),
               [&](const auto& q) { benchmark::DoNotOptimize(peer.Nearest(q, radiusSq)); });
}

void BM_FindKNearest(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const Tree tree(pair.fixPoints.data(), pair.fixPoints.size());
    std::vector<Zorvan::IndexAndDist> found;
    runQueries(state, benchmarks::Queries(pair, state.range(1) != 0), [&](const auto& q) {
        tree.FindKNearest(q, found, static_cast<int>(neighbours), nearestRadius * nearestRadius);
        benchmark::DoNotOptimize(found.data());
    });
}

void BM_FindKNearestPeer(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const PeerIndex peer(pair.fixPoints);
    std::uint32_t indices[neighbours];
    float distances[neighbours];
    runQueries(state, benchmarks::Queries(pair, state.range(1) != 0), [&](const auto& q) {
        benchmark::DoNotOptimize(peer.tree.knnSearch(&q.x, neighbours, indices, distances));
    });
}

void BM_FindInBall(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const Tree tree(pair.fixPoints.data(), pair.fixPoints.size());
    std::vector<unsigned> found;
    runQueries(state, benchmarks::Queries(pair, state.range(1) != 0), [&](const auto& q) {
        found.clear();
        tree.FindInBall(found, {q, ballRadius * ballRadius});
        benchmark::DoNotOptimize(found.data());
    });
}

void BM_FindInBallPeer(benchmark::State& state)
{
    const auto& pair = pairFor(state);
    const PeerIndex peer(pair.fixPoints);
    std::vector<std::pair<std::uint32_t, float>> found;
    const nanoflann::SearchParams unsorted(32, 0, false);
    runQueries(state, benchmarks::Queries(pair, state.range(1) != 0), [&](const auto& q) {
        benchmark::DoNotOptimize(peer.tree.radiusSearch(&q.x, ballRadius * ballRadius, found, unsorted));
    });
}

// points 0: the real pair.
void cloudsAndOrders(benchmark::internal::Benchmark* b)
{
    b->ArgNames({"points", "shuffled"})->ArgsProduct({{0, 400'000}, {0, 1}})->Unit(benchmark::kMillisecond);
}

void clouds(benchmark::internal::Benchmark* b)
{
    b->ArgNames({"points"})->Arg(0)->Arg(400'000)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Build)->Apply(clouds);
BENCHMARK(BM_BuildPeer)->Apply(clouds);
BENCHMARK(BM_FindNearest)->Apply(cloudsAndOrders);
BENCHMARK(BM_FindNearestPeer)->Apply(cloudsAndOrders);
BENCHMARK(BM_FindKNearest)->Apply(cloudsAndOrders);
BENCHMARK(BM_FindKNearestPeer)->Apply(cloudsAndOrders);
BENCHMARK(BM_FindInBall)->Apply(cloudsAndOrders);
BENCHMARK(BM_FindInBallPeer)->Apply(cloudsAndOrders);

} // namespace
