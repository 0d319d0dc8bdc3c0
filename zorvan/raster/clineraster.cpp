// SPDX-License-Identifier: MIT
#include "zorvan/raster/clineraster.h"

#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <cstdlib>

namespace Zorvan {

namespace {

const Logging::CLogger logger(L"QAV2.CLineRaster");

/// Two lengths and a factor of two multiply to 65 bits.
__extension__ using Wide = __int128;

std::int64_t differenceOf(int from, int to) { return std::int64_t{to} - from; }

} // namespace

CLineRaster::CLineRaster(const PixelCoords& from, const PixelCoords& to) : m_from(from)
{
    const std::int64_t dx = differenceOf(from.x, to.x);
    const std::int64_t dy = differenceOf(from.y, to.y);
    m_isSteep = std::abs(dy) > std::abs(dx);
    const std::int64_t along = m_isSteep ? dy : dx;
    const std::int64_t across = m_isSteep ? dx : dy;
    m_signAlong = along < 0 ? -1 : 1;
    m_signAcross = across < 0 ? -1 : 1;
    m_length = std::abs(along);
    m_rise = std::abs(across);
    m_size = static_cast<std::uint64_t>(m_length) + 1;
}

CLineRaster::CLineRaster(const PixelCoords& from, const PixelCoords& to, const PixelRect& rect) : CLineRaster(from, to)
{
    if (rect.IsEmpty()) {
        logger.Debug(L"no pixel in the rectangle (%i, %i) to (%i, %i)", rect.xmin, rect.ymin, rect.xmax, rect.ymax);
        m_size = 0;
        return;
    }
    clip(rect);
}

/// In steps from the start on, so that all lines are the same.
void CLineRaster::clip(const PixelRect& rect)
{
    const auto stepsTo = [](int from, int lo, int hi, int sign) {
        return std::minmax({sign * differenceOf(from, lo), sign * differenceOf(from, hi)});
    };
    const auto x = stepsTo(m_from.x, rect.xmin, rect.xmax, m_isSteep ? m_signAcross : m_signAlong);
    const auto y = stepsTo(m_from.y, rect.ymin, rect.ymax, m_isSteep ? m_signAlong : m_signAcross);
    const auto& [alongFirst, alongLast] = m_isSteep ? y : x;
    const auto& [acrossFirst, acrossLast] = m_isSteep ? x : y;

    std::int64_t first = std::max<std::int64_t>(alongFirst, 0);
    std::int64_t last = std::min(alongLast, m_length);
    if (acrossFirst > m_rise || acrossLast < 0) last = -1;
    if (acrossFirst > 0 && last >= 0) first = std::max(first, stepAt(acrossFirst));
    if (acrossLast < m_rise && last >= 0) last = std::min(last, stepAt(acrossLast + 1) - 1);
    m_first = first;
    m_size = first <= last ? static_cast<std::uint64_t>(last - first) + 1 : 0;
}

std::int64_t CLineRaster::acrossAt(std::int64_t step) const
{
    if (m_length == 0) return 0;
    return static_cast<std::int64_t>((Wide{2} * m_rise * step + m_length) / (Wide{2} * m_length));
}

std::int64_t CLineRaster::stepAt(std::int64_t across) const
{
    const Wide climb = Wide{2} * m_rise;
    return static_cast<std::int64_t>((Wide{2 * across - 1} * m_length + climb - 1) / climb);
}

CLineRaster::Iterator CLineRaster::begin() const { return Iterator(*this); }

CLineRaster::Iterator::Iterator(const CLineRaster& line)
    : m_left(line.m_size), m_climb(2 * line.m_rise), m_fall(2 * line.m_length)
{
    if (m_left == 0) return;
    const auto turned = [&line](int along, int across) {
        return line.m_isSteep ? PixelCoords{across, along} : PixelCoords{along, across};
    };
    m_along = turned(line.m_signAlong, 0);
    m_across = turned(0, line.m_signAcross);

    const std::int64_t across = line.acrossAt(line.m_first);
    const auto [alongStart, acrossStart] = turned(line.m_from.x, line.m_from.y);
    m_place = turned(static_cast<int>(alongStart + line.m_signAlong * line.m_first),
                     static_cast<int>(acrossStart + line.m_signAcross * across));
    m_error = static_cast<std::int64_t>(Wide{m_climb} * (line.m_first + 1) - line.m_length - Wide{m_fall} * across);
}

} // namespace Zorvan
