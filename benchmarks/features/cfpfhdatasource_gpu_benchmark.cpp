// SPDX-License-Identifier: MIT
// What features cost on the best compute device, by stage, beside this processor. The points are taken as they are (no
// grid inside), with a radius of five spacings.

#include "benchmarks/support/scans.h"
#include "tests/support/computeservice.h"
#include "zorvan/features/cfpfhdatasource_gpu.h"

#include <benchmark/benchmark.h>

#include <chrono>

namespace {

using prereg::CFPFHDataSource;
using Clock = std::chrono::steady_clock;

constexpr double radiusInSpacings = 5.0;

/// Seconds between the operations of the compute service.
struct Stages
{
    double upload = 0.0;
    double kernels = 0.0;
    double readBack = 0.0;
    Clock::time_point last;

    bool Note(const std::string& operation)
    {
        const auto now = Clock::now();
        const double seconds = std::chrono::duration<double>(now - last).count();
        const bool isFirstBuffer = operation == "buffer CubeIndicies";
        if (operation.starts_with("buffer") && !isFirstBuffer) upload += seconds;
        if (operation == "enqueue") (isUploading ? upload : kernels) += seconds;
        if (operation == "read") kernels += isReading ? 0.0 : seconds;
        if (operation == "read done") readBack += seconds;
        isUploading = operation.starts_with("buffer");
        isReading = operation == "read done";
        last = now;
        return true;
    }

private:
    bool isUploading = false;
    bool isReading = false;
};

void load(benchmark::State& state, CFPFHDataSource& source, const benchmarks::ScanPair& pair)
{
    source.Load(pair.fixPoints, pair.fixNormals, nullptr);
    for (auto _ : state) source.Load(pair.fixPoints, pair.fixNormals, nullptr);
    state.counters["points"] = static_cast<double>(pair.fixPoints.size());
    state.counters["features"] = static_cast<double>(source.GetNumFeatures());
}

void BM_Device(benchmark::State& state)
{
    const auto& pair = benchmarks::SimulatedPair(static_cast<std::size_t>(state.range(0)));
    Stages stages;
    const support::ComputeService service([&stages](const std::string& operation) { return stages.Note(operation); });
    const auto gpu = std::make_shared<CFPFHDataSource::GPUContext>();
    if (!*gpu) {
        state.SkipWithError("no OpenCL device");
        return;
    }
    CFPFHDataSource source(radiusInSpacings * pair.dSpacing, 0, 0, 1, gpu);
    load(state, source, pair);
    const double rounds = static_cast<double>(state.iterations()) + 1.0; // one more to warm up
    state.counters["upload_ms"] = 1000.0 * stages.upload / rounds;
    state.counters["kernels_ms"] = 1000.0 * stages.kernels / rounds;
    state.counters["read_ms"] = 1000.0 * stages.readBack / rounds;
}

void BM_Processor(benchmark::State& state)
{
    const auto& pair = benchmarks::SimulatedPair(static_cast<std::size_t>(state.range(0)));
    CFPFHDataSource source(radiusInSpacings * pair.dSpacing, 0, 0, static_cast<unsigned>(state.range(1)), nullptr);
    load(state, source, pair);
}

BENCHMARK(BM_Device)
    ->ArgName("points")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(750000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_Processor)
    ->ArgNames({"points", "tasks"})
    ->Args({10000, 2})
    ->Args({100000, 2})
    ->Args({750000, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
