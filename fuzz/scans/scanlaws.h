// SPDX-License-Identifier: MIT
#pragma once

#include "fuzz/law.h"

#include "zorvan/scans/scan.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>

/// What every reader of scans promises. @param bytes  of the file: a point takes three of them at least
inline void CheckScan(const Zorvan::Scan& scan, std::size_t bytes)
{
    Law(scan.points.size() <= bytes / 3, "points are no more than the file can hold");
    Law(scan.normals.empty() || scan.normals.size() == scan.points.size(), "all points have a normal, or none");
    for (const Zorvan::Face& face : scan.faces)
        Law(std::ranges::all_of(face, [&](std::uint32_t i) { return i < scan.points.size(); }),
            "faces refer to points");
}

/// Bit for bit, but any NaN for any other.
inline bool SameVectors(const prereg::Vectors& a, const prereg::Vectors& b)
{
    const auto same = [](float x, float y) {
        return std::bit_cast<std::uint32_t>(x) == std::bit_cast<std::uint32_t>(y) || (std::isnan(x) && std::isnan(y));
    };
    return std::ranges::equal(
        a, b, [&](const auto& p, const auto& q) { return same(p.x, q.x) && same(p.y, q.y) && same(p.z, q.z); });
}
