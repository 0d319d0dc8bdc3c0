// SPDX-License-Identifier: MIT
#include "virtualwall.h"

#include "distancefields.h"
#include "randomness.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace tools {

namespace {

constexpr double dPi = 3.14159265358979;
constexpr float fCell = 4.0F;       // mm
constexpr double dOffMiddle = 1.0;  // mm; of a lump in its cell
constexpr float fSwell = 0.7F;      // mm; height of each wave
constexpr float fHighest = 7.5F;    // no lump is higher: six waves, and 3.2 mm
constexpr float fBlend = 0.5F;      // mm
constexpr float fBeyondNext = 2.4F; // mm; a lump beyond the next cell is no nearer than this
constexpr float fSteepest = 1.7F;   // as of a jaw, which has the same ellipsoids
constexpr double dShareOfPits = 0.35;

int cellOf(float x) { return static_cast<int>(std::floor(x / fCell + 0.5F)); }

} // namespace

CVirtualWall::CVirtualWall(unsigned uiSeed, double dHalfWidth)
    : m_seed(uiSeed), m_reach(1 + cellOf(Zorvan::ToFloat(dHalfWidth)))
{
    m_traits = {.middle = {0, 0, 0},
                .radius = Zorvan::ToFloat(std::sqrt(2.0) * dHalfWidth) + fHighest,
                .dSize = 2.0 * dHalfWidth,
                .steepest = fSteepest,
                .symmetries = {prereg::CTrafo::Identity()}};
    std::mt19937 rng = EngineFor(uiSeed, Swell, 0);
    for (Wave& wave : m_waves) {
        const double turn = Uniform(rng, 0, 2.0 * dPi);
        const double perMm = 2.0 * dPi / Uniform(rng, 9.0, 31.0);
        wave = {Zorvan::ToFloat(perMm * std::cos(turn)), Zorvan::ToFloat(perMm * std::sin(turn)),
                Zorvan::ToFloat(Uniform(rng, 0, 2.0 * dPi))};
    }
    for (int row = -m_reach; row <= m_reach; ++row)
        for (int column = -m_reach; column <= m_reach; ++column) m_lumps.push_back(drawLump(column, row));
}

CVirtualWall::Lump CVirtualWall::drawLump(int column, int row) const
{
    std::mt19937 rng = EngineFor(m_seed, Lumps, static_cast<unsigned>(column), static_cast<unsigned>(row));
    const DrawnTriple off(rng, {-dOffMiddle, dOffMiddle}, {-dOffMiddle, dOffMiddle}, {-0.4, 0.6});
    const DrawnTriple half(rng, {1.1, 2.6}, {1.1, 2.6}, {1.2, 2.6});
    const double turn = Uniform(rng, 0, dPi);
    const float x = fCell * static_cast<float>(column) + Zorvan::ToFloat(off.x);
    const float y = fCell * static_cast<float>(row) + Zorvan::ToFloat(off.y);
    return {{x, y, swell(x, y) + Zorvan::ToFloat(off.z)},
            {Zorvan::ToFloat(half.x), Zorvan::ToFloat(half.y), Zorvan::ToFloat(half.z)},
            Zorvan::ToFloat(std::cos(turn)),
            Zorvan::ToFloat(std::sin(turn)),
            Uniform(rng, 0, 1) < dShareOfPits};
}

float CVirtualWall::swell(float x, float y) const
{
    float height = 0.0F;
    for (const Wave& wave : m_waves) height += std::sin(wave.x * x + wave.y * y + wave.phase);
    return fSwell * height;
}

float CVirtualWall::withLump(const Lump& lump, const Zorvan::Vector3& p, float distance)
{
    const Zorvan::Vector3 d = p - lump.centre;
    const Zorvan::Vector3 turned(lump.cosTurn * d.x + lump.sinTurn * d.y, lump.cosTurn * d.y - lump.sinTurn * d.x, d.z);
    const float lumpDistance = EllipsoidDistance(turned, lump.halfAxes);
    return lump.isPit ? SmoothMax(distance, -lumpDistance, fBlend) : SmoothMin(distance, lumpDistance, fBlend);
}

float CVirtualWall::Distance(const Zorvan::Vector3& p) const
{
    if (p.z > fHighest + 1.0F) return p.z - fHighest;
    float distance = p.z - swell(p.x, p.y);
    const int column = std::clamp(cellOf(p.x), -m_reach, m_reach);
    const int row = std::clamp(cellOf(p.y), -m_reach, m_reach);
    const auto placeOf = [this](int cell) {
        const int place = cell + m_reach;
        return static_cast<std::size_t>(place);
    };
    const std::size_t width = 1 + placeOf(m_reach);
    for (int r = std::max(row - 1, -m_reach); r <= std::min(row + 1, m_reach); ++r)
        for (int c = std::max(column - 1, -m_reach); c <= std::min(column + 1, m_reach); ++c)
            distance = withLump(m_lumps[placeOf(r) * width + placeOf(c)], p, distance);
    return std::min(distance, fBeyondNext);
}

} // namespace tools
