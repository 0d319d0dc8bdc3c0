// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

namespace tools {

CSolid MakeSteps(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    const int count = UniformInteger(rng, 3, 5);
    const double halfWidth = Uniform(rng, 13, 22);
    CSolid steps;
    double x = -30.0;
    double height = 0.0;
    for (int i = 0; i < count; ++i) {
        const double length = 60.0 / count * Uniform(rng, 0.75, 1.2);
        height += Uniform(rng, 5, 11);
        // Each step reaches to the far end, under all that follow.
        const double half = 0.5 * (31.0 - x);
        steps.Add(Box(half, halfWidth, 0.5 * height), At(Point(31.0 - half, 0, 0.5 * height)));
        x += length;
    }
    return steps;
}

} // namespace tools
