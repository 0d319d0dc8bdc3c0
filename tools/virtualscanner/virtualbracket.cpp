// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

namespace tools {

namespace {

struct Plate
{
    double halfLength;
    double halfWidth;
    double halfHeight;
};

/// Four equal holes in a rectangle, one of them blind.
void drillHoles(CSolid& bracket, std::mt19937& rng, const Plate& base)
{
    const double radius = Uniform(rng, 2.0, 4.0);
    const double x = base.halfLength - radius - Uniform(rng, 4.0, 8.0);
    const double y = base.halfWidth - radius - Uniform(rng, 2.0, 5.0);
    const int blind = UniformInteger(rng, 0, 3);
    for (int i = 0; i < 4; ++i) {
        const double depth = i == blind ? Uniform(rng, 0.5, 1.2) * base.halfHeight : 3.0 * base.halfHeight;
        const Zorvan::Vector3 place = Point((i & 1 ? x : -x) + 2.0, i & 2 ? y : -y, 2.0 * base.halfHeight);
        bracket.Cut(Cylinder(radius, depth), At(place));
    }
}

/// A round hole, and sometimes a slot beside it, through the wall that stands across x.
void openWall(CSolid& bracket, std::mt19937& rng, const Plate& base, double wall, double height)
{
    const Zorvan::Vector3 across(0, 1.5707963F, 0);
    const double x = -base.halfLength + wall;
    const double y = Uniform(rng, -0.4, 0.4) * base.halfWidth;
    const double z = Uniform(rng, 0.45, 0.75) * height;
    bracket.Cut(Cylinder(Uniform(rng, 3.0, 6.0), 2.0 * wall), At(Point(x, y, z), across));
    if (UniformInteger(rng, 0, 1) == 0) return;
    const double side = y > 0 ? -1.0 : 1.0;
    const double beside = side * Uniform(rng, 9.0, 11.0);
    bracket.Cut(Box(2.0 * wall, 1.5, Uniform(rng, 3.0, 6.0), 1.4), At(Point(x, y + beside, z)));
}

/// Right-angled triangles that stiffen the corner between base and wall.
void addRibs(CSolid& bracket, std::mt19937& rng, const Plate& base, double wall, double height)
{
    const int count = UniformInteger(rng, 1, 3);
    for (int i = 0; i < count; ++i) {
        const double leg = Uniform(rng, 0.35, 0.6) * height;
        const double halfHeight = 0.5 * leg / 1.41421356;
        const double y = base.halfWidth * ((2.0 * i + 1.0) / count - 1.0 + Uniform(rng, -0.15, 0.15));
        // The corner of the triangle is its top: turned so that it points into the corner of the bracket.
        const Zorvan::Vector3 corner = Point(-base.halfLength + 2.0 * wall, y, 2.0 * base.halfHeight);
        const Zorvan::Vector3 middle = corner + Point(0.5 * halfHeight, 0, 0.5 * halfHeight) * 1.41421356F;
        const prereg::CTrafo frame({0.70710678F, -0.70710678F, 0}, {0, 0, 1}, {-0.70710678F, -0.70710678F, 0}, middle);
        bracket.Add(Prism(2.0 * halfHeight, 0.0, halfHeight, Uniform(rng, 1.0, 2.0)), frame);
    }
}

} // namespace

CSolid MakeBracket(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    const Plate base{Uniform(rng, 26, 33), Uniform(rng, 15, 23), Uniform(rng, 2.5, 4.0)};
    const double wall = Uniform(rng, 2.5, 4.0);
    const double height = Uniform(rng, 30, 45);
    CSolid bracket;
    bracket.Add(Box(base.halfLength, base.halfWidth, base.halfHeight), At(Point(0, 0, base.halfHeight)));
    bracket.Add(Box(wall, base.halfWidth, 0.5 * height), At(Point(-base.halfLength + wall, 0, 0.5 * height)));
    addRibs(bracket, rng, base, wall, height);
    drillHoles(bracket, rng, base);
    openWall(bracket, rng, base, wall, height);
    return bracket;
}

} // namespace tools
