// SPDX-License-Identifier: MIT
// The features of ideal spheres and cylinder mantles, looked up in splines over the radius.

#include "zorvan/features/cpointfeaturehistogram.h"
#include "zorvan/features/cpointfeaturehistogram_referencetables.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <limits>
#include <span>

namespace prereg {

namespace {

using detail::ReferenceSpline;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

// What the tables were made for, in mm. Hosts pass lengths in micrometres times 0.001 and are compared exactly.
constexpr double minRadius = 800 * 0.001;
constexpr double maxRadius = 5.2;
constexpr double tableGridSize = 300 * 0.001;
constexpr double tableFeatureRadius = 1.5;

void warnOfOtherParameters(const wchar_t* shape, double radius, double fpfhRadius, double gridSize)
{
    if (radius < minRadius || radius > maxRadius) {
        logger.Warn(L"%ls radius is outside defined interval [0.8 mm,5.2 mm]; expect inaccurate results", shape);
    }
    if (gridSize != tableGridSize) logger.Warn(L"grid size is not 0.3 mm; expect inaccurate results");
    if (fpfhRadius != tableFeatureRadius) logger.Warn(L"FPFH radius is not 1.5 mm; expect inaccurate results");
}

// In single precision and back; what no float can hold becomes the largest one.
double narrowed(double radius)
{
    constexpr double max = std::numeric_limits<float>::max();
    return static_cast<float>(std::clamp(radius, -max, max));
}

// Outside its knots a spline goes on with its first or last cubic.
double valueAt(const ReferenceSpline& spline, double radius)
{
    const auto inner = spline.knots.subspan(1, spline.knots.size() - 2);
    const auto i = static_cast<std::size_t>(std::upper_bound(inner.begin(), inner.end(), radius) - inner.begin());
    const detail::ReferenceCubic& c = spline.cubics[i];
    const double x = radius - spline.knots[i];
    return ((x * c.c3 + c.c2) * x + c.c1) * x + c.c0;
}

// A part whose bins are all 0, as far outside, has an infinite reciprocal and turns into NaN, like an empty histogram
// that is normalised.
void normalizePart(std::span<float> bins)
{
    float sum = 0.0F;
    for (const float bin : bins) sum += bin;
    const float scale = 1.0F / sum;
    if (!(scale > 0.0F)) return;
    for (float& bin : bins) bin *= scale;
}

void evaluate(std::span<const ReferenceSpline> splines, double radius, std::span<float> bins)
{
    const double argument = narrowed(radius);
    for (const ReferenceSpline& spline : splines) {
        bins[spline.bin] = static_cast<float>(std::clamp(valueAt(spline, argument), 0.0, 1.0));
    }
}

} // namespace

CPointFeatureHistogram CPointFeatureHistogram::Sphere(double radius, double fpfhRadius, double gridSize)
{
    warnOfOtherParameters(L"sphere", radius, fpfhRadius, gridSize);
    CPointFeatureHistogram sphere;
    const std::span<float> bins(sphere.m_bins);
    evaluate(detail::sphereSplines, radius, bins);
    bins[binsPerPart / 2] = 1.0F; // every normal lies in the plane of its pair
    normalizePart(bins.subspan(binsPerPart, binsPerPart));
    normalizePart(bins.subspan(2 * binsPerPart, binsPerPart));
    return sphere;
}

CPointFeatureHistogram CPointFeatureHistogram::Cylinder(double radius, double fpfhRadius, double gridSize)
{
    warnOfOtherParameters(L"cylinder", radius, fpfhRadius, gridSize);
    CPointFeatureHistogram cylinder;
    const std::span<float> bins(cylinder.m_bins);
    evaluate(detail::cylinderSplines, radius, bins);
    for (std::size_t part = 0; part < numBins; part += binsPerPart) normalizePart(bins.subspan(part, binsPerPart));
    return cylinder;
}

} // namespace prereg
