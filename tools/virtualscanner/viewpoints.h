// SPDX-License-Identifier: MIT
#pragma once

#include "sensoreffects.h"
#include "virtualobject.h"

#include <vector>

namespace tools {

/// From where an object is looked at.
enum class EDirections
{
    Fibonacci, ///< evenly spread, the whole pattern turned by the seed
    Random
};

/// Sensor to object coordinates of `count` views from all around, from above only for what lies on a table: turned
/// about the ray at random, the origin near the middle of the object and off it by up to 0.3 of its radius (0.1 on a
/// table).
[[nodiscard]] std::vector<prereg::CTrafo> ViewsAround(const ObjectTraits& object, unsigned uiCount,
                                                      EDirections directions, unsigned uiSeed);

/// Sensor to object coordinates of a spinning sensor on a walk around the object: z along the axis of the spin, nearly
/// the object's own z, the origin in the sensor.
[[nodiscard]] std::vector<prereg::CTrafo> PlacesAround(const ObjectTraits& object, const Rings& rings, unsigned uiCount,
                                                       unsigned uiSeed);

/// Sensor to object coordinates of views along the arch of a jaw; neighbours share more than half of what they see.
[[nodiscard]] std::vector<prereg::CTrafo> ViewsAlongArch(unsigned uiCount, unsigned uiSeed);

/// Sensor to object coordinates of views over a wall about the origin, row by row, to and fro: neighbours of a row
/// share well over half of what they see, those of two rows nearly half. How many others a view shares surface with
/// does not grow with their number.
/// @param dField  width and height of a view (mm)
[[nodiscard]] std::vector<prereg::CTrafo> ViewsOverWall(unsigned uiCount, double dField, unsigned uiSeed);

/// Sensor to object coordinates of the frames of a hand that sweeps along the arch of a jaw and back, swaying: some
/// 0.4 mm apart, 8 mm a second at 20 frames a second.
[[nodiscard]] std::vector<prereg::CTrafo> FramesAlongArch(unsigned uiCount);

} // namespace tools
