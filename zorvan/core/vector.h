// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

/// The point types under all geometry: a vector, an axis-aligned box and a query ball.
namespace kdtree {

/// True when `value` is neither Inf nor NaN; looks at the bits, so it holds under any compiler setting.
[[nodiscard]] constexpr bool IsFinite(float value)
{
    return (std::bit_cast<std::uint32_t>(value) & 0x7FFFFFFFU) < 0x7F800000U;
}

/// A row of `Dim` floats, without arithmetic. Feature histograms are `Vector<33>`.
template <unsigned Dim>
struct Vector
{
    std::array<float, Dim> data{};

    [[nodiscard]] constexpr float& operator[](unsigned i) { return data[i]; }
    [[nodiscard]] constexpr const float& operator[](unsigned i) const { return data[i]; }
    friend constexpr bool operator==(const Vector&, const Vector&) = default;
};

/// A point or direction: x, y, z and a fourth lane that keeps it one vector register wide. Arithmetic works on all four
/// lanes; products, lengths, comparison and tests look at x, y, z only.
template <>
struct alignas(16) Vector<3>
{
    float x = 0.0F;
    float y = 0.0F;
    float z = 0.0F;
    float w = 0.0F;

    constexpr Vector() = default;
    constexpr Vector(float x_, float y_, float z_, float w_ = 0.0F) : x(x_), y(y_), z(z_), w(w_) {}

    /// The same value in every lane.
    [[nodiscard]] static constexpr Vector Filled(float value) { return {value, value, value, value}; }

    [[nodiscard]] constexpr float& operator[](unsigned i) { return i == 0 ? x : i == 1 ? y : i == 2 ? z : w; }
    [[nodiscard]] constexpr const float& operator[](unsigned i) const
    {
        return i == 0 ? x : i == 1 ? y : i == 2 ? z : w;
    }

    [[nodiscard]] constexpr bool IsFinite() const
    {
        return kdtree::IsFinite(x) && kdtree::IsFinite(y) && kdtree::IsFinite(z);
    }

    [[nodiscard]] constexpr float LengthSq() const { return x * x + y * y + z * z; }
    [[nodiscard]] float Length() const { return std::sqrt(LengthSq()); }

    friend constexpr Vector operator+(const Vector& a, const Vector& b)
    {
        return {a.x + b.x, a.y + b.y, a.z + b.z, a.w + b.w};
    }
    friend constexpr Vector operator-(const Vector& a, const Vector& b)
    {
        return {a.x - b.x, a.y - b.y, a.z - b.z, a.w - b.w};
    }
    friend constexpr Vector operator*(const Vector& a, const Vector& b)
    {
        return {a.x * b.x, a.y * b.y, a.z * b.z, a.w * b.w};
    }
    friend constexpr Vector operator*(const Vector& a, float s) { return {a.x * s, a.y * s, a.z * s, a.w * s}; }
    friend constexpr Vector operator*(float s, const Vector& a) { return a * s; }
    friend constexpr Vector operator-(const Vector& a) { return {-a.x, -a.y, -a.z, -a.w}; }
    friend constexpr bool operator==(const Vector& a, const Vector& b)
    {
        return a.x == b.x && a.y == b.y && a.z == b.z;
    }
};

/// x, y, z in this order, left to right: every squared distance in the library rounds the same way.
[[nodiscard]] constexpr float Dot(const Vector<3>& a, const Vector<3>& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

[[nodiscard]] constexpr Vector<3> Cross(const Vector<3>& a, const Vector<3>& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

[[nodiscard]] constexpr float DistanceSq(const Vector<3>& a, const Vector<3>& b)
{
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    const float dz = a.z - b.z;
    return dx * dx + dy * dy + dz * dz;
}

/// Lane-wise minimum and maximum. A NaN in `b` is passed over.
[[nodiscard]] constexpr Vector<3> Min(const Vector<3>& a, const Vector<3>& b)
{
    return {b.x < a.x ? b.x : a.x, b.y < a.y ? b.y : a.y, b.z < a.z ? b.z : a.z, b.w < a.w ? b.w : a.w};
}
[[nodiscard]] constexpr Vector<3> Max(const Vector<3>& a, const Vector<3>& b)
{
    return {b.x > a.x ? b.x : a.x, b.y > a.y ? b.y : a.y, b.z > a.z ? b.z : a.z, b.w > a.w ? b.w : a.w};
}

/// An axis-aligned box.
template <unsigned Dim>
struct Range
{
    Vector<Dim> low;
    Vector<Dim> high;
};

/// The box that holds nothing: low +Inf, high -Inf in every lane.
[[nodiscard]] constexpr Range<3> EmptyRange()
{
    constexpr float inf = std::numeric_limits<float>::infinity();
    return {Vector<3>::Filled(inf), Vector<3>::Filled(-inf)};
}

/// A query ball: centre and **squared** radius.
template <unsigned Dim>
struct Ball
{
    Vector<Dim> center;
    float radiusSq = 0.0F;
};

} // namespace kdtree
