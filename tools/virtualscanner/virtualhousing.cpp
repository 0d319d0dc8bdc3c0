// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

namespace tools {

namespace {

struct Case
{
    double halfLength;
    double halfWidth;
    double height;
    double wall;
};

void hollowOut(CSolid& housing, const Case& box)
{
    housing.Add(Box(box.halfLength, box.halfWidth, 0.5 * box.height, 2.0), At(Point(0, 0, 0.5 * box.height)));
    housing.Cut(Box(box.halfLength - box.wall, box.halfWidth - box.wall, 0.5 * box.height),
                At(Point(0, 0, 0.5 * box.height + box.wall)));
}

/// Round posts for screws, in some of the corners and anywhere on the floor.
void addBosses(CSolid& housing, std::mt19937& rng, const Case& box)
{
    const double radius = Uniform(rng, 2.5, 3.5);
    const double halfHeight = 0.5 * Uniform(rng, 0.5, 0.85) * box.height;
    const int count = UniformInteger(rng, 3, 6);
    for (int i = 0; i < count; ++i) {
        const bool isInCorner = i < 4;
        const double x = box.halfLength - box.wall - radius;
        const double y = box.halfWidth - box.wall - radius;
        const double atX = isInCorner ? (i & 1 ? x : -x) : Uniform(rng, -0.5, 0.5) * x;
        const double atY = isInCorner ? (i & 2 ? y : -y) : Uniform(rng, -0.5, 0.5) * y;
        housing.Add(Cylinder(radius, halfHeight), At(Point(atX, atY, halfHeight)));
        housing.Cut(Cylinder(0.45 * radius, 0.8 * halfHeight), At(Point(atX, atY, 2.0 * halfHeight)));
    }
}

void addRibs(CSolid& housing, std::mt19937& rng, const Case& box)
{
    const int count = UniformInteger(rng, 1, 3);
    for (int i = 0; i < count; ++i) {
        const double halfHeight = 0.5 * Uniform(rng, 0.2, 0.45) * box.height;
        const double x = box.halfLength * (2.0 * (i + Uniform(rng, 0.2, 0.8)) / count - 1.0) * 0.8;
        housing.Add(Box(0.9, box.halfWidth - 0.5 * box.wall, halfHeight), At(Point(x, 0, halfHeight)));
    }
}

/// Windows and round ports through the four walls and the floor.
void cutOpenings(CSolid& housing, std::mt19937& rng, const Case& box)
{
    const int count = UniformInteger(rng, 2, 5);
    for (int i = 0; i < count; ++i) {
        const int side = UniformInteger(rng, 0, 4);
        const double along = Uniform(rng, -0.6, 0.6);
        const double z = Uniform(rng, 0.4, 0.65) * box.height;
        Zorvan::Vector3 place = Point(along * box.halfLength, side == 0 ? -box.halfWidth : box.halfWidth, z);
        Zorvan::Vector3 turn(1.5707963F, 0, 0);
        if (side == 2 || side == 3) {
            place = Point(side == 2 ? -box.halfLength : box.halfLength, along * box.halfWidth, z);
            turn = {0, 1.5707963F, 0};
        } else if (side == 4) {
            place = Point(along * box.halfLength, Uniform(rng, -0.5, 0.5) * box.halfWidth, 0);
            turn = {};
        }
        const bool isRound = UniformInteger(rng, 0, 1) == 0;
        const double halfX = Uniform(rng, 2.0, 5.0);
        const double halfY = Uniform(rng, 2.0, 5.0);
        housing.Cut(isRound ? Cylinder(halfX, 2.0 * box.wall) : Box(halfX, halfY, 2.0 * box.wall), At(place, turn));
    }
}

} // namespace

CSolid MakeHousing(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    const Case box{Uniform(rng, 26, 33), Uniform(rng, 18, 25), Uniform(rng, 18, 28), Uniform(rng, 2.0, 3.0)};
    CSolid housing;
    hollowOut(housing, box);
    addRibs(housing, rng, box);
    addBosses(housing, rng, box);
    cutOpenings(housing, rng, box);
    return housing;
}

} // namespace tools
