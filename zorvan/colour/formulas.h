// SPDX-License-Identifier: MIT
#pragma once

// The steps of the conversions, shared by the colours one by one and by the rows of pixels, so that both give the same
// bits. Order and rounding of each sum are part of the result.

#include "zorvan/colour/xyz.h"

#include <bit>
#include <cmath>
#include <cstdint>

namespace Zorvan::cs::detail {

struct Triple
{
    double c0, c1, c2;
};

/// Linear light to XYZ with white at 1, and back (ITU-R BT.709 primaries, D65).
[[nodiscard]] inline Triple XYZFromLinear(double r, double g, double b)
{
    return {0.412453 * r + 0.35758 * g + 0.180423 * b, 0.212671 * r + 0.71516 * g + 0.072169 * b,
            0.019334 * r + 0.119193 * g + 0.950227 * b};
}
[[nodiscard]] inline Triple LinearFromXYZ(double x, double y, double z)
{
    return {3.240479 * x - 1.53715 * y - 0.498535 * z, -0.969256 * x + 1.875992 * y + 0.041556 * z,
            0.055648 * x - 0.204043 * y + 1.057311 * z};
}

/// A component of 0 .. 255 to 0 .. 1.
[[nodiscard]] inline double ToUnit(double c) { return Clamp(c, 0.0, 255.0) * 0.00392156862745098; }
/// And back.
[[nodiscard]] inline double FromUnit(double c) { return Clamp(c * 255.0, 0.0, 255.0); }

/// A component of sRGB in 0 .. 1 to linear light in 0 .. 100.
[[nodiscard]] inline double LinearFromSRGB(double c)
{
    return (c > 0.04045 ? std::exp(2.4 * std::log((c + 0.055) / 1.055)) : c / 12.92) * 100.0;
}
/// Linear light in 0 .. 1 to a component of sRGB in 0 .. 1.
[[nodiscard]] inline double SRGBFromLinear(double c)
{
    return c > 0.0031308 ? 1.055 * std::exp(std::log(c) * 0.4166666666666667) - 0.055 : 12.92 * c;
}

/// The cube root of a positive number to some 13 digits: a third of the exponent as a start, then two of Halley's
/// steps.
[[nodiscard]] inline double FastCubeRoot(double t)
{
    const std::uint64_t upper = std::bit_cast<std::uint64_t>(t) >> 32;
    const std::uint64_t third = (upper * 0xAAAAAAAB) >> 33; // exact for 32 bits, and there are vectors for it
    double y = std::bit_cast<double>((third + 715094163) << 32);
    for (int step = 0; step < 2; ++step) {
        const double cube = y * y * y;
        y = y * (cube + 2.0 * t) / (2.0 * cube + t);
    }
    return y;
}

/// The response f(t) of L*a*b*. Both branches are computed, so that loops over it become vector code.
[[nodiscard]] inline double LabResponse(double t)
{
    const double root = FastCubeRoot(t);
    const double line = (903.2962962962963 * t + 16.0) / 116.0;
    return t > 0.008856451679035631 ? root : line;
}
/// And back; the slope 7.787 is not quite that of the way there, so that colours near black move by some 1e-5.
[[nodiscard]] inline double LabStimulus(double f)
{
    const double cube = f * f * f;
    return cube > 0.008856451679035631 ? cube : (f - 0.13793103448275862) / 7.787;
}

/// L, a, b of the responses to x, y and z.
[[nodiscard]] inline Triple LabFromResponses(double fx, double fy, double fz)
{
    const double l = 116.0 * fy - 16.0;
    return {l < 0.0 ? 0.0 : l, 500.0 * (fx - fy), 200.0 * (fy - fz)};
}
[[nodiscard]] inline Triple XYZFromLab(double l, double a, double b)
{
    const double fy = (l + 16.0) / 116.0;
    const double fx = a / 500.0 + fy;
    const double fz = fy - b / 200.0;
    const double y = l > 8.0 ? fy * fy * fy : l / 903.2962962962963;
    return {Clamp(95.047 * LabStimulus(fx), 0.0, 100.0), Clamp(100.0 * y, 0.0, 100.0),
            Clamp(108.883 * LabStimulus(fz), 0.0, 100.0)};
}

} // namespace Zorvan::cs::detail
