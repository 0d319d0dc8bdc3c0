// SPDX-License-Identifier: MIT
#include "zorvan/raster/ccontourtracer.h"

namespace Zorvan {

namespace {

constexpr float fRootOfTwo = 1.41421356F;
constexpr float fRoundPixel = 3.5449078F; ///< 2 sqrt(pi): the outline of a disc of area 1

constexpr std::array<int, 8> stepX{1, 1, 0, -1, -1, -1, 0, 1};
constexpr std::array<int, 8> stepY{0, -1, -1, -1, 0, 1, 1, 1};
/// A step adds areaConstant + areaSlope * depth pixels: the columns that it opens or closes, and the margin itself.
constexpr std::array<int, 8> areaConstant{0, 0, 1, 2, 1, 0, 0, 0};
constexpr std::array<int, 8> areaSlope{1, 1, 0, -1, -1, -1, 0, 1};

} // namespace

CContourTracer::CContourTracer(const unsigned char* start, std::int64_t stride, unsigned char value)
    : m_start(start), m_offsets{1, 1 - stride, -stride, -1 - stride, -1, stride - 1, stride, stride + 1}, m_value(value)
{
}

Contour CContourTracer::Trace(int x, int y)
{
    Contour contour;
    if (*m_start != m_value) return contour;

    Place place{m_start, x, y};
    const unsigned char* first = nullptr;
    int previous = 7;
    for (int from = 5;; from = (previous + 6) % 8) {
        const int direction = findDirection(place.pByte, from);
        if (direction < 0) break; // a single pixel
        const bool isBackAtStart = place.pByte == m_start && first != nullptr;
        step(place, direction);
        if (isBackAtStart && place.pByte == first) break;
        if (first == nullptr) first = place.pByte;
        contour.chain.emplace_back(place.x, place.y);
        count(direction, previous);
        previous = direction;
    }
    if (contour.chain.empty()) contour.chain.emplace_back(x, y);
    writeMeasures(contour);
    return contour;
}

int CContourTracer::findDirection(const unsigned char* byte, int from) const
{
    for (int tries = 0; tries < 8; ++tries) {
        const int direction = (from + tries) % 8;
        if (byte[m_offsets[static_cast<std::size_t>(direction)]] == m_value) return direction;
    }
    return -1;
}

void CContourTracer::step(Place& place, int direction) const
{
    const auto d = static_cast<std::size_t>(direction);
    place = {place.pByte + m_offsets[d], place.x + stepX[d], place.y + stepY[d]};
}

void CContourTracer::count(int direction, int previous)
{
    const auto d = static_cast<std::size_t>(direction);
    m_area += areaConstant[d] + areaSlope[d] * m_depth;
    m_depth += stepY[d];
    ++m_steps[d];
    const int turn = (direction - previous + 8) % 8;
    if (turn >= 1 && turn <= 3) ++m_leftTurns;
    if (turn >= 5) ++m_rightTurns;
}

void CContourTracer::writeMeasures(Contour& contour) const
{
    contour.iArea = static_cast<int>(m_area);
    const auto diagonal = static_cast<float>(m_steps[1] + m_steps[3] + m_steps[5] + m_steps[7]);
    const auto straight = static_cast<float>(m_steps[0] + m_steps[2] + m_steps[4] + m_steps[6]);
    const float steps = diagonal + straight;
    if (steps == 0.0F) {
        contour.fPerimeter = fRoundPixel;
        contour.histogram.fill(0.125F);
        return;
    }
    contour.fPerimeter = fRootOfTwo * diagonal + straight;
    for (std::size_t d = 0; d < m_steps.size(); ++d) contour.histogram[d] = static_cast<float>(m_steps[d]) / steps;
    contour.fLeftTurns = static_cast<float>(m_leftTurns) / steps;
    contour.fRightTurns = static_cast<float>(m_rightTurns) / steps;
}

} // namespace Zorvan
