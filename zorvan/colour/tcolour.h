// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cmath>
#include <limits>

namespace Zorvan {

class CChannelTransferCurve;
template <typename T>
class CColorTransferCurve;

} // namespace Zorvan

namespace Zorvan::cs {

/// What all colour classes share: three components of double, and arithmetic component by component. Nothing is
/// checked; NaN passes through. A class has its components by name and by `operator[]`, and is made of them by `T(c0,
/// c1, c2)`.
template <typename T>
class TColour
{
public:
    static constexpr int dim = 3;

    /// No component is NaN.
    [[nodiscard]] explicit operator bool() const
    {
        return !std::isnan(self()[0]) && !std::isnan(self()[1]) && !std::isnan(self()[2]);
    }

    /// Four lanes in single precision: the components and 0.
    [[nodiscard]] std::array<float, 4> PackSSE() const
    {
        return {static_cast<float>(self()[0]), static_cast<float>(self()[1]), static_cast<float>(self()[2]), 0.0F};
    }

    friend T operator+(const T& a, const T& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }
    friend T operator-(const T& a, const T& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
    friend T operator*(const T& a, const T& b) { return {a[0] * b[0], a[1] * b[1], a[2] * b[2]}; }
    friend T operator/(const T& a, const T& b) { return {a[0] / b[0], a[1] / b[1], a[2] / b[2]}; }
    friend T operator*(const T& a, double s) { return {a[0] * s, a[1] * s, a[2] * s}; }
    friend T operator/(const T& a, double s) { return {a[0] / s, a[1] / s, a[2] / s}; }

    T& operator+=(const T& o)
    {
        return change([&](int i, double c) { return c + o[i]; });
    }
    T& operator-=(const T& o)
    {
        return change([&](int i, double c) { return c - o[i]; });
    }
    T& operator*=(double s)
    {
        return change([&](int, double c) { return c * s; });
    }
    T& operator/=(double s)
    {
        return change([&](int, double c) { return c / s; });
    }

protected:
    TColour() = default;

private:
    [[nodiscard]] const T& self() const { return static_cast<const T&>(*this); }

    template <typename Function>
    T& change(Function&& newValue)
    {
        T& c = static_cast<T&>(*this);
        for (int i = 0; i < dim; ++i) c[i] = newValue(i, c[i]);
        return c;
    }
};

namespace detail {

constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();

/// The lower limit comes first; NaN stays.
[[nodiscard]] constexpr double Clamp(double c, double lo, double hi) { return c < lo ? lo : c > hi ? hi : c; }

/// Rounded to the nearest whole number, ties to even, and held at the limits of the byte type or of the given range.
/// NaN becomes the lower limit.
template <typename Byte>
[[nodiscard]] Byte ToByte(double c, double lo = std::numeric_limits<Byte>::min(),
                          double hi = std::numeric_limits<Byte>::max())
{
    const double whole = std::rint(c);
    return static_cast<Byte>(!(whole > lo) ? lo : whole > hi ? hi : whole);
}

} // namespace detail

} // namespace Zorvan::cs
