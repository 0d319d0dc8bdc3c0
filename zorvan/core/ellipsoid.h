// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <string>

namespace prereg {

class CTrafo;

/// The covariance ellipsoid of a cloud, sized to hold 95 % of a Gaussian one. Held as its centre and three **tip
/// points** (centre + half-axis, shortest first), so that a pose moves it point by point. A plain value; all zero by
/// default.
struct ZORVAN_API Ellipsoid
{
    kdtree::Vector<3> center;
    std::array<kdtree::Vector<3>, 3> tips;

    Ellipsoid() = default;
    /// Of n points, in single precision up to the covariance. All zero for null or n = 0. For n = 1 the tips are not
    /// finite, only the centre is; when a point is not finite, neither is the centre. Points so far out that squares
    /// overflow (from about 1.8e19 on) give tips that are not finite either.
    Ellipsoid(const kdtree::Vector<3>* points, std::size_t n);
    /// Of a covariance in lower-triangular form (c00, c10, c11, c20, c21, c22); no half-axis gets longer than
    /// `maxHalfAxis`.
    Ellipsoid(const kdtree::Vector<3>& center, const std::array<double, 6>& covariance, double maxHalfAxis);

    /// i < 0: the centre; even i: tip i/2; odd i: the tip opposite to it. Six tips, i = 0 .. 5.
    /// @throws std::out_of_range for i > 5
    [[nodiscard]] kdtree::Vector<3> operator[](int i) const;
    /// Half-axes f times as long.
    [[nodiscard]] Ellipsoid Scale(double f) const;
    /// The largest squared distance between corresponding tips; the centres do not count on their own.
    [[nodiscard]] float DistanceSq(const Ellipsoid& o) const;
    /// Moved by a pose.
    [[nodiscard]] Ellipsoid Transform(const CTrafo& trafo) const;
    /// Writes dotted lines from the centre to the six tips, a dot a line: x y z nx ny nz r g b.
    /// @throws std::invalid_argument "empty file name"; std::ios_base::failure when writing fails
    void SaveXYZNC(const std::string& file) const;
};

} // namespace prereg
