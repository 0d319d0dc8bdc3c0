// SPDX-License-Identifier: MIT
#pragma once

namespace Zorvan {

struct PixelCoords
{
    int x;
    int y;

    [[nodiscard]] bool operator==(const PixelCoords&) const = default;
};

/// Of the plane in which the centre of a pixel has its coordinates.
struct PlanePoint
{
    double x;
    double y;
};

/// Pixels of one row.
struct PixelSpan
{
    int y;
    int xStart;
    int xEnd; ///< inclusive

    [[nodiscard]] bool operator==(const PixelSpan&) const = default;
};

/// Pixels from one corner to the other, both inclusive; none when a minimum is above its maximum.
struct PixelRect
{
    int xmin;
    int ymin;
    int xmax;
    int ymax;

    [[nodiscard]] bool operator==(const PixelRect&) const = default;

    [[nodiscard]] bool IsEmpty() const { return xmin > xmax || ymin > ymax; }
    [[nodiscard]] bool Contains(const PixelCoords& p) const
    {
        return p.x >= xmin && p.x <= xmax && p.y >= ymin && p.y <= ymax;
    }
};

} // namespace Zorvan
