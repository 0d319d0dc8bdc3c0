// SPDX-License-Identifier: MIT
#include "viewpoints.h"

#include "randomness.h"
#include "virtualjaw.h"

#include <algorithm>
#include <cmath>

namespace tools {

namespace {

constexpr double dPi = 3.14159265358979;
constexpr double dDegree = dPi / 180.0;
constexpr double dStretch = 0.13;       // of the arch between neighbouring views, a third of a field of view
constexpr double dLongestStretch = 0.8; // further out, a view would see mostly nothing
constexpr double dStep = 0.004;         // of the arch between frames, some 0.4 mm
constexpr double dFirst = 0.15;         // where a sweep begins
constexpr double dSweep = 0.7;          // of the arch, until it turns back
constexpr double dSway = 0.3;           // to the cheek and to the tongue
constexpr double dSwings = 0.07;        // radians a frame
constexpr double dAlongWall = 0.375;    // of a field of view, between neighbours of a row
constexpr double dAcrossWall = 0.5;     // and between rows
constexpr double dOffRow = 0.05;
constexpr double dGoldenAngle = 2.39996322972865;
constexpr double dSinLowest = 0.4226;     // 25 degrees above the table
constexpr double dOffMiddle = 0.3;        // of the object's radius
constexpr double dOffMiddleOnTable = 0.1; // the table fills the view: no need to look wider

prereg::CTrafo lookingAt(const Zorvan::Vector3& place, const Zorvan::Vector3& towardSensor,
                         const Zorvan::Vector3& right)
{
    const Zorvan::Vector3 z = Zorvan::Normalized(towardSensor);
    const Zorvan::Vector3 y = Zorvan::Normalized(kdtree::Cross(z, right));
    const Zorvan::Vector3 x = kdtree::Cross(y, z);
    return {{x.x, y.x, z.x}, {x.y, y.y, z.y}, {x.z, y.z, z.z}, place};
}

// Odd views lean to the cheek, even ones to the tongue, so that each sees a side that its neighbours miss.
prereg::CTrafo viewOnArch(unsigned count, unsigned seed, unsigned view)
{
    std::mt19937 rng = EngineFor(seed, Views, view);
    const unsigned steps = std::max(1U, count - 1);
    const double stretch = std::min(dLongestStretch, dStretch * (count - 1));
    const CVirtualJaw::Station station = CVirtualJaw::OnArch(0.5 + stretch * (static_cast<double>(view) / steps - 0.5));
    const double lean = (view % 2 == 0 ? -1 : 1) * Uniform(rng, 0.1, 0.25);
    const Zorvan::Vector3 up = Zorvan::Vector3(0, 0, 1) + station.outward * static_cast<float>(lean) +
                               station.along * static_cast<float>(Uniform(rng, -0.15, 0.15));
    const double roll = Uniform(rng, -30, 30) * dDegree;
    const Zorvan::Vector3 right =
        station.along * static_cast<float>(std::cos(roll)) + station.outward * static_cast<float>(std::sin(roll));
    return lookingAt(station.place + Zorvan::Vector3(0, 0, 3), up, right);
}

prereg::CTrafo frameOnArch(unsigned frame)
{
    const double way = std::fmod(frame * dStep, 2.0 * dSweep);
    const CVirtualJaw::Station station = CVirtualJaw::OnArch(dFirst + std::min(way, 2.0 * dSweep - way));
    const auto sway = static_cast<float>(dSway * std::sin(dSwings * frame));
    return lookingAt(station.place + Zorvan::Vector3(0, 0, 3), Zorvan::Vector3(0, 0, 1) + station.outward * sway,
                     station.along);
}

/// Views of a row, so that a wall of all of them is about square.
unsigned viewsOfRow(unsigned count)
{
    const double wanted = std::sqrt(count * dAcrossWall / dAlongWall);
    return std::max(1U, static_cast<unsigned>(std::lround(wanted)));
}

prereg::CTrafo viewOverWall(unsigned count, double field, unsigned seed, unsigned view)
{
    std::mt19937 rng = EngineFor(seed, Views, view);
    const unsigned columns = viewsOfRow(count);
    const unsigned rows = (count + columns - 1) / columns;
    const unsigned row = view / columns;
    const unsigned column = row % 2 == 0 ? view % columns : columns - 1 - view % columns;
    const double x = dAlongWall * (column - 0.5 * (columns - 1.0)) + Uniform(rng, -dOffRow, dOffRow);
    const double y = dAcrossWall * (row - 0.5 * (rows - 1.0)) + Uniform(rng, -dOffRow, dOffRow);
    const DrawnTriple lean(rng, {-0.2, 0.2}, {-0.2, 0.2}, {1.0, 1.0});
    const double roll = Uniform(rng, -30, 30) * dDegree;
    return lookingAt({Zorvan::ToFloat(field * x), Zorvan::ToFloat(field * y), 0.0F},
                     {Zorvan::ToFloat(lean.x), Zorvan::ToFloat(lean.y), 1.0F},
                     {Zorvan::ToFloat(std::cos(roll)), Zorvan::ToFloat(std::sin(roll)), 0.0F});
}

/// A point of the unit sphere by the height and the turn of a spiral; `lowest` is -1 for all of the sphere.
Zorvan::Vector3 onSphere(double share, double turn, double lowest)
{
    const double z = lowest + (1.0 - lowest) * share;
    const double radius = std::sqrt(std::max(0.0, 1.0 - z * z));
    return {Zorvan::ToFloat(radius * std::cos(turn)), Zorvan::ToFloat(radius * std::sin(turn)), Zorvan::ToFloat(z)};
}

prereg::CTrafo randomTurn(std::mt19937& rng, bool isUpright)
{
    const Zorvan::Vector3 axis = isUpright ? Zorvan::Vector3(0, 0, 1) : RandomDirection(rng);
    const double half = Uniform(rng, 0, dPi);
    const double s = std::sin(half);
    return {prereg::Quaternion(std::cos(half), s * axis.x, s * axis.y, s * axis.z), {}};
}

} // namespace

std::vector<prereg::CTrafo> ViewsAround(const ObjectTraits& object, unsigned uiCount, EDirections directions,
                                        unsigned uiSeed)
{
    std::mt19937 rng = EngineFor(uiSeed, Views, 0);
    const prereg::CTrafo pattern = randomTurn(rng, object.isOnTable);
    const double lowest = object.isOnTable ? dSinLowest : -1.0;
    const double farthest = (object.isOnTable ? dOffMiddleOnTable : dOffMiddle) * object.radius;
    std::vector<prereg::CTrafo> views;
    for (unsigned view = 0; view < uiCount; ++view) {
        const bool isEven = directions == EDirections::Fibonacci;
        const double share = isEven ? (view + 0.5) / uiCount : Uniform(rng, 0, 1);
        const double turn = isEven ? view * dGoldenAngle : Uniform(rng, 0, 2.0 * dPi);
        const Zorvan::Vector3 toward = pattern.Rotate(onSphere(share, turn, lowest));
        const float away = Zorvan::ToFloat(Uniform(rng, 0, farthest));
        const Zorvan::Vector3 place = object.middle + RandomDirection(rng) * away;
        views.push_back(lookingAt(place, toward, RandomDirection(rng)));
    }
    return views;
}

std::vector<prereg::CTrafo> PlacesAround(const ObjectTraits& object, const Rings& rings, unsigned uiCount,
                                         unsigned uiSeed)
{
    std::mt19937 rng = EngineFor(uiSeed, Views, 0);
    const double distance = rings.dDistance * object.radius;
    const double first = Uniform(rng, 0, 2.0 * dPi);
    std::vector<prereg::CTrafo> places;
    for (unsigned view = 0; view < uiCount; ++view) {
        const double turn = first + 2.0 * dPi * (view + Uniform(rng, -0.3, 0.3)) / uiCount;
        const double rise = (object.isOnTable ? Uniform(rng, 15, 30) : Uniform(rng, -20, 20)) * dDegree;
        const Zorvan::Vector3 away = onSphere(0.5 * (1.0 + std::sin(rise)), turn, -1.0);
        const Zorvan::Vector3 axis = Zorvan::Vector3(0, 0, 1) + RandomDirection(rng) * 0.1F;
        places.push_back(lookingAt(object.middle + away * Zorvan::ToFloat(distance), axis, RandomDirection(rng)));
    }
    return places;
}

std::vector<prereg::CTrafo> ViewsAlongArch(unsigned uiCount, unsigned uiSeed)
{
    std::vector<prereg::CTrafo> views;
    for (unsigned view = 0; view < uiCount; ++view) views.push_back(viewOnArch(uiCount, uiSeed, view));
    return views;
}

std::vector<prereg::CTrafo> ViewsOverWall(unsigned uiCount, double dField, unsigned uiSeed)
{
    std::vector<prereg::CTrafo> views;
    for (unsigned view = 0; view < uiCount; ++view) views.push_back(viewOverWall(uiCount, dField, uiSeed, view));
    return views;
}

std::vector<prereg::CTrafo> FramesAlongArch(unsigned uiCount)
{
    std::vector<prereg::CTrafo> frames;
    for (unsigned frame = 0; frame < uiCount; ++frame) frames.push_back(frameOnArch(frame));
    return frames;
}

} // namespace tools
