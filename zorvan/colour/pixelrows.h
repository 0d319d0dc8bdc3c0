// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/lab.h"
#include "zorvan/colour/rgb.h"
#include "zorvan/colour/xyz.h"
#include "zorvan/platform/export.h"

#include <span>

/// Many pixels at once. The results have the bits of the colours one by one, for finite colours of any size.
namespace Zorvan::cs {

/// How the bytes of a pixel stand for light.
enum class EPixelLight
{
    Linear, ///< in proportion, as `XYZ(RGB)` and `XYZ::ToRGB` take them
    SRGB    ///< by the curve of sRGB, as `XYZ::FromSRGB` and `XYZ::ToSRGB` do
};

/// @throws std::invalid_argument "rows of different lengths"
ZORVAN_API void ToXYZ(std::span<const RGB::Packed> pixels, EPixelLight light, std::span<XYZ> colours);
ZORVAN_API void ToLab(std::span<const RGB::Packed> pixels, EPixelLight light, std::span<Lab> colours);
/// Rounded as `RGB::Pack`.
ZORVAN_API void ToRGB(std::span<const Lab> colours, EPixelLight light, std::span<RGB::Packed> pixels);

} // namespace Zorvan::cs
