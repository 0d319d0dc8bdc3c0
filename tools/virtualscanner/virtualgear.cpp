// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tools {

namespace {

constexpr double dTurn = 6.28318530717959;

struct Wheel
{
    int teeth;
    double module; ///< pitch circle over teeth, mm
    double halfWidth;

    [[nodiscard]] double PitchRadius() const { return 0.5 * module * teeth; }
};

/// Straight-sided teeth, nearly those of the standard rack.
void addTeeth(CSolid& gear, const Wheel& wheel)
{
    const double root = wheel.PitchRadius() - 1.25 * wheel.module;
    gear.Add(Cylinder(root, wheel.halfWidth), At({}));
    const double halfHeight = 1.3 * wheel.module; // reaches into the root circle
    const Shape tooth = Prism(1.15 * wheel.module, 0.4 * wheel.module, halfHeight, wheel.halfWidth);
    for (int i = 0; i < wheel.teeth; ++i) {
        const double angle = dTurn * i / wheel.teeth;
        const double radius = wheel.PitchRadius() + wheel.module - halfHeight;
        const Zorvan::Vector3 place = Point(radius * std::cos(angle), radius * std::sin(angle), 0);
        gear.Add(tooth, At(place, Point(0, 0, angle - 0.25 * dTurn)));
    }
}

/// A ring between hub and teeth turned away from both sides, and holes through what is left.
/// @return number of equal sectors that the holes leave
int lighten(CSolid& gear, std::mt19937& rng, const Wheel& wheel, double hub)
{
    const double root = wheel.PitchRadius() - 1.25 * wheel.module;
    const double middle = 0.5 * (hub + root - 2.0);
    const double half = middle - hub;
    const double radius = Uniform(rng, 0.6, 0.9) * half;
    const int most = static_cast<int>(dTurn * middle / (2.6 * radius));
    const int holes = UniformInteger(rng, 0, 1) == 0 ? 0 : UniformInteger(rng, 3, std::max(3, std::min(6, most)));
    for (int i = 0; i < holes; ++i) {
        const double angle = dTurn * i / holes;
        gear.Cut(Cylinder(radius, 2.0 * wheel.halfWidth),
                 At(Point(middle * std::cos(angle), middle * std::sin(angle), 0)));
    }
    return holes == 0 ? wheel.teeth : std::gcd(holes, wheel.teeth);
}

} // namespace

CSolid MakeGear(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    const int teeth = UniformInteger(rng, 12, 28);
    const Wheel wheel{teeth, Uniform(rng, 50, 60) / (teeth + 2), Uniform(rng, 4, 8)};
    const double bore = Uniform(rng, 4, 6);
    const double hub = bore + Uniform(rng, 3, 5);
    CSolid gear;
    addTeeth(gear, wheel);
    const int sectors = lighten(gear, rng, wheel, hub);
    const bool hasHub = UniformInteger(rng, 0, 2) > 0;
    if (hasHub) gear.Add(Cylinder(hub, 4.0), At(Point(0, 0, wheel.halfWidth)));
    gear.Cut(Cylinder(bore, 3.0 * wheel.halfWidth), At({}));
    const bool hasKeyway = UniformInteger(rng, 0, 1) == 0;
    if (hasKeyway) {
        const double halfWidth = Uniform(rng, 1.5, 2.5);
        gear.Cut(Box(Uniform(rng, 1.2, 1.8), halfWidth, 3.0 * wheel.halfWidth), At(Point(bore, 0, 0)));
    }
    // A keyway on x still lets a flat gear be turned over about x.
    gear.SetSymmetries(TurnsOfWheel(hasKeyway ? 1 : sectors, !hasHub));
    return gear;
}

} // namespace tools
