// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zorvan {

/// Three indices of points, counter-clockwise seen from outside.
using Face = std::array<std::uint32_t, 3>;

/// Red, green and blue.
using Rgb = std::array<std::uint8_t, 3>;

/// x, y, z where single precision does not reach: coordinates of a map, poses as files hold them.
using Position = std::array<double, 3>;

/// A frame in another one: p' = R p + position, R that of the unit quaternion w, x, y, z.
struct FramePose
{
    Position position{};
    std::array<double, 4> rotation{1.0, 0.0, 0.0, 0.0};
};

/// What a scan file holds. `normals`, `colours` and `intensities` are each empty or as long as `points`; every index of
/// `faces` is inside `points`. Coordinates are as read: any of them may be infinite or NaN, and a normal may have any
/// length.
///
/// A point p stands at p + shift in the frame of the scan, so that a scan at coordinates of a map keeps its digits
/// (see farcoordinates.h); everything here is about the shift but `pose`.
struct Scan
{
    prereg::Vectors points;
    prereg::Vectors normals = {};
    std::vector<Face> faces = {};
    std::vector<Rgb> colours = {};
    std::vector<float> intensities = {};  ///< in the range that the file has
    Position shift = {};                  ///< was taken off all coordinates
    std::optional<FramePose> sensor = {}; ///< its frame in that of the points; empty when the file does not state it
    std::optional<FramePose> pose =
        {};                 ///< frame of the scan in the one that all scans of the file share; none: the same
    std::string name = {};  ///< empty when the file gives none
    std::size_t number = 1; ///< of the scan in its file, counted from 1; those without points count too
};

} // namespace Zorvan
