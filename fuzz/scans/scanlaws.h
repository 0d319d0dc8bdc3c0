// SPDX-License-Identifier: MIT
#pragma once

#include "fuzz/law.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/scan.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

/// What every reader of scans promises. @param bytes  of the file: a point takes three of them at least
inline void CheckScan(const Zorvan::Scan& scan, std::size_t bytes)
{
    const std::size_t count = scan.points.size();
    Law(count <= bytes / 3, "points are no more than the file can hold");
    Law(scan.normals.empty() || scan.normals.size() == count, "all points have a normal, or none");
    Law(scan.colours.empty() || scan.colours.size() == count, "all points have a colour, or none");
    Law(scan.intensities.empty() || scan.intensities.size() == count, "all points have an intensity, or none");
    Law(std::ranges::all_of(scan.shift, [](double c) { return std::isfinite(c); }), "the shift is finite");
    for (const auto& frame : {scan.sensor, scan.pose}) {
        if (!frame) continue;
        double length = 0.0;
        for (const double q : frame->rotation) length += q * q;
        Law(std::abs(length - 1.0) < 1e-6, "a frame is turned by a unit quaternion");
    }
    for (const Zorvan::Face& face : scan.faces)
        Law(std::ranges::all_of(face, [&](std::uint32_t i) { return i < count; }), "faces refer to points");
}

/// The same float, or both NaN.
inline bool SameNumber(float x, float y)
{
    return std::bit_cast<std::uint32_t>(x) == std::bit_cast<std::uint32_t>(y) || (std::isnan(x) && std::isnan(y));
}

/// Bit for bit, but any NaN for any other.
inline bool SameVectors(const prereg::Vectors& a, const prereg::Vectors& b)
{
    return std::ranges::equal(a, b, [&](const auto& p, const auto& q) {
        return SameNumber(p.x, q.x) && SameNumber(p.y, q.y) && SameNumber(p.z, q.z);
    });
}

/// Where the points stand, within what single precision leaves of numbers so large.
inline bool SamePlaces(const Zorvan::Scan& a, const Zorvan::Scan& b)
{
    if (a.points.size() != b.points.size()) return false;
    for (std::size_t i = 0; i < a.points.size(); ++i) {
        for (unsigned k = 0; k < 3; ++k) {
            const double x = static_cast<double>(a.points[i][k]) + a.shift[k];
            const double y = static_cast<double>(b.points[i][k]) + b.shift[k];
            if (x == y || (std::isnan(x) && std::isnan(y))) continue;
            const double size = std::abs(static_cast<double>(a.points[i][k])) + std::abs(a.shift[k]);
            if (!(std::abs(x - y) <= 1e-6 * size + 1e-37)) return false;
        }
    }
    return true;
}

/// The numbers of a point as text, nine digits for a float and all for where it stands.
inline void AppendPlace(std::string& text, const Zorvan::Scan& scan, std::size_t i)
{
    for (unsigned k = 0; k < 3; ++k)
        text += Zorvan::ToText(static_cast<double>(scan.points[i][k]) + scan.shift[k], 17) + " ";
}
inline void AppendAttributes(std::string& text, const Zorvan::Scan& scan, std::size_t i)
{
    if (!scan.intensities.empty()) text += Zorvan::ToText(static_cast<double>(scan.intensities[i]), 9) + " ";
    if (scan.colours.empty()) return;
    for (const std::uint8_t part : scan.colours[i]) text += std::to_string(part) + " ";
}

/// What the reader makes of the bytes of a file of this name; nothing where it refuses them, naming the file.
template <typename Read>
auto ReadOrRefuse(Read read, const std::uint8_t* data, std::size_t size, const std::string& name)
    -> std::optional<decltype(read(std::string_view(), name))>
{
    try {
        return read({reinterpret_cast<const char*>(data), size}, name);
    } catch (const Zorvan::CInputError& error) {
        Law(std::string_view(error.what()).starts_with(name + ": "), "an error names the file");
        return std::nullopt;
    }
}
