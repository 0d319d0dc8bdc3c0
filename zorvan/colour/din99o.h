// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/lab.h"
#include "zorvan/colour/topponentcolour.h"
#include "zorvan/platform/export.h"

#include <cmath>

namespace Zorvan::cs {

/// A colour of DIN99o: L*a*b* bent so that plain distances come close to CIEDE2000. Source: Cui, Luo, Rigg, Roesler,
/// Witt, Color Research and Application 27 (2002).
class ZORVAN_API DIN99o : public TOpponentColour<DIN99o>
{
public:
    class Packed;

    DIN99o() = default;
    DIN99o(double cL, double ca, double cb) : TOpponentColour(cL, ca, cb) {}
    DIN99o(const Lab& lab) : DIN99o(fromLab(lab)) {}
    /// Through `Lab`: the components are taken as linear light.
    DIN99o(const RGB& rgb) : DIN99o(Lab(rgb)) {}

    [[nodiscard]] Lab ToLab() const;
    [[nodiscard]] RGB ToRGB() const { return ToLab().ToRGB(); }
    /// As `Lab::Pack`.
    [[nodiscard]] Packed Pack() const;

    [[nodiscard]] double LuminanceDistanceSq(const DIN99o& o) const { return (o.L - L) * (o.L - L); }
    [[nodiscard]] double LuminanceDistance(const DIN99o& o) const { return std::fabs(o.L - L); }
    [[nodiscard]] double Chroma() const { return std::sqrt(a * a + b * b); }
    /// How much more chroma `o` has.
    [[nodiscard]] double DeltaC(const DIN99o& o) const { return o.Chroma() - Chroma(); }
    /// Degrees from 0 to 360; 0 for a grey.
    [[nodiscard]] double Hue() const;

    /// A curve over the range of a channel: 0 .. 100, and -128 .. 128 for a and b.
    /// @throws std::invalid_argument "invalid channel index"
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int degree);
    [[nodiscard]] static CColorTransferCurve<DIN99o> CreateColorTransferCurve(int degree);

private:
    static DIN99o fromLab(const Lab& lab);
};

class DIN99o::Packed : public TPackedOpponentColour<DIN99o>
{
public:
    using TPackedOpponentColour::TPackedOpponentColour;
    Packed(const TPackedOpponentColour& bytes) : TPackedOpponentColour(bytes) {}
    /// Rounds as `DIN99o::Pack`.
    [[nodiscard]] static Packed fromDIN99o(double L, double a, double b) { return rounded(L, a, b); }
};

inline DIN99o::Packed DIN99o::Pack() const { return Packed::fromDIN99o(L, a, b); }

} // namespace Zorvan::cs
