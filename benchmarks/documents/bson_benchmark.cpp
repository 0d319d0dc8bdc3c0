// SPDX-License-Identifier: MIT
// Documents beside a plain copy of their bytes in one run: one with the payload of a large point set, where only the
// bytes count, and one of many small elements, where only the elements do.

#include "zorvan/documents/bson.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using bson::element;
using bson::object;

constexpr std::uint64_t uiHalfOfThePayload = 50'000'000;
constexpr int iElements = 10'000;

/// Points and normals, in a document of their own as a saved point set has them, or right in the outermost one.
object PointSet(bool isNested)
{
    const std::vector<unsigned char> half(uiHalfOfThePayload, 42);
    const object arrays{{"uiPoints", std::uint32_t{4'166'666}},
                        {"points", half.data(), half.size()},
                        {"normals", half.data(), half.size()}};
    return isNested ? object(element("pointset", arrays)) : arrays;
}

/// Numbers, truth values and words in turn, as settings hold them.
object ManyElements()
{
    object result;
    for (int i = 0; i < iElements; ++i) {
        const std::string name = "dSetting" + std::to_string(i);
        const element values[] = {{name, 0.25 * i}, {name, i}, {name, i % 8 == 2}, {name, "text" + std::to_string(i)}};
        result += values[i % std::ssize(values)];
    }
    return result;
}

void countBytes(benchmark::State& state, std::uint64_t size)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void countElements(benchmark::State& state) { state.SetItemsProcessed(state.iterations() * iElements); }

void BM_CopyToNewMemory(benchmark::State& state)
{
    const auto [bytes, size] = PointSet(false).freeze();
    for (auto _ : state) {
        const auto copy = std::make_unique_for_overwrite<unsigned char[]>(size);
        std::memcpy(copy.get(), bytes.get(), size);
        benchmark::DoNotOptimize(copy.get());
        benchmark::ClobberMemory();
    }
    countBytes(state, size);
}

void BM_CopyToTheSameMemory(benchmark::State& state)
{
    const auto [bytes, size] = PointSet(false).freeze();
    const auto copy = std::make_unique<unsigned char[]>(size);
    for (auto _ : state) {
        std::memcpy(copy.get(), bytes.get(), size);
        benchmark::ClobberMemory();
    }
    countBytes(state, size);
}

void BM_Freeze(benchmark::State& state)
{
    const object document = PointSet(state.range(0) != 0);
    for (auto _ : state) benchmark::DoNotOptimize(document.freeze());
    countBytes(state, document.size());
}

void BM_Unfreeze(benchmark::State& state)
{
    const auto [bytes, size] = PointSet(state.range(0) != 0).freeze();
    for (auto _ : state) benchmark::DoNotOptimize(object::unfreeze(bytes.get(), size));
    countBytes(state, size);
}

void BM_UnfreezeFromStream(benchmark::State& state)
{
    const auto [bytes, size] = PointSet(state.range(0) != 0).freeze();
    std::istringstream in(std::string(reinterpret_cast<const char*>(bytes.get()), size));
    for (auto _ : state) {
        in.seekg(0);
        benchmark::DoNotOptimize(object::unfreeze(in));
    }
    countBytes(state, size);
}

void BM_FreezeElements(benchmark::State& state)
{
    const object document = ManyElements();
    for (auto _ : state) benchmark::DoNotOptimize(document.freeze());
    countElements(state);
}

void BM_UnfreezeElements(benchmark::State& state)
{
    const auto [bytes, size] = ManyElements().freeze();
    for (auto _ : state) benchmark::DoNotOptimize(object::unfreeze(bytes.get(), size));
    countElements(state);
}

/// The same one level down, which is first read as one element and only then taken apart.
void BM_UnfreezeNestedElements(benchmark::State& state)
{
    const auto [bytes, size] = object(element("inner", ManyElements())).freeze();
    for (auto _ : state) benchmark::DoNotOptimize(object::unfreeze(bytes.get(), size).begin()->as_object());
    countElements(state);
}

void BM_ToJson(benchmark::State& state)
{
    const object document = ManyElements();
    for (auto _ : state) benchmark::DoNotOptimize(document.to_json(2));
    countElements(state);
}

void BM_FromJson(benchmark::State& state)
{
    const std::string text = ManyElements().to_json(2);
    for (auto _ : state) benchmark::DoNotOptimize(object::from_json(text));
    countElements(state);
}

} // namespace

BENCHMARK(BM_CopyToNewMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopyToTheSameMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Freeze)->ArgName("nested")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Unfreeze)->ArgName("nested")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UnfreezeFromStream)->ArgName("nested")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FreezeElements)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UnfreezeElements)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UnfreezeNestedElements)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ToJson)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FromJson)->Unit(benchmark::kMicrosecond);
