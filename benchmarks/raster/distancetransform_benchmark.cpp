// SPDX-License-Identifier: MIT
// The exact distance transform of a mask of 4000 x 4000 pixels, beside that of OpenCV where it is installed: on one
// thread, and on as many as it takes. Both have to agree before they are timed.

#include "zorvan/raster/distancetransform.h"

#include <benchmark/benchmark.h>

#if defined(ZORVAN_WITH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <random>
#include <vector>

namespace {

constexpr int iSide = 4000;
constexpr std::size_t uiPixels = std::size_t{iSide} * iSide;

enum EKind : int
{
    Sparse, ///< a set pixel among 10,000
    Noise,  ///< every tenth
    Discs,  ///< 1,600, which cover most
    Point   ///< one, in a corner
};

std::vector<unsigned char> makeMask(int kind)
{
    std::vector<unsigned char> mask(uiPixels);
    std::mt19937 engine(47110815);
    for (std::size_t i = 0; i < uiPixels; ++i) {
        const int dx = static_cast<int>(i % iSide) % 100 - 50;
        const int dy = static_cast<int>(i / iSide) % 100 - 50;
        const bool isSet = kind == Sparse  ? engine() % 10000 == 0
                           : kind == Noise ? engine() % 10 == 0
                           : kind == Discs ? dx * dx + dy * dy <= 48 * 48
                                           : i == 0;
        mask[i] = isSet ? 1 : 0;
    }
    return mask;
}

const std::vector<unsigned char>& maskOf(int kind)
{
    static const std::vector<unsigned char> masks[] = {makeMask(Sparse), makeMask(Noise), makeMask(Discs),
                                                       makeMask(Point)};
    return masks[kind];
}

void BM_DistanceTransform(benchmark::State& state)
{
    const auto& mask = maskOf(static_cast<int>(state.range(0)));
    std::vector<float> distances(uiPixels);
    for (auto _ : state) Zorvan::detail::ComputeDistanceTransform(mask, iSide, iSide, distances);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(uiPixels));
}
BENCHMARK(BM_DistanceTransform)->ArgName("kind")->DenseRange(Sparse, Point)->Unit(benchmark::kMillisecond);

#if defined(ZORVAN_WITH_OPENCV)
void requireAgreement(const std::vector<unsigned char>& mask, const cv::Mat& theirs)
{
    std::vector<float> ours(uiPixels);
    Zorvan::detail::ComputeDistanceTransform(mask, iSide, iSide, ours);
    const auto* const other = theirs.ptr<float>();
    for (std::size_t i = 0; i < uiPixels; ++i)
        if (std::fabs(ours[i] - other[i]) > 1e-6F * ours[i]) std::abort();
}

/// It measures to the nearest pixel that is 0.
void BM_OpenCV(benchmark::State& state)
{
    const auto& mask = maskOf(static_cast<int>(state.range(0)));
    cv::setNumThreads(static_cast<int>(state.range(1)));
    const cv::Mat inverse = cv::Mat(iSide, iSide, CV_8UC1, const_cast<unsigned char*>(mask.data())) == 0;
    cv::Mat distances(iSide, iSide, CV_32FC1);
    cv::distanceTransform(inverse, distances, cv::DIST_L2, cv::DIST_MASK_PRECISE);
    requireAgreement(mask, distances);
    for (auto _ : state) cv::distanceTransform(inverse, distances, cv::DIST_L2, cv::DIST_MASK_PRECISE);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(uiPixels));
}
BENCHMARK(BM_OpenCV)
    ->ArgNames({"kind", "threads"})
    ->ArgsProduct({benchmark::CreateDenseRange(Sparse, Point, 1), {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

} // namespace
