// SPDX-License-Identifier: MIT
// Measures the features of ideal spheres and cylinder mantles: their mean over all points and some positions of the
// shape in the grid.
//
//     measure_shapes            one line a shape and radius: name, radius in mm, 33 bins; input of make_references.py
//     measure_shapes compare    the same for radii halfway between, against Sphere() and Cylinder()
//
// The last digit of the table depends on the processor (approximate reciprocal square roots).

#include "zorvan/core/ctrafo.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/cpointfeaturehistogram.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <random>

namespace {

using prereg::CPointFeatureHistogram;
using Vector3 = kdtree::Vector<3>;
using Bins = std::array<double, CPointFeatureHistogram::numBins>;

constexpr double featureRadius = 1.5; // all lengths in mm
constexpr double gridSize = 0.3;
constexpr double minRadius = 0.8;
constexpr double step = 0.02; // 13 or more radii in each interval of a spline
constexpr int numSteps = 220; // up to 5.2
constexpr double pointsPerCell = 20;
constexpr int positionsPerRadius = 10;
constexpr double halfLength = 5.0; // of a mantle
// Features that do not see the ends: their neighbours have whole neighbourhoods, and means move by up to a cell.
constexpr double halfMiddle = halfLength - 2 * featureRadius - gridSize;

enum class EShape
{
    Sphere,
    Cylinder
};

struct Surface
{
    prereg::CTrafo pose;
    std::vector<Vector3> points;
    std::vector<Vector3> normals;
};

double draw(std::mt19937& rng, double low, double high)
{
    return low + (high - low) * 0x1p-32 * static_cast<double>(rng());
}

Vector3 vectorOf(double x, double y, double z)
{
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

Vector3 drawDirection(std::mt19937& rng)
{
    const double z = draw(rng, -1, 1);
    const double angle = draw(rng, 0, 2 * std::numbers::pi);
    const double across = std::sqrt(1 - z * z);
    return vectorOf(across * std::cos(angle), across * std::sin(angle), z);
}

prereg::CTrafo drawPose(std::mt19937& rng)
{
    const Vector3 x = drawDirection(rng);
    Vector3 y = kdtree::Cross(drawDirection(rng), x);
    y = y * (1.0F / y.Length());
    Vector3 shift;
    for (float* s : {&shift.x, &shift.y, &shift.z}) *s = static_cast<float>(draw(rng, 0, gridSize));
    return {x, y, kdtree::Cross(x, y), shift};
}

Surface drawSurface(EShape shape, double radius, std::mt19937& rng)
{
    const bool isSphere = shape == EShape::Sphere;
    const double area = 4 * std::numbers::pi * radius * (isSphere ? radius : halfLength);
    const auto n = static_cast<std::size_t>(area / (gridSize * gridSize) * pointsPerCell);
    Surface surface{drawPose(rng), {}, {}};
    for (std::size_t i = 0; i < n; ++i) {
        Vector3 normal = drawDirection(rng);
        Vector3 along;
        if (!isSphere) {
            const double angle = draw(rng, 0, 2 * std::numbers::pi);
            normal = vectorOf(std::cos(angle), std::sin(angle), 0);
            along.z = static_cast<float>(draw(rng, -halfLength, halfLength));
        }
        surface.points.push_back(surface.pose * (normal * static_cast<float>(radius) + along));
        surface.normals.push_back(surface.pose.Rotate(normal));
    }
    return surface;
}

Bins measure(EShape shape, double radius, std::mt19937& rng)
{
    Bins sum{};
    double count = 0;
    prereg::CFPFHDataSource source(featureRadius, gridSize, gridSize, 1, nullptr);
    for (int position = 0; position < positionsPerRadius; ++position) {
        const Surface surface = drawSurface(shape, radius, rng);
        source.Load(surface.points, surface.normals, nullptr);
        const prereg::CTrafo toShape = surface.pose.GetInverse(true);
        const auto [features, n] = source.GetFeatures();
        for (std::size_t i = 0; i < n; ++i) {
            const Vector3 place = toShape * source.GetFeaturePoints().first[i];
            if (shape == EShape::Cylinder && std::fabs(place.z) > halfMiddle) continue;
            for (std::size_t b = 0; b < sum.size(); ++b) sum[b] += static_cast<double>(features[i].AsArray()[b]);
            ++count;
        }
    }
    for (double& bin : sum) bin /= count;
    return sum;
}

const char* nameOf(EShape shape) { return shape == EShape::Sphere ? "sphere" : "cylinder"; }

void printTable(EShape shape, std::mt19937& rng)
{
    for (int i = 0; i <= numSteps; ++i) {
        const double radius = minRadius + i * step;
        std::printf("%s %.2f", nameOf(shape), radius);
        for (const double bin : measure(shape, radius, rng)) std::printf(" %.6f", bin);
        std::printf("\n");
    }
}

void printComparison(EShape shape, std::mt19937& rng)
{
    double largest = 0;
    double largestRatio = 0;
    double sum = 0;
    double sumOfRatios = 0;
    for (int i = 0; i < numSteps; ++i) {
        const double radius = minRadius + (i + 0.5) * step;
        CPointFeatureHistogram measured;
        const Bins bins = measure(shape, radius, rng);
        std::transform(bins.begin(), bins.end(), measured.AsArray().begin(),
                       [](double bin) { return static_cast<float>(bin); });
        const auto reference = shape == EShape::Sphere
                                   ? CPointFeatureHistogram::Sphere(radius, featureRadius, gridSize)
                                   : CPointFeatureHistogram::Cylinder(radius, featureRadius, gridSize);
        double difference = 0;
        double all = 0;
        for (std::size_t b = 0; b < bins.size(); ++b) {
            const double d = std::fabs(bins[b] - static_cast<double>(reference.AsArray()[b]));
            difference = std::max(difference, d);
            all += d / static_cast<double>(bins.size());
        }
        const auto ratio = static_cast<double>(measured.SquaredEuclideanDistance(reference));
        std::printf("%s %.2f: largest difference of a bin %.4f, mean %.4f, ratio distance %.4f\n", nameOf(shape),
                    radius, difference, all, ratio);
        largest = std::max(largest, difference);
        largestRatio = std::max(largestRatio, ratio);
        sum += all / numSteps;
        sumOfRatios += ratio / numSteps;
    }
    std::printf(
        "%s, %d radii: difference of a bin %.4f at most, %.4f in the mean; ratio distance %.4f at most, %.4f in "
        "the mean\n",
        nameOf(shape), numSteps, largest, sum, largestRatio, sumOfRatios);
}

} // namespace

int main(int argc, char** argv)
{
    const bool compare = argc == 2 && std::strcmp(argv[1], "compare") == 0;
    if (argc > 1 && !compare) {
        std::fprintf(stderr, "usage: measure_shapes [compare]\n");
        return 2;
    }
    std::mt19937 rng(47110815);
    for (const EShape shape : {EShape::Sphere, EShape::Cylinder}) {
        if (compare) {
            printComparison(shape, rng);
        } else {
            printTable(shape, rng);
        }
    }
    return 0;
}
