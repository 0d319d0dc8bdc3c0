// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

#include <array>
#include <cmath>

namespace tools {

namespace {

constexpr double dBlend = 3.0;

struct Build
{
    double halfLength;
    double halfWidth;
    double halfHeight;
};

/// Four legs of one size, as the sides of an animal have them, each in a pose of its own.
void addLegs(CSolid& figure, std::mt19937& rng, const Build& body)
{
    const double length = Uniform(rng, 14, 20);
    const double radius = Uniform(rng, 2.5, 4.0);
    for (int i = 0; i < 4; ++i) {
        const Zorvan::Vector3 hip = Point((i & 1 ? 0.65 : -0.65) * body.halfLength,
                                          (i & 2 ? 0.7 : -0.7) * body.halfWidth, -0.3 * body.halfHeight);
        const double swing = Uniform(rng, -0.5, 0.5);
        const Zorvan::Vector3 foot = hip + Point(length * std::sin(swing), 0, -length * std::cos(swing));
        figure.Add(Capsule(radius, 0.5 * length), Between(hip, foot), dBlend);
        figure.Add(Ellipsoid(1.6 * radius, 1.1 * radius, 0.8 * radius), At(foot + Point(0.5 * radius, 0, 0)), 1.0);
    }
}

void addHead(CSolid& figure, std::mt19937& rng, const Build& body)
{
    const Zorvan::Vector3 neck = Point(0.8 * body.halfLength, 0, 0.4 * body.halfHeight);
    const DrawnTriple reach(rng, {4, 9}, {-3, 3}, {8, 14});
    const Zorvan::Vector3 head = neck + Point(reach.x, reach.y, reach.z);
    const double size = Uniform(rng, 5.5, 8.0);
    const double look = Uniform(rng, -0.5, 0.5);
    const Zorvan::Vector3 ahead = Point(std::cos(look), std::sin(look), -0.2);
    const Zorvan::Vector3 aside = Point(-std::sin(look), std::cos(look), 0);
    figure.Add(Capsule(0.5 * size, 5), Between(neck, head), dBlend);
    figure.Add(Ellipsoid(1.2 * size, size, size), At(head, Point(0, 0, look)), dBlend);
    figure.Add(Ellipsoid(0.6 * size, 0.5 * size, 0.45 * size),
               At(head + ahead * Zorvan::ToFloat(1.2 * size), Point(0, 0, look)), 1.5);
    const double ear = Uniform(rng, 2.0, 4.5);
    for (const float side : {-1.0F, 1.0F}) {
        const Zorvan::Vector3 root = head + aside * (side * Zorvan::ToFloat(0.6 * size)) + Point(0, 0, 0.6 * size);
        const Zorvan::Vector3 tip = root + aside * (side * Zorvan::ToFloat(0.6 * ear)) + Point(0, 0, 1.5 * ear);
        figure.Add(Capsule(1.4, 0.5 * (tip - root).Length()), Between(root, tip), 1.0);
    }
}

void addTail(CSolid& figure, std::mt19937& rng, const Build& body)
{
    Zorvan::Vector3 from = Point(-0.9 * body.halfLength, 0, 0.2 * body.halfHeight);
    double rise = Uniform(rng, -0.3, 0.9);
    const double sway = Uniform(rng, -0.6, 0.6);
    for (int i = 0; i < 3; ++i) {
        const Zorvan::Vector3 to = from + Point(-5 * std::cos(rise), 5 * sway, 5 * std::sin(rise));
        figure.Add(Capsule(2.2 - 0.3 * i, 0.5 * (to - from).Length()), Between(from, to), 1.5);
        from = to;
        rise += Uniform(rng, -0.2, 0.8);
    }
}

} // namespace

CSolid MakeFigure(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    const Build body{Uniform(rng, 15, 20), Uniform(rng, 7.5, 11), Uniform(rng, 7.5, 11)};
    CSolid figure;
    figure.Add(Ellipsoid(body.halfLength, body.halfWidth, body.halfHeight), At({}));
    const double belly = Uniform(rng, 0.7, 0.95) * body.halfHeight;
    const double below = Uniform(rng, -3, 2);
    figure.Add(Ellipsoid(1.1 * belly, belly, belly), At(Point(Uniform(rng, -8, 8), 0, below)), dBlend);
    addLegs(figure, rng, body);
    addHead(figure, rng, body);
    addTail(figure, rng, body);
    return figure;
}

} // namespace tools
