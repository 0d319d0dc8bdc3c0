// SPDX-License-Identifier: MIT
#include "zorvan/scans/pointcolumns.h"

#include "zorvan/scans/textlines.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace Zorvan {

namespace {

std::uint8_t toByte(double value)
{
    return static_cast<std::uint8_t>(value > 0.0 ? std::min(value + 0.5, 255.0) : 0.0); // false for NaN
}

} // namespace

void CPointColumns::Take(Scan& scan, std::span<const double> values, const CTextLines& lines)
{
    if (!m_count) m_count = values.size();
    if (values.size() != *m_count)
        lines.Fail(std::to_string(values.size() + 3) + " numbers, and the first point has " +
                   std::to_string(*m_count + 3));
    if (*m_count == 1 || *m_count >= 4) {
        scan.intensities.push_back(ToFloat(values.front()));
        values = values.subspan(1);
    }
    if (values.size() >= 3) scan.colours.push_back({toByte(values[0]), toByte(values[1]), toByte(values[2])});
}

} // namespace Zorvan
