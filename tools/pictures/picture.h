// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/exchange/timage.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace tools {

/// A picture with 8 bits a channel, row by row.
struct Picture
{
    struct Pixel
    {
        std::uint8_t r;
        std::uint8_t g;
        std::uint8_t b;
        std::uint8_t a;
    };

    unsigned uiWidth = 0;
    unsigned uiHeight = 0;
    bool hasAlpha = false; ///< as a file; without it all pixels have the alpha 255
    std::vector<Pixel> pixels;
};

/// Reads a PNG of any kind: 16 bits are rounded to 8, a palette is resolved.
/// @throws CInputError when the file is no whole PNG, or larger than `uiMostPixels`
[[nodiscard]] Picture ReadPng(const std::filesystem::path& file);
constexpr std::size_t uiMostPixels = std::size_t{1} << 27;

/// The pixels as 0xAARRGGBB, alpha not multiplied in.
[[nodiscard]] Zorvan::TImage<unsigned int> ToImage(const Picture& picture);

/// The whole file or nothing. @throws CInputError
void WritePng(const std::filesystem::path& file, const Picture& picture);

} // namespace tools
