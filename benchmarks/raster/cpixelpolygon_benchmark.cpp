// SPDX-License-Identifier: MIT
// The regions of a mask of 4000 x 4000 pixels, beside OpenCV's findContours where it is installed; and dilation. Both
// tracers have to find the same contours, pixel by pixel in number, before they are timed.

#include "zorvan/raster/cpixelpolygon.h"

#include <benchmark/benchmark.h>

#if defined(ZORVAN_WITH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

#include <cstdlib>
#include <random>
#include <vector>

namespace {

using Zorvan::CPixelPolygon;

constexpr int iSide = 4000;

enum EKind : int
{
    Disc,  ///< one, as large as it fits
    Discs, ///< 1,600, which do not touch
    Noise  ///< every tenth pixel
};

std::vector<unsigned char> makeMask(int kind)
{
    std::vector<unsigned char> mask(std::size_t{iSide} * iSide);
    const int cell = kind == Disc ? iSide : 100;
    const int radius = cell / 2 - 2;
    std::mt19937 engine(47110815);
    for (int y = 0; y < iSide; ++y)
        for (int x = 0; x < iSide; ++x) {
            const int dx = x % cell - cell / 2;
            const int dy = y % cell - cell / 2;
            const bool isSet = kind == Noise ? engine() % 10 == 0 : dx * dx + dy * dy <= radius * radius;
            mask[static_cast<std::size_t>(y) * iSide + static_cast<std::size_t>(x)] = isSet ? 255 : 0;
        }
    return mask;
}

const std::vector<unsigned char>& maskOf(int kind)
{
    static const std::vector<unsigned char> masks[] = {makeMask(Disc), makeMask(Discs), makeMask(Noise)};
    return masks[kind];
}

void BM_RegionsOf(benchmark::State& state)
{
    const auto& mask = maskOf(static_cast<int>(state.range(0)));
    std::size_t regions = 0;
    for (auto _ : state) regions = CPixelPolygon::RegionsOf(mask.data(), iSide, iSide).size();
    state.counters["regions"] = static_cast<double>(regions);
}

#if defined(ZORVAN_WITH_OPENCV)
using Contours = std::vector<std::vector<cv::Point>>;

/// Outer contours only; of the noise also those that lie in holes, as ours.
Contours contoursOf(std::vector<unsigned char>& mask, int kind)
{
    Contours contours;
    std::vector<cv::Vec4i> hierarchy;
    const cv::Mat image(iSide, iSide, CV_8UC1, mask.data());
    if (kind == Noise)
        cv::findContours(image, contours, hierarchy, cv::RETR_CCOMP, cv::CHAIN_APPROX_NONE);
    else
        cv::findContours(image, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    return contours;
}

template <typename List, typename SizeOf>
std::size_t totalOf(const List& list, const SizeOf& sizeOf)
{
    std::size_t total = 0;
    for (const auto& item : list) total += sizeOf(item);
    return total;
}

void BM_FindContours(benchmark::State& state)
{
    const int kind = static_cast<int>(state.range(0));
    auto mask = maskOf(kind);
    if (kind != Noise) {
        const auto ours =
            totalOf(CPixelPolygon::RegionsOf(mask.data(), iSide, iSide), [](const auto& r) { return r.Size(); });
        if (ours != totalOf(contoursOf(mask, kind), [](const auto& c) { return c.size(); })) std::abort();
    }
    std::size_t contours = 0;
    for (auto _ : state) contours = contoursOf(mask, kind).size();
    state.counters["contours"] = static_cast<double>(contours);
}
BENCHMARK(BM_FindContours)->ArgName("kind")->DenseRange(Disc, Noise)->Unit(benchmark::kMillisecond);
#endif

void BM_Dilate(benchmark::State& state)
{
    const auto disc = CPixelPolygon::RegionsOf(maskOf(Disc).data(), iSide, iSide).front();
    for (auto _ : state) benchmark::DoNotOptimize(disc.Dilate(static_cast<unsigned int>(state.range(0))));
}

BENCHMARK(BM_RegionsOf)->ArgName("kind")->DenseRange(Disc, Noise)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dilate)->ArgName("radius")->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond);

} // namespace
