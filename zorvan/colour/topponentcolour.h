// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/tcolour.h"

#include <cmath>
#include <cstdint>

namespace Zorvan::cs {

/// Three signed bytes of a colour with lightness and two opponent axes, not initialised.
template <typename T>
class TPackedOpponentColour
{
public:
    std::int8_t L;
    std::int8_t a;
    std::int8_t b;

    TPackedOpponentColour() = default;
    TPackedOpponentColour(std::int8_t cL, std::int8_t ca, std::int8_t cb) : L(cL), a(ca), b(cb) {}

    [[nodiscard]] static TPackedOpponentColour min() { return {0, -128, -128}; }
    [[nodiscard]] static TPackedOpponentColour max() { return {100, 127, 127}; }

    /// L is not negative.
    [[nodiscard]] explicit operator bool() const { return L >= 0; }
    void Invalidate() { *this = {-128, 0, 0}; }

    [[nodiscard]] T Unpack() const { return T(L, a, b); }
    operator T() const { return Unpack(); }

    [[nodiscard]] std::int8_t& operator[](int i) { return i == 0 ? L : i == 1 ? a : b; }
    [[nodiscard]] std::int8_t operator[](int i) const { return i == 0 ? L : i == 1 ? a : b; }
    [[nodiscard]] bool operator==(const TPackedOpponentColour&) const = default;

protected:
    /// Rounded, ties to even, and held between `min` and `max`; NaN is the lower limit.
    [[nodiscard]] static TPackedOpponentColour rounded(double L, double a, double b)
    {
        return {detail::ToByte<std::int8_t>(L, 0.0, 100.0), detail::ToByte<std::int8_t>(a),
                detail::ToByte<std::int8_t>(b)};
    }
};

/// What `Lab` and `DIN99o` share: a lightness L and the axes a (green to red) and b (blue to yellow), in which
/// distances are differences as an eye sees them.
template <typename T>
class TOpponentColour : public TColour<T>
{
public:
    double L = detail::dNaN;
    double a = detail::dNaN;
    double b = detail::dNaN;

    TOpponentColour() = default;
    TOpponentColour(double cL, double ca, double cb) : L(cL), a(ca), b(cb) {}

    /// These are the limits of `RGB`, and callers rely on it; `Clamp` has those of the colour.
    [[nodiscard]] static T min() { return {0.0, 0.0, 0.0}; }
    [[nodiscard]] static T max() { return {255.0, 255.0, 255.0}; }

    [[nodiscard]] double& operator[](int i) { return i == 0 ? L : i == 1 ? a : b; }
    [[nodiscard]] double operator[](int i) const { return i == 0 ? L : i == 1 ? a : b; }

    [[nodiscard]] double DistanceSq(const T& o) const
    {
        return (o.L - L) * (o.L - L) + (o.a - a) * (o.a - a) + (o.b - b) * (o.b - b);
    }
    [[nodiscard]] double Distance(const T& o) const { return std::sqrt(DistanceSq(o)); }
    /// Without the lightness.
    [[nodiscard]] double ChromaticDistanceSq(const T& o) const { return (o.a - a) * (o.a - a) + (o.b - b) * (o.b - b); }
    [[nodiscard]] double ChromaticDistance(const T& o) const { return std::sqrt(ChromaticDistanceSq(o)); }

    /// This colour at t = 0, `o` at t = 1.
    [[nodiscard]] T Mix(const T& o, double t) const { return Mix(o, t, t); }
    /// Lightness and the two axes each with a share of their own.
    [[nodiscard]] T Mix(const T& o, double tL, double tab) const
    {
        return {L + (o.L - L) * tL, a + (o.a - a) * tab, b + (o.b - b) * tab};
    }
};

} // namespace Zorvan::cs
