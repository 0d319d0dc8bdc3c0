// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/topponentcolour.h"
#include "zorvan/colour/xyz.h"
#include "zorvan/platform/export.h"

namespace Zorvan::cs {

/// A colour of CIE L*a*b* (1976) under D65: L from 0 to 100, a and b from -128 to 127. An RGB colour is taken as linear
/// light; go through `XYZ::FromSRGB` for the pixels of a picture.
class ZORVAN_API Lab : public TOpponentColour<Lab>
{
public:
    class Packed;

    Lab() = default;
    Lab(double cL, double ca, double cb) : TOpponentColour(cL, ca, cb) {}
    explicit Lab(const double* c) : Lab(c[0], c[1], c[2]) {}
    explicit Lab(const float* c) : Lab(c[0], c[1], c[2]) {}
    explicit Lab(const Packed& bytes);
    Lab(const RGB& rgb) : Lab(XYZ(rgb)) {}
    /// The cube roots are a fast form, good to some 13 digits.
    Lab(const XYZ& xyz);

    /// All components lie within the limits of `Clamp`.
    [[nodiscard]] explicit operator bool() const;

    /// In place, L to 0 .. 100, a and b to -128 .. 127.
    Lab& Clamp();

    /// Held in 0 .. 100, which takes some blue from white and the colours near it: their z is up to 108.9. Near black
    /// this is no exact inverse of the way from XYZ: the slopes differ in the sixth digit.
    [[nodiscard]] XYZ ToXYZ() const;
    /// As linear light.
    [[nodiscard]] RGB ToRGB() const { return ToXYZ().ToRGB(); }
    /// Rounded as bytes and held within the limits of `Clamp`; NaN is the lower limit.
    [[nodiscard]] Packed Pack() const;

    /// `DistanceSq` with a weight a component, all in single precision.
    [[nodiscard]] float DistanceSqWeighted(const Lab& o, float wL, float wa, float wb) const;

    /// The square of the difference CIEDE2000, with kL = kC = kH = 1; this colour is the first of the pair. Where one
    /// of the two is grey, the mean hue is 0 instead of the sum of both: that only moves weights that are multiplied by
    /// 0. Source: Sharma, Wu, Dalal, Color Research and Application 30 (2005).
    [[nodiscard]] double DistanceSq_CIEDE2000(const Lab& o) const;
    /// The plain `Distance`, not the root of the above; callers have tuned their limits to it.
    [[nodiscard]] double Distance_CIEDE2000(const Lab& o) const { return Distance(o); }

    /// A curve over the range of a channel: 0 .. 100, and -128 .. 128 for a and b.
    /// @throws std::invalid_argument "invalid channel index"
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int degree);
    [[nodiscard]] static CColorTransferCurve<Lab> CreateColorTransferCurve(int degree);
};

class Lab::Packed : public TPackedOpponentColour<Lab>
{
public:
    using TPackedOpponentColour::TPackedOpponentColour;
    Packed(const TPackedOpponentColour& bytes) : TPackedOpponentColour(bytes) {}
    /// Rounds as `Lab::Pack`.
    [[nodiscard]] static Packed fromLab(double L, double a, double b) { return rounded(L, a, b); }
};

inline Lab::Lab(const Packed& bytes) : Lab(bytes.L, bytes.a, bytes.b) {}

inline Lab::Packed Lab::Pack() const { return Packed::fromLab(L, a, b); }

} // namespace Zorvan::cs
