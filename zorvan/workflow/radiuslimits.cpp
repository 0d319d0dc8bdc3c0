// SPDX-License-Identifier: MIT
#include "zorvan/workflow/radiuslimits.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"

#include <cmath>
#include <optional>
#include <string_view>

namespace prereg {

namespace {

/// What stands behind "radius=".
std::string_view valueOf(const std::string& source, std::string_view text)
{
    constexpr std::string_view name = "radius=";
    if (!text.starts_with(name))
        throw Zorvan::CInputError(source + ": \"" + std::string(text) +
                                  "\" does not begin with radius=, the one thing that can be given");
    return text.substr(name.size());
}

double lengthOf(const std::string& source, std::string_view text, double mmPerUnit)
{
    const std::optional<double> number = Zorvan::ParseNumber(text);
    if (!number || !std::isfinite(*number))
        throw Zorvan::CInputError(source + ": \"" + std::string(text) + "\" is not 1 number");
    if (!(*number * mmPerUnit > 0.0)) throw Zorvan::CInputError(source + ": a radius is greater than 0");
    return *number * mmPerUnit;
}

} // namespace

RadiusLimits ReadFixedRadius(const std::string& source, const std::string& text, double dMmPerUnit)
{
    const double radius = lengthOf(source, valueOf(source, text), dMmPerUnit);
    return {radius, radius};
}

RadiusLimits ReadRadiusBounds(const std::string& source, const std::string& text, double dMmPerUnit)
{
    const std::string_view value = valueOf(source, text);
    const std::size_t colon = value.find(':');
    if (colon == std::string_view::npos)
        throw Zorvan::CInputError(source + ": \"" + text + "\" is not two lengths with a colon between, as radius=2:3");
    const RadiusLimits limits{lengthOf(source, value.substr(0, colon), dMmPerUnit),
                              lengthOf(source, value.substr(colon + 1), dMmPerUnit)};
    if (!(limits.dLow < limits.dHigh)) throw Zorvan::CInputError(source + ": the first length must be the smaller one");
    return limits;
}

} // namespace prereg
