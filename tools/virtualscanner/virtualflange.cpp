// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

#include <cmath>

namespace tools {

CSolid MakeFlange(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    const double radius = Uniform(rng, 27, 32);
    const double halfHeight = Uniform(rng, 3, 5);
    const double pipe = Uniform(rng, 8, 11);
    const double hub = pipe + Uniform(rng, 3, 5);
    CSolid flange;
    flange.Add(Cylinder(radius, halfHeight), At({}));
    flange.Add(Cylinder(hub, Uniform(rng, 6, 12)), At(Point(0, 0, halfHeight)));
    flange.Cut(Cylinder(pipe, 40), At({}));
    const int holes = UniformInteger(rng, 4, 8);
    const double hole = Uniform(rng, 2.2, 3.5);
    const double circle = 0.5 * (hub + radius);
    for (int i = 0; i < holes; ++i) {
        const double angle = 6.28318530717959 * i / holes;
        flange.Cut(Cylinder(hole, 2.0 * halfHeight), At(Point(circle * std::cos(angle), circle * std::sin(angle), 0)));
    }
    // Without this one keyway it would fit at every turn by one hole. It is off the middle of a sector, so that not
    // even a mirror would find it twice.
    const double at = 6.28318530717959 * Uniform(rng, 0.1, 0.4) / holes;
    const double keyHalfWidth = Uniform(rng, 1.5, 3.0);
    flange.Cut(Box(Uniform(rng, 1.5, 3.0), keyHalfWidth, 2.0 * halfHeight),
               At(Point(radius * std::cos(at), radius * std::sin(at), 0), Point(0, 0, at)));
    return flange;
}

} // namespace tools
