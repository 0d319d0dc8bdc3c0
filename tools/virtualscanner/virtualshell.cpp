// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

namespace tools {

namespace {

constexpr double dBlend = 8.0;

/// Swells that flow into one another, off the middle so that no half looks like the other.
void addSwells(CSolid& shell, std::mt19937& rng)
{
    shell.Add(Ellipsoid(Uniform(rng, 27, 32), Uniform(rng, 18, 24), Uniform(rng, 14, 20)), At({}));
    const int count = UniformInteger(rng, 1, 3);
    for (int i = 0; i < count; ++i) {
        const Zorvan::Vector3 place = Point(Uniform(rng, -16, 16), Uniform(rng, -10, 10), Uniform(rng, 4, 9));
        const Shape swell = Ellipsoid(Uniform(rng, 8, 13), Uniform(rng, 8, 13), Uniform(rng, 8, 12));
        shell.Add(swell, At(place, Point(0, 0, Uniform(rng, -1.5, 1.5))), dBlend);
    }
}

void cutOpenings(CSolid& shell, std::mt19937& rng)
{
    const int count = UniformInteger(rng, 1, 4);
    for (int i = 0; i < count; ++i) {
        const Zorvan::Vector3 place = Point(Uniform(rng, -20, 20), Uniform(rng, -14, 14), 15);
        const bool isRound = UniformInteger(rng, 0, 1) == 0;
        const double half = Uniform(rng, 2.0, 4.0);
        const double length = Uniform(rng, 4.0, 8.0);
        shell.Cut(isRound ? Cylinder(half, 15) : Box(half, length, 15, 1.5),
                  At(place, Point(0, 0, Uniform(rng, 0, 3.1))), 0.5);
    }
}

} // namespace

CSolid MakeShell(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    CSolid shell;
    addSwells(shell, rng);
    shell.Hollow(Uniform(rng, 1.8, 3.0));
    shell.Cut(Box(60, 60, 30), At(Point(0, 0, -30)));
    cutOpenings(shell, rng);
    return shell;
}

} // namespace tools
