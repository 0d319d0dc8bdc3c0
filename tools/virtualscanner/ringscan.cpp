// SPDX-License-Identifier: MIT
#include "ringscan.h"

#include "randomness.h"
#include "raytracing.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tools {

namespace {

/// Rings and steps of the spin that can meet the ball around an object. Angles in radians.
struct Sweep
{
    double distance; ///< of the sensor from the middle of the ball
    double radius;
    double lowest; ///< elevation of the first ring
    double first;  ///< azimuth of the first ray of a ring
    double ringStep;
    double step;
    std::size_t rings;
    std::size_t steps;
};

/// The rings of a sensor stand at fixed elevations, so the sweep starts at a multiple of their step.
Sweep sweepOver(const ObjectTraits& object, const prereg::CTrafo& pose, const Rings& rings, double spacing)
{
    const Zorvan::Vector3 middle = pose.GetInverse(true) * object.middle;
    const double distance = middle.Length();
    const double radius = object.radius;
    const double step = spacing / distance;
    const double ringStep = rings.dRatio * step;
    const double half = std::asin(std::min(1.0, radius / distance));
    const double halfTurn = std::asin(std::min(1.0, radius / std::hypot(middle.x, middle.y)));
    const double lowest = ringStep * std::ceil((std::asin(middle.z / distance) - half) / ringStep);
    return {distance,
            radius,
            lowest,
            std::atan2(middle.y, middle.x) - halfTurn,
            ringStep,
            step,
            static_cast<std::size_t>(2.0 * half / ringStep) + 1,
            static_cast<std::size_t>(2.0 * halfTurn / step) + 1};
}

prereg::Vectors scanRing(const AVirtualObject& object, const prereg::CTrafo& pose, const Sweep& sweep, std::size_t ring,
                         const RingScanSettings& settings)
{
    std::mt19937 rng = EngineFor(settings.uiSeed, Noise, settings.uiView, static_cast<unsigned>(ring));
    std::normal_distribution<double> noise;
    const double elevation = sweep.lowest + sweep.ringStep * static_cast<double>(ring);
    const double offset = Uniform(rng, 0, sweep.step); // rings do not fire at the same instant
    prereg::Vectors points;
    for (std::size_t i = 0; i < sweep.steps; ++i) {
        const double azimuth = sweep.first + offset + sweep.step * static_cast<double>(i);
        const Zorvan::Vector3 ray(Zorvan::ToFloat(std::cos(elevation) * std::cos(azimuth)),
                                  Zorvan::ToFloat(std::cos(elevation) * std::sin(azimuth)),
                                  Zorvan::ToFloat(std::sin(elevation)));
        const Zorvan::Vector3 direction = pose.Rotate(ray);
        const float way =
            TraceRay(object, pose.GetTranslation(), direction, Zorvan::ToFloat(sweep.distance + 2.0 * sweep.radius));
        if (std::isnan(way)) continue;
        if (!IsSeenUnder(object.Normal(pose.GetTranslation() + direction * way), direction)) continue;
        const bool isMissing = Uniform(rng, 0, 1) < settings.dMissing;
        const bool isOutlier = Uniform(rng, 0, 1) < settings.dOutliers;
        const double range = isOutlier ? sweep.distance + sweep.radius * Uniform(rng, -1, 1)
                                       : static_cast<double>(way) + settings.dNoise * noise(rng);
        if (!isMissing) points.push_back(ray * Zorvan::ToFloat(range));
    }
    return points;
}

} // namespace

Zorvan::Scan ScanRings(const AVirtualObject& object, const prereg::CTrafo& pose, const Rings& rings,
                       const RingScanSettings& settings)
{
    const Sweep sweep = sweepOver(object.GetTraits(), pose, rings, settings.dSpacing);
    std::vector<prereg::Vectors> points(sweep.rings);
    ForAllRows(sweep.rings, settings.uiNumThreads,
               [&](std::size_t ring) { points[ring] = scanRing(object, pose, sweep, ring, settings); });
    Zorvan::Scan scan;
    for (const prereg::Vectors& ring : points) scan.points.insert(scan.points.end(), ring.begin(), ring.end());
    return scan;
}

} // namespace tools
