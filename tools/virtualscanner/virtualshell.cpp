// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

namespace tools {

namespace {

constexpr double dBlend = 8.0;

/// Swells that flow into one another, off the middle so that no half looks like the other.
void addSwells(CSolid& shell, std::mt19937& rng)
{
    const DrawnTriple half(rng, {27, 32}, {18, 24}, {14, 20});
    shell.Add(Ellipsoid(half.x, half.y, half.z), At({}));
    const int count = UniformInteger(rng, 1, 3);
    for (int i = 0; i < count; ++i) {
        const DrawnTriple place(rng, {-16, 16}, {-10, 10}, {4, 9});
        const DrawnTriple swell(rng, {8, 13}, {8, 13}, {8, 12});
        const Zorvan::Vector3 turn = Point(0, 0, Uniform(rng, -1.5, 1.5));
        shell.Add(Ellipsoid(swell.x, swell.y, swell.z), At(Point(place.x, place.y, place.z), turn), dBlend);
    }
}

void cutOpenings(CSolid& shell, std::mt19937& rng)
{
    const int count = UniformInteger(rng, 1, 4);
    for (int i = 0; i < count; ++i) {
        const double across = Uniform(rng, -14, 14);
        const Zorvan::Vector3 place = Point(Uniform(rng, -20, 20), across, 15);
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
