// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace Zorvan {

/// A picture held row by row, the uppermost first.
template <typename T>
class TImage
{
public:
    TImage() = default;
    TImage(std::size_t width, std::size_t height, const T& value = T())
        : m_width(width), m_height(height), m_pixels(width * height, value)
    {
    }

    [[nodiscard]] std::size_t GetWidth() const { return m_width; }
    [[nodiscard]] std::size_t GetHeight() const { return m_height; }

    /// Not range-checked.
    T& operator()(std::size_t x, std::size_t y) { return m_pixels[y * m_width + x]; }
    const T& operator()(std::size_t x, std::size_t y) const { return m_pixels[y * m_width + x]; }

    [[nodiscard]] std::span<T> GetPixels() { return m_pixels; }
    [[nodiscard]] std::span<const T> GetPixels() const { return m_pixels; }

    friend bool operator==(const TImage&, const TImage&) = default;

private:
    std::size_t m_width = 0;
    std::size_t m_height = 0;
    std::vector<T> m_pixels;
};

} // namespace Zorvan
