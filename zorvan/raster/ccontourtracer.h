// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/raster/chainedpixel.h"

#include <array>
#include <cstdint>
#include <vector>

namespace Zorvan {

/// The outer margin of a region, and what was measured on the way around it.
struct Contour
{
    std::vector<ChainedPixel> chain;  ///< in the order of the steps; the start pixel is the last
    int iArea = 0;                    ///< pixels on and within the margin
    float fPerimeter = 0.0F;          ///< length of the chain from centre to centre; 2 sqrt(pi) for a single pixel
    std::array<float, 8> histogram{}; ///< shares of the eight directions
    float fLeftTurns = 0.0F;          ///< a step
    float fRightTurns = 0.0F;         ///< a step
};

/// Follows the margin of a region in a byte mask, with the region on its left side: down on its left, up on its right.
/// Pixels that touch at a corner hang together. Directions count from (+1, 0) by an eighth of a turn towards (0, -1); y
/// grows downwards.
///
/// Source: Moore-neighbour tracing with the stopping rule of Jacob Eliosoff; area by the trapezium rule along the
/// steps.
class ZORVAN_API CContourTracer
{
public:
    /// @param start   the first pixel of its region, row by row, in a mask around which there is a border of other
    /// values
    /// @param stride  bytes from one row to the next
    /// @param value   what the bytes of the region hold
    CContourTracer(const unsigned char* start, std::int64_t stride, unsigned char value);

    /// @param x, y  the coordinates of the start pixel
    /// @return      an empty contour when the start pixel has another value
    [[nodiscard]] Contour Trace(int x, int y);

private:
    struct Place
    {
        const unsigned char* pByte;
        int x;
        int y;
    };

    /// The first direction, from this one on, in which the region goes on; below 0 when there is none.
    [[nodiscard]] int findDirection(const unsigned char* byte, int from) const;
    void step(Place& place, int direction) const;
    void count(int direction, int previous);
    void writeMeasures(Contour& contour) const;

    const unsigned char* m_start;
    std::array<std::int64_t, 8> m_offsets; ///< bytes to the neighbour in each direction
    unsigned char m_value;

    std::int64_t m_area = 1;
    std::int64_t m_depth = 0; ///< rows below the start
    std::array<std::int64_t, 8> m_steps{};
    std::int64_t m_leftTurns = 0;
    std::int64_t m_rightTurns = 0;
};

} // namespace Zorvan
