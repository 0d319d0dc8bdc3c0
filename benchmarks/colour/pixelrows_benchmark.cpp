// SPDX-License-Identifier: MIT
// Rows of sRGB pixels to Lab and back: whole rows, the colours one by one, and the formulas as textbooks print them,
// with powers and roots of the standard library and without tables. All three have to agree before they are timed.

#include "zorvan/colour/lab.h"
#include "zorvan/colour/pixelrows.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

namespace {

using namespace Zorvan::cs;

constexpr std::size_t uiPixels = 1 << 16;

double decoded(double byte)
{
    const double c = byte / 255.0;
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

double encoded(double c) { return 255.0 * (c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055); }

double response(double t) { return t > 216.0 / 24389.0 ? std::cbrt(t) : (24389.0 / 27.0 * t + 16.0) / 116.0; }

double stimulus(double f) { return f > 6.0 / 29.0 ? f * f * f : 3.0 * 36.0 / 841.0 * (f - 4.0 / 29.0); }

Lab textbookLab(const RGB::Packed& p)
{
    const double r = decoded(p.r);
    const double g = decoded(p.g);
    const double b = decoded(p.b);
    const double fx = response((0.412453 * r + 0.35758 * g + 0.180423 * b) / 0.95047);
    const double fy = response(0.212671 * r + 0.71516 * g + 0.072169 * b);
    const double fz = response((0.019334 * r + 0.119193 * g + 0.950227 * b) / 1.08883);
    return {116.0 * fy - 16.0, 500.0 * (fx - fy), 200.0 * (fy - fz)};
}

RGB::Packed textbookRGB(const Lab& c)
{
    const double fy = (c.L + 16.0) / 116.0;
    const double x = std::clamp(0.95047 * stimulus(fy + c.a / 500.0), 0.0, 1.0);
    const double y = std::clamp(stimulus(fy), 0.0, 1.0);
    const double z = std::clamp(1.08883 * stimulus(fy - c.b / 200.0), 0.0, 1.0);
    return RGB(encoded(3.240479 * x - 1.53715 * y - 0.498535 * z), encoded(-0.969256 * x + 1.875992 * y + 0.041556 * z),
               encoded(0.055648 * x - 0.204043 * y + 1.057311 * z))
        .Pack();
}

struct Rows
{
    std::vector<RGB::Packed> pixels{uiPixels};
    std::vector<Lab> colours{uiPixels};
    std::vector<RGB::Packed> back{uiPixels};

    Rows()
    {
        std::mt19937 engine(47110815);
        for (auto& pixel : pixels) pixel = RGB::Packed::FromARGB(static_cast<std::uint32_t>(engine()));
        ToLab(pixels, EPixelLight::SRGB, colours);
        ToRGB(colours, EPixelLight::SRGB, back);
        for (std::size_t i = 0; i < uiPixels; ++i) {
            const bool isLab = textbookLab(pixels[i]).Distance(colours[i]) < 1e-6;
            const RGB::Packed book = textbookRGB(colours[i]);
            // Rounding may fall to either side.
            const bool isRGB =
                std::abs(book.r - back[i].r) + std::abs(book.g - back[i].g) + std::abs(book.b - back[i].b) < 2;
            if (!isLab || !isRGB) std::abort();
        }
    }
};

template <typename Convert>
void run(benchmark::State& state, const Convert& convert)
{
    static Rows rows;
    for (auto _ : state) {
        convert(rows);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(uiPixels));
}

void BM_ToLab_Rows(benchmark::State& state)
{
    run(state, [](Rows& rows) { ToLab(rows.pixels, EPixelLight::SRGB, rows.colours); });
}

void BM_ToLab_OneByOne(benchmark::State& state)
{
    run(state, [](Rows& rows) {
        for (std::size_t i = 0; i < uiPixels; ++i) rows.colours[i] = Lab(XYZ::FromSRGB(rows.pixels[i]));
    });
}

void BM_ToLab_Textbook(benchmark::State& state)
{
    run(state,
        [](Rows& rows) { std::transform(rows.pixels.begin(), rows.pixels.end(), rows.colours.begin(), textbookLab); });
}

void BM_ToRGB_Rows(benchmark::State& state)
{
    run(state, [](Rows& rows) { ToRGB(rows.colours, EPixelLight::SRGB, rows.back); });
}

void BM_ToRGB_OneByOne(benchmark::State& state)
{
    run(state, [](Rows& rows) {
        for (std::size_t i = 0; i < uiPixels; ++i) rows.back[i] = rows.colours[i].ToXYZ().ToSRGB().Pack();
    });
}

void BM_ToRGB_Textbook(benchmark::State& state)
{
    run(state,
        [](Rows& rows) { std::transform(rows.colours.begin(), rows.colours.end(), rows.back.begin(), textbookRGB); });
}

BENCHMARK(BM_ToLab_Rows);
BENCHMARK(BM_ToLab_OneByOne);
BENCHMARK(BM_ToLab_Textbook);
BENCHMARK(BM_ToRGB_Rows);
BENCHMARK(BM_ToRGB_OneByOne);
BENCHMARK(BM_ToRGB_Textbook);

} // namespace
