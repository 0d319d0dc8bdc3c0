// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/scansampling.h"

#include <cmath>
#include <cstddef>
#include <optional>
#include <span>

namespace prereg {

/// The plane that holds most of a surface: a table that a part stands on, or the base of a plate. It agrees with itself
/// wherever it is put, so what it matches says nothing of where the rest belongs.
struct SupportPlane
{
    kdtree::Vector<3> normal; ///< unit length, the side that was seen
    float offset = 0.0F;      ///< normal . p of its points, mm
    float reach = 0.0F;       ///< what lies no further off, and looks the same way, belongs to it, mm

    [[nodiscard]] bool Holds(const kdtree::Vector<3>& point, const kdtree::Vector<3>& direction) const
    {
        constexpr float fAlong = 0.87F; // of 30 degrees: fitted normals err
        return std::abs(kdtree::Dot(normal, point) - offset) <= reach && kdtree::Dot(normal, direction) > fAlong;
    }
};

/// So many samples off the plane are taken for each one on it, which holds height and tilt.
constexpr std::size_t uiOffForEachOn = 3;

/// @param points    evenly spread over the surface
/// @param normals   as many, unit length
/// @param sampling  of the scan: says how near to the plane its points lie
/// @param dLeastShare  of the points, at least a half
/// @return nothing where no plane holds so many of the points
[[nodiscard]] ZORVAN_API std::optional<SupportPlane> FindSupportPlane(std::span<const kdtree::Vector<3>> points,
                                                                      std::span<const kdtree::Vector<3>> normals,
                                                                      const ScanSampling& sampling, double dLeastShare);

} // namespace prereg
