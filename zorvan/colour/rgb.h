// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/tcolour.h"
#include "zorvan/platform/export.h"

#include <cstdint>

namespace Zorvan::cs {

/// A colour of a screen or camera: red, green and blue from 0 to 255. Nothing keeps the components there but `Clamp`.
class ZORVAN_API RGB : public TColour<RGB>
{
public:
    class Packed;

    double r = detail::dNaN;
    double g = detail::dNaN;
    double b = detail::dNaN;

    RGB() = default;
    RGB(double gray) : r(gray), g(gray), b(gray) {}
    RGB(double red, double green, double blue) : r(red), g(green), b(blue) {}
    explicit RGB(const double* c) : RGB(c[0], c[1], c[2]) {}
    explicit RGB(const float* c) : RGB(c[0], c[1], c[2]) {}
    explicit RGB(const Packed& bytes);

    [[nodiscard]] static RGB min() { return {0.0, 0.0, 0.0}; }
    [[nodiscard]] static RGB max() { return {255.0, 255.0, 255.0}; }

    [[nodiscard]] double& operator[](int i) { return i == 0 ? r : i == 1 ? g : b; }
    [[nodiscard]] double operator[](int i) const { return i == 0 ? r : i == 1 ? g : b; }

    /// In place, to 0 .. 255.
    RGB& Clamp();
    /// This colour at t = 0, `other` at t = 1.
    [[nodiscard]] RGB Mix(const RGB& other, double t) const;
    [[nodiscard]] RGB ToRGB() const { return *this; }

    /// Bytes: rounded, ties to even, and held in 0 .. 255; NaN is 0.
    [[nodiscard]] std::uint8_t ToR() const { return detail::ToByte<std::uint8_t>(r); }
    [[nodiscard]] std::uint8_t ToG() const { return detail::ToByte<std::uint8_t>(g); }
    [[nodiscard]] std::uint8_t ToB() const { return detail::ToByte<std::uint8_t>(b); }
    /// The luminance of the linear components.
    [[nodiscard]] std::uint8_t ToGray() const;
    [[nodiscard]] Packed Pack() const;

    /// Words, the first letter in the highest byte. Alpha is written as 255 and not read.
    [[nodiscard]] std::uint32_t ToARGB() const;
    [[nodiscard]] std::uint32_t ToABGR() const;
    [[nodiscard]] std::uint32_t ToRGBA() const;
    [[nodiscard]] std::uint32_t ToBGRA() const;
    [[nodiscard]] static RGB FromARGB(std::uint32_t word);
    [[nodiscard]] static RGB FromABGR(std::uint32_t word);
    [[nodiscard]] static RGB FromRGBA(std::uint32_t word);
    [[nodiscard]] static RGB FromBGRA(std::uint32_t word);

    /// A curve over the range of a channel. @throws std::invalid_argument "invalid channel index"
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int degree);
    [[nodiscard]] static CColorTransferCurve<RGB> CreateColorTransferCurve(int degree);
};

/// Three bytes of a pixel, not initialised. Pure black counts as invalid: it is what unseen pixels hold.
class ZORVAN_API RGB::Packed
{
public:
    std::uint8_t r;
    std::uint8_t g;
    std::uint8_t b;

    Packed() = default;
    Packed(std::uint8_t red, std::uint8_t green, std::uint8_t blue) : r(red), g(green), b(blue) {}
    /// Rounds as `RGB::Pack`.
    [[nodiscard]] static Packed FromRGB(double r, double g, double b) { return RGB(r, g, b).Pack(); }

    [[nodiscard]] static Packed min() { return {0, 0, 0}; }
    [[nodiscard]] static Packed max() { return {255, 255, 255}; }

    /// Some byte is not 0.
    [[nodiscard]] explicit operator bool() const { return r != 0 || g != 0 || b != 0; }
    void Invalidate() { *this = min(); }

    [[nodiscard]] RGB Unpack() const { return RGB(*this); }
    operator RGB() const { return Unpack(); }

    [[nodiscard]] std::uint8_t& operator[](int i) { return i == 0 ? r : i == 1 ? g : b; }
    [[nodiscard]] std::uint8_t operator[](int i) const { return i == 0 ? r : i == 1 ? g : b; }
    [[nodiscard]] bool operator==(const Packed&) const = default;

    [[nodiscard]] std::uint32_t ToARGB() const { return pack(255, r, g, b); }
    [[nodiscard]] std::uint32_t ToABGR() const { return pack(255, b, g, r); }
    [[nodiscard]] std::uint32_t ToRGBA() const { return pack(r, g, b, 255); }
    [[nodiscard]] std::uint32_t ToBGRA() const { return pack(b, g, r, 255); }
    [[nodiscard]] static Packed FromARGB(std::uint32_t w) { return {byte(w, 16), byte(w, 8), byte(w, 0)}; }
    [[nodiscard]] static Packed FromABGR(std::uint32_t w) { return {byte(w, 0), byte(w, 8), byte(w, 16)}; }
    [[nodiscard]] static Packed FromRGBA(std::uint32_t w) { return {byte(w, 24), byte(w, 16), byte(w, 8)}; }
    [[nodiscard]] static Packed FromBGRA(std::uint32_t w) { return {byte(w, 8), byte(w, 16), byte(w, 24)}; }

private:
    static std::uint32_t pack(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d)
    {
        return a << 24 | b << 16 | c << 8 | d;
    }
    static std::uint8_t byte(std::uint32_t word, int shift) { return static_cast<std::uint8_t>(word >> shift); }
};

inline RGB::RGB(const Packed& bytes) : RGB(bytes.r, bytes.g, bytes.b) {}

inline RGB::Packed RGB::Pack() const { return {ToR(), ToG(), ToB()}; }

} // namespace Zorvan::cs
