// SPDX-License-Identifier: MIT
// One whole pairwise ICP from 5 degrees and 2 mm off, trees built before. Errors stand beside the time: their median
// and worst over the start poses and engine states of the run.

#include "benchmarks/support/scans.h"
#include "zorvan/core/icpregistration.h"
#include "zorvan/workflow/autosettings.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <random>

namespace {

using prereg::CTrafo;
using Vector3 = kdtree::Vector<3>;

constexpr float startDegrees = 5.0F;
constexpr float startShift = 2.0F; // mm
constexpr std::size_t numStarts = 25;
constexpr float degreesPerRadian = 180.0F / std::numbers::pi_v<float>;

Vector3 randomDirection(std::mt19937& rng)
{
    std::normal_distribution<float> normal;
    const Vector3 v(normal(rng), normal(rng), normal(rng));
    return v * (1.0F / v.Length());
}

// Turned and shifted about the middle of the fixed scan.
CTrafo disturbed(const CTrafo& truth, const Vector3& middle, std::mt19937& rng)
{
    const CTrafo turn(randomDirection(rng), startDegrees / degreesPerRadian,
                      randomDirection(rng) * startShift + middle);
    return turn * (CTrafo().Translate(-middle) * truth);
}

struct Errors
{
    std::vector<float> degrees;
    std::vector<float> mm;

    void Report(benchmark::State& state)
    {
        const auto median = [](std::vector<float>& values) {
            std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                             values.end());
            return values[values.size() / 2];
        };
        state.counters["deg_worst"] = *std::max_element(degrees.begin(), degrees.end());
        state.counters["mm_worst"] = *std::max_element(mm.begin(), mm.end());
        state.counters["deg_median"] = median(degrees);
        state.counters["mm_median"] = median(mm);
    }
};

void BM_ICPRegistration(benchmark::State& state)
{
    const auto& pair = state.range(0) == 0 ? benchmarks::RealPair()
                                           : benchmarks::SimulatedPair(static_cast<std::size_t>(state.range(0)));
    const prereg::CPointSet fix(pair.fixPoints.data(), pair.fixNormals.data(), pair.fixPoints.size());
    const prereg::CPointSet flt(pair.fltPoints.data(), pair.fltNormals.data(), pair.fltPoints.size());
    const auto config = prereg::ChooseSettings(fix, std::nullopt).icp;

    std::mt19937 rng(47110815);
    std::vector<CTrafo> starts(numStarts);
    for (auto& start : starts) start = disturbed(pair.truth, fix.GetEllipsoid().center, rng);

    Errors errors;
    std::size_t successes = 0;
    std::size_t runs = 0;
    for (auto _ : state) {
        const auto result = fix.ComputeICPRegistration(config, rng, flt, starts[runs % numStarts], nullptr, false);
        state.PauseTiming();
        rng.seed(47110815 + static_cast<unsigned>(++runs)); // other samples for each run
        if (result) {
            ++successes;
            errors.degrees.push_back(result.GetTrafo().GetRotationDistance(pair.truth) * degreesPerRadian);
            errors.mm.push_back((result.GetTrafo().GetTranslation() - pair.truth.GetTranslation()).Length());
        }
        state.ResumeTiming();
    }
    state.counters["success"] = static_cast<double>(successes) / static_cast<double>(runs);
    if (successes != 0) errors.Report(state);
}

// points 0: the real pair.
BENCHMARK(BM_ICPRegistration)->ArgNames({"points"})->Arg(0)->Arg(40'000)->Arg(4'000'000)->Unit(benchmark::kMillisecond);

} // namespace
