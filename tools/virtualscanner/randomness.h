// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/vectors.h"

#include <random>

namespace tools {

/// What random numbers are drawn for: each purpose has a sequence of its own, so that one effect does not shift
/// another.
enum ERandomPurpose : unsigned
{
    Views,
    Noise,
    Holes,
    Disturbance,
    Missing,
    Obliquity,
    Warping,
    Swell,
    Lumps
};

/// The engine of one row of one view: rows may be made in any order, on any thread.
[[nodiscard]] std::mt19937 EngineFor(unsigned seed, ERandomPurpose purpose, unsigned view, unsigned row = 0);

/// Uniform in [low, high); the same on every system, which the distributions of the standard library do not promise.
[[nodiscard]] inline double Uniform(std::mt19937& rng, double low, double high)
{
    return low + (high - low) * (static_cast<double>(rng()) / 4294967296.0);
}

struct Range
{
    double low;
    double high;
};

/// Three numbers of which z is drawn first: as arguments of one call, draws would come in an order that each compiler
/// chooses, and an object would not be the same everywhere.
struct DrawnTriple
{
    DrawnTriple(std::mt19937& rng, const Range& ofX, const Range& ofY, const Range& ofZ)
        : z(Uniform(rng, ofZ.low, ofZ.high)), y(Uniform(rng, ofY.low, ofY.high)), x(Uniform(rng, ofX.low, ofX.high))
    {
    }

    double z;
    double y;
    double x;
};

/// A whole number in [low, high].
[[nodiscard]] int UniformInteger(std::mt19937& rng, int low, int high);

/// A unit vector, uniform over the sphere.
[[nodiscard]] Zorvan::Vector3 RandomDirection(std::mt19937& rng);

} // namespace tools
