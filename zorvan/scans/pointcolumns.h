// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <optional>
#include <span>

namespace Zorvan {

class CTextLines;

/// What stands behind x y z in the lines of PTX and PTS: nothing, an intensity, a colour, or both in this order. The
/// first line decides for all.
class ZORVAN_SCANS_API CPointColumns
{
public:
    /// @throws CInputError when the line has another number of values than the first
    void Take(Scan& scan, std::span<const double> values, const CTextLines& lines);

private:
    std::optional<std::size_t> m_count;
};

} // namespace Zorvan
