// SPDX-License-Identifier: MIT
#include "zorvan/colour/pixelrows.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace Zorvan::cs {
namespace {

template <typename T>
bool haveSameBits(const T& a, const T& b)
{
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

XYZ xyzOf(const RGB& c, EPixelLight light) { return light == EPixelLight::SRGB ? XYZ::FromSRGB(c) : XYZ(c); }

RGB rgbOf(const Lab& c, EPixelLight light) { return light == EPixelLight::SRGB ? c.ToXYZ().ToSRGB() : c.ToRGB(); }

TEST(PixelRows, HaveTheBitsOfColoursOneByOne)
{
    std::mt19937 engine(47110815);
    for (const EPixelLight light : {EPixelLight::Linear, EPixelLight::SRGB})
        for (const std::size_t n : {0U, 1U, 255U, 256U, 257U, 100000U}) {
            std::vector<RGB::Packed> pixels(n);
            for (auto& pixel : pixels) pixel = RGB::Packed::FromARGB(static_cast<std::uint32_t>(engine()));
            std::vector<XYZ> xyz(n);
            std::vector<Lab> lab(n);
            ToXYZ(pixels, light, xyz);
            ToLab(pixels, light, lab);
            std::size_t equal = 0;
            for (std::size_t i = 0; i < n; ++i) {
                const XYZ expected = xyzOf(pixels[i], light);
                equal += haveSameBits(xyz[i], expected) && haveSameBits(lab[i], Lab(expected)) ? 1 : 0;
            }
            EXPECT_EQ(equal, n);
        }
}

// Halfway between two bytes the last bits decide; the others lie anywhere, also where no screen can show them.
TEST(PixelRows, RoundToTheSameBytes)
{
    std::mt19937 engine(47110815);
    std::uniform_real_distribution<double> l(-5.0, 105.0);
    std::uniform_real_distribution<double> ab(-140.0, 140.0);
    for (const EPixelLight light : {EPixelLight::Linear, EPixelLight::SRGB}) {
        std::vector<Lab> colours{{std::nan(""), 0, 0}, {HUGE_VAL, 0, 0}, {50, -HUGE_VAL, HUGE_VAL}};
        for (int i = 0; i < 100000; ++i) colours.emplace_back(l(engine), ab(engine), ab(engine));
        for (double k = 0.0; k < 255.0; ++k)
            for (int i = -8; i <= 8; ++i)
                for (const double step : {1e-15, 1e-13, 1e-11})
                    colours.emplace_back(xyzOf(RGB((k + 0.5) * (1.0 + i * step)), light));
        std::vector<RGB::Packed> pixels(colours.size());
        ToRGB(colours, light, pixels);
        std::size_t equal = 0;
        for (std::size_t i = 0; i < colours.size(); ++i) equal += pixels[i] == rgbOf(colours[i], light).Pack() ? 1 : 0;
        EXPECT_EQ(equal, colours.size());
    }
}

TEST(PixelRows, RefuseRowsOfDifferentLengths)
{
    std::vector<RGB::Packed> pixels(3);
    std::vector<Lab> colours(2);
    EXPECT_THROW(ToLab(pixels, EPixelLight::SRGB, colours), std::invalid_argument);
}

} // namespace
} // namespace Zorvan::cs
