// SPDX-License-Identifier: MIT
#include "zorvan/raster/distancetransform.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <vector>

namespace Zorvan::detail {

namespace {

constexpr int iLongestSide = 1 << 20;
/// Along a column without a set pixel: more than any distance, and with the longest column added a whole number in a
/// float too.
constexpr int iNone = 2 * iLongestSide;

/// Over the columns of a row: squares of the distances within each column are given, and of those over the row wanted.
class CRowEnvelope
{
public:
    explicit CRowEnvelope(std::size_t width) : m_parabolas(width), m_squares(width) {}

    /// @param toNearest  the distance to the nearest set pixel of each column
    /// @return           false when there is none
    template <typename T>
    bool Run(const T* toNearest)
    {
        if (!build(toNearest)) return false;
        fill();
        return true;
    }

    [[nodiscard]] std::span<const std::int64_t> Squares() const { return m_squares; }

private:
    /// (x - place)^2 + height.
    struct Parabola
    {
        std::int64_t place;
        std::int64_t height;
        std::int64_t lift; ///< height + place^2

        [[nodiscard]] std::int64_t At(std::int64_t x) const { return (x - place) * (x - place) + height; }
    };

    /// Leaves the parabolas that are lowest somewhere. Two meet where their lifts, divided by the distance of their
    /// places, say; with both sides multiplied by the distances that is a comparison of integers.
    template <typename T>
    bool build(const T* toNearest)
    {
        m_count = 0;
        for (std::size_t x = 0; x < m_squares.size(); ++x) {
            if (toNearest[x] >= static_cast<T>(iNone)) continue;
            const auto place = static_cast<std::int64_t>(x);
            const auto distance = static_cast<std::int64_t>(toNearest[x]);
            const Parabola next{place, distance * distance, distance * distance + place * place};
            while (m_count > 1 && isHidden(m_parabolas[m_count - 2], m_parabolas[m_count - 1], next)) --m_count;
            m_parabolas[m_count++] = next;
        }
        return m_count > 0;
    }

    /// The middle one of three is nowhere below both others.
    static bool isHidden(const Parabola& a, const Parabola& b, const Parabola& c)
    {
        return (b.lift - a.lift) * (c.place - b.place) >= (c.lift - b.lift) * (b.place - a.place);
    }

    void fill()
    {
        std::size_t lowest = 0;
        for (std::size_t x = 0; x < m_squares.size(); ++x) {
            std::int64_t square = m_parabolas[lowest].At(static_cast<std::int64_t>(x));
            while (lowest + 1 < m_count) {
                const std::int64_t next = m_parabolas[lowest + 1].At(static_cast<std::int64_t>(x));
                if (next > square) break;
                square = next;
                ++lowest;
            }
            m_squares[x] = square;
        }
    }

    std::vector<Parabola> m_parabolas;
    std::vector<std::int64_t> m_squares;
    std::size_t m_count = 0;
};

void write(std::span<const std::int64_t> squares, float* row)
{
    for (std::size_t x = 0; x < squares.size(); ++x)
        row[x] = static_cast<float>(std::sqrt(static_cast<double>(squares[x])));
}

void write(std::span<const std::int64_t> squares, std::int64_t* row) { std::copy(squares.begin(), squares.end(), row); }

/// Down the picture the result holds distances to the nearest set pixel above; up again they become those to the
/// nearest of both sides, and a row is done as soon as the one above has seen it.
template <typename T>
void transform(std::span<const unsigned char> mask, std::size_t width, std::size_t height, std::span<T> result, T empty)
{
    std::vector<T> nearest(width, static_cast<T>(iNone));
    for (std::size_t y = 0; y < height; ++y) {
        const unsigned char* const bytes = mask.data() + y * width;
        T* const row = result.data() + y * width;
        for (std::size_t x = 0; x < width; ++x) {
            nearest[x] = bytes[x] != 0 ? T{0} : nearest[x] + T{1};
            row[x] = nearest[x];
        }
    }
    std::fill(nearest.begin(), nearest.end(), static_cast<T>(iNone));
    CRowEnvelope envelope(width);
    for (std::size_t y = height; y-- > 0;) {
        T* const row = result.data() + y * width;
        for (std::size_t x = 0; x < width; ++x) nearest[x] = std::min(row[x], nearest[x] + T{1});
        if (envelope.Run(nearest.data()))
            write(envelope.Squares(), row);
        else
            std::fill_n(row, width, empty);
    }
}

void requireSizes(int width, int height, std::size_t pixels, std::size_t results)
{
    if (width < 0 || height < 0 || width > iLongestSide || height > iLongestSide)
        throw std::invalid_argument("a side of the picture is negative, or too long");
    const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (pixels != size || results != size) throw std::invalid_argument("mask and result need width * height entries");
}

} // namespace

void ComputeDistanceTransform(std::span<const unsigned char> mask, int width, int height, std::span<float> distances)
{
    requireSizes(width, height, mask.size(), distances.size());
    transform(mask, static_cast<std::size_t>(width), static_cast<std::size_t>(height), distances,
              std::numeric_limits<float>::infinity());
}

void ComputeSquaredDistanceTransform(std::span<const unsigned char> mask, int width, int height,
                                     std::span<std::int64_t> squares)
{
    requireSizes(width, height, mask.size(), squares.size());
    transform(mask, static_cast<std::size_t>(width), static_cast<std::size_t>(height), squares, std::int64_t{-1});
}

} // namespace Zorvan::detail
