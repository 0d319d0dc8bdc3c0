// SPDX-License-Identifier: MIT
// Multi-object ICP: one iteration for a growing strip of scans, and a whole run on the real scans. Pose errors stand
// beside the time.

#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/autosettings.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numbers>
#include <random>

namespace {

using prereg::CTrafo;
using Vector3 = kdtree::Vector<3>;
using Set = std::shared_ptr<const prereg::CPointSet>;

constexpr unsigned seed = 47110815;
constexpr double degreesPerRadian = 180.0 / std::numbers::pi;

struct Group
{
    std::vector<Set> sets;
    std::vector<CTrafo> truth;
    prereg::ConfigurationICP config;
};

// A patch of 40 x 40 mm that begins at x = start, on a bumpy surface that goes on for ever, in a frame about its
// middle.
Set patch(float start, unsigned patchSeed)
{
    constexpr std::size_t n = 20'000;
    std::mt19937 rng(patchSeed);
    std::uniform_real_distribution<float> draw(0.0F, 40.0F);
    std::normal_distribution<float> noise(0.0F, 0.005F);
    prereg::Vectors points;
    prereg::Vectors normals;
    for (std::size_t i = 0; i < n; ++i) {
        const float u = draw(rng) - 20.0F;
        const float x = start + 20.0F + u;
        const float y = draw(rng) - 20.0F;
        const float z = 2.0F * std::sin(0.31F * x) * std::cos(0.23F * y) + std::sin(0.17F * x + 0.4F * y);
        const float inner = std::cos(0.17F * x + 0.4F * y);
        const Vector3 normal(-0.62F * std::cos(0.31F * x) * std::cos(0.23F * y) - 0.17F * inner,
                             0.46F * std::sin(0.31F * x) * std::sin(0.23F * y) - 0.4F * inner, 1.0F);
        normals.push_back(normal * (1.0F / normal.Length()));
        points.push_back(Vector3(u, y, z) + normals.back() * noise(rng));
    }
    return std::make_shared<prereg::CPointSet>(points.data(), normals.data(), n);
}

// Each patch overlaps with three others on either side.
Group strip(std::size_t n)
{
    Group group;
    for (std::size_t k = 0; k < n; ++k) {
        const float start = 10.0F * static_cast<float>(k);
        group.sets.push_back(patch(start, static_cast<unsigned>(k)));
        group.truth.push_back(CTrafo().Translate(Vector3(start + 20.0F, 0, 0)));
    }
    return group;
}

Group bunny(const std::filesystem::path& folder)
{
    Group group;
    const Zorvan::ScanOptions options{.dMmPerUnit = 1000.0, .sensor = {}};
    const auto poses = Zorvan::ReadPoses(folder / "truth.json");
    for (const auto& entry : poses.clusters.front().scans) {
        const auto scan = Zorvan::ReadScan(folder / entry.file, options);
        group.sets.push_back(
            std::make_shared<prereg::CPointSet>(scan.points.data(), scan.normals.data(), scan.points.size()));
        group.truth.push_back(entry.pose);
    }
    group.config = prereg::ChooseSettings(*group.sets.front(), std::nullopt).icp;
    return group;
}

prereg::ICPPointSetsWithPoses disturbed(const Group& group, double degrees, double mm)
{
    const auto poses = tools::DisturbPoses(group.truth, group.sets.front()->GetEllipsoid().center, degrees, mm, seed);
    prereg::ICPPointSetsWithPoses sets;
    for (std::size_t k = 0; k < poses.size(); ++k) {
        sets.emplace_back(std::make_shared<prereg::ICPPointSet>(group.sets[k]), poses[k]);
    }
    return sets;
}

// Worst error of a pose, once the whole has been laid on the truth.
void reportErrors(benchmark::State& state, const Group& group, const std::vector<prereg::ICPResult>& results)
{
    std::vector<Vector3> from;
    std::vector<Vector3> to;
    for (std::size_t k = 0; k < results.size(); ++k) {
        for (const Vector3& tip : group.sets[k]->GetEllipsoid().tips) {
            from.push_back(results[k].trafo * tip);
            to.push_back(group.truth[k] * tip);
        }
    }
    const CTrafo onTruth = CTrafo::LeastSquaresFit(from.data(), to.data(), from.size(), nullptr);
    double degrees = 0;
    double mm = 0;
    for (std::size_t k = 0; k < results.size(); ++k) {
        const CTrafo pose = onTruth * results[k].trafo;
        const Vector3 centre = group.sets[k]->GetEllipsoid().center;
        degrees = std::max(degrees, pose.GetRotationDistance(group.truth[k]) * degreesPerRadian);
        mm = std::max(mm, static_cast<double>((pose * centre - group.truth[k] * centre).Length()));
    }
    state.counters["degrees_worst"] = degrees;
    state.counters["mm_worst"] = mm;
}

prereg::ConfigurationICP withIterations(prereg::ConfigurationICP config, unsigned iterations)
{
    config.uiMaxNumIterations = iterations;
    return config;
}

void run(benchmark::State& state, const Group& group, const prereg::ConfigurationICP& config, unsigned threads,
         const prereg::ICPPointSetsWithPoses& sets)
{
    Zorvan::CJobScheduler scheduler(std::max(threads, 1U));
    const auto jobs = threads == 0 ? nullptr : scheduler.CreateJobGroup({}, {});
    const bool abort = false;
    std::mt19937 rng(seed);
    std::pair<std::vector<prereg::ICPResult>, Zorvan::CDisjointSets> outcome;
    for (auto _ : state) outcome = ComputeICPRegistration(config, rng, sets, jobs, 3.0, true, false, abort);
    if (outcome.second.GetNumClasses() != 1) state.SkipWithError("the group fell apart");
    reportErrors(state, group, outcome.first);
}

// Four updates and four samplings, of which the first has the large radius: neither rule of convergence stops earlier.
void BM_MultiObjectICPFourIterations(benchmark::State& state)
{
    const Group group = strip(static_cast<std::size_t>(state.range(0)));
    run(state, group, withIterations(group.config, 3), static_cast<unsigned>(state.range(1)),
        disturbed(group, 0.02, 0.05));
}

BENCHMARK(BM_MultiObjectICPFourIterations)
    ->ArgNames({"sets", "threads"})
    ->ArgsProduct({{5, 10, 20, 40}, {0, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_MultiObjectICPBunny(benchmark::State& state)
{
    const char* data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) return state.SkipWithError("ZORVAN_DATA is not set");
    static const Group group = bunny(std::filesystem::path(data) / "bunny");
    run(state, group, group.config, static_cast<unsigned>(state.range(0)), disturbed(group, 1.0, 1.0));
}

BENCHMARK(BM_MultiObjectICPBunny)->ArgNames({"threads"})->Arg(0)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
