// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/raster/pixelcoords.h"

#include <array>
#include <optional>
#include <vector>

namespace Zorvan {

/// A triangle in the plane of pixels, whose centres have whole coordinates.
///
///     const CTriangle2D triangle({0.5, 0.25}, {20.0, 3.5}, {7.0, 11.75});
///     for (const PixelSpan& span : triangle.GetSpans(picture)) fill(span.y, span.xStart, span.xEnd);
///
/// Which side of an edge a point lies on is decided without rounding (unless a product of two coordinates leaves the
/// range of a double), so triangles that share an edge share no pixel and miss none, and the order of the corners does
/// not matter. A point on an edge belongs to one triangle of those around it: the one in which it still lies when moved
/// to the right, and by far less downwards. A triangle without area, or with a corner that is not finite, holds
/// nothing.
class ZORVAN_API CTriangle2D
{
public:
    using Point = PlanePoint;

    CTriangle2D(const Point& a, const Point& b, const Point& c);

    [[nodiscard]] const std::array<Point, 3>& GetCorners() const { return m_corners; }

    /// Positive when a, b and c turn from +x towards +y.
    [[nodiscard]] double GetSignedArea() const;
    [[nodiscard]] double GetArea() const;
    /// The sign of the signed area, exact: 0 when the corners lie on a line or are not finite.
    [[nodiscard]] int GetOrientation() const { return m_orientation; }

    /// The weights of the corners whose mean lies at p; they sum to 1, and are all in [0, 1] within the triangle.
    /// Rounded, unlike `Contains`. NaN for a triangle without area.
    [[nodiscard]] std::array<double, 3> GetBarycentric(const Point& p) const;

    /// Inside, on an edge or at a corner. Exact.
    [[nodiscard]] bool Contains(const Point& p) const;
    /// Inside, or on an edge and this triangle's by the rule above. Exact.
    [[nodiscard]] bool Covers(const Point& p) const;

    /// The pixels of a rectangle whose centres are covered: one span a row at most, by ascending y.
    [[nodiscard]] std::vector<PixelSpan> GetSpans(const PixelRect& clip) const;

private:
    /// An edge has the triangle at its positive side.
    struct Edge
    {
        Point a;
        Point b;

        [[nodiscard]] bool Keeps(const Point& p) const;
        [[nodiscard]] double CrossingAt(double y) const;
    };

    [[nodiscard]] Edge edge(std::size_t i) const;
    [[nodiscard]] std::optional<PixelSpan> spanOf(int y, const PixelRect& clip) const;

    std::array<Point, 3> m_corners;
    int m_orientation;
};

} // namespace Zorvan
