// SPDX-License-Identifier: MIT
#pragma once

#include "tools/pictures/picture.h"
#include "zorvan/colour/rgbtransfercurveparser.h"

#include <array>
#include <filesystem>
#include <string>

namespace tools {

/// The curves of a file, those that it leaves out as they are.
struct PictureCurves
{
    std::array<Zorvan::CChannelTransferCurve, 3> rgb;
    Zorvan::CChannelTransferCurve value;
    Zorvan::CChannelTransferCurve alpha;
};

/// @throws CInputError with the line
[[nodiscard]] PictureCurves ReadCurves(const std::filesystem::path& file);

/// Red, green and blue go through their own curve and then through that of the value.
void Apply(const PictureCurves& curves, Picture& picture);

/// A line for each curve, with what it makes of five values.
[[nodiscard]] std::string ToText(const PictureCurves& curves);

} // namespace tools
