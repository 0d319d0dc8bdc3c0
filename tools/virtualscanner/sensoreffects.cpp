// SPDX-License-Identifier: MIT
#include "sensoreffects.h"

#include "randomness.h"

#include <cmath>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace tools {

namespace {

constexpr double dPi = 3.14159265358979;
constexpr double dDegree = dPi / 180.0;

void drop(SensorEffects& effects, const ObjectTraits& object)
{
    const double radius = 0.065 * object.dSize;
    effects.patches = DroppedPatches{5, radius, radius, 0.35 * object.dSize};
}

using Effect = void (*)(SensorEffects&, const ObjectTraits&);

constexpr std::array<std::pair<const char*, Effect>, 8> known{
    {{"depth", [](SensorEffects&, const ObjectTraits&) {}},
     {"oblique", [](SensorEffects& effects, const ObjectTraits&) { effects.oblique.emplace(); }},
     {"triangulation", [](SensorEffects& effects, const ObjectTraits&) { effects.triangulation.emplace(); }},
     {"quantised", [](SensorEffects& effects, const ObjectTraits&) { effects.quantisation.emplace(); }},
     {"warped", [](SensorEffects& effects, const ObjectTraits&) { effects.warp.emplace(); }},
     {"lidar", [](SensorEffects& effects, const ObjectTraits&) { effects.rings.emplace(); }},
     {"outliers", [](SensorEffects& effects, const ObjectTraits&) { effects.outliers.emplace(); }},
     {"patches", drop}}};

void add(SensorEffects& effects, const std::string& name, const ObjectTraits& object)
{
    for (const auto& [knownName, effect] : known)
        if (name == knownName) return effect(effects, object);
    throw std::invalid_argument("no virtual sensor is called \"" + name + "\"");
}

} // namespace

prereg::CTrafo ObliqueRays::PickTurn(unsigned uiSeed) const
{
    std::mt19937 rng = EngineFor(uiSeed, Obliquity, 0);
    const double angle = Uniform(rng, 0.5, 1.0) * dMostDegrees * dDegree;
    const double toward = Uniform(rng, 0, 2.0 * dPi);
    const prereg::Quaternion turn(std::cos(0.5 * angle), std::sin(0.5 * angle) * std::cos(toward),
                                  std::sin(0.5 * angle) * std::sin(toward), 0.0);
    return {turn, {}};
}

Zorvan::Vector3 Triangulation::TowardCamera() const
{
    return {Zorvan::ToFloat(std::sin(dDegrees * dDegree)), 0.0F, Zorvan::ToFloat(std::cos(dDegrees * dDegree))};
}

float Quantisation::Apply(float depth, double spacing) const
{
    const double step = dStep * spacing;
    return Zorvan::ToFloat(step * std::round(depth / step));
}

CWarpField::CWarpField(const Warp& warp, double field, double spacing, unsigned uiSeed)
    : m_amplitude(warp.dAmplitude * spacing / static_cast<double>(std::tuple_size_v<decltype(m_waves)>))
{
    std::mt19937 rng = EngineFor(uiSeed, Warping, 0);
    for (Wave& wave : m_waves) {
        const double length = field * Uniform(rng, 0.4, 1.0);
        const double toward = Uniform(rng, 0, 2.0 * dPi);
        wave = {2.0 * dPi / length * std::cos(toward), 2.0 * dPi / length * std::sin(toward), Uniform(rng, 0, 6.28)};
    }
}

float CWarpField::At(float x, float y) const
{
    double sum = 0.0;
    for (const Wave& wave : m_waves) sum += std::sin(wave.x * x + wave.y * y + wave.phase);
    return Zorvan::ToFloat(m_amplitude * sum);
}

CDepthSpoiler::CDepthSpoiler(const SensorEffects& effects, double field, double spacing, unsigned uiSeed)
    : m_field(field), m_spacing(spacing), m_quantisation(effects.quantisation), m_outliers(effects.outliers)
{
    if (effects.warp) m_warp.emplace(*effects.warp, field, spacing, uiSeed);
}

float CDepthSpoiler::Spoil(float x, float y, float depth, std::mt19937& rng) const
{
    if (m_outliers && Uniform(rng, 0, 1) < m_outliers->dShare)
        return Zorvan::ToFloat(Uniform(rng, -0.5, 0.5) * m_field);
    if (m_warp) depth += m_warp->At(x, y);
    return m_quantisation ? m_quantisation->Apply(depth, m_spacing) : depth;
}

const std::vector<std::string>& SensorNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        all.reserve(known.size());
        for (const auto& [name, effect] : known) all.emplace_back(name);
        return all;
    }();
    return names;
}

SensorEffects SensorFor(const std::string& names, const ObjectTraits& object)
{
    SensorEffects effects;
    effects.dMissing = 0.01;
    std::istringstream words(names + '+');
    for (std::string name; std::getline(words, name, '+');) add(effects, name, object);
    const bool isImage =
        effects.oblique || effects.triangulation || effects.quantisation || effects.warp || effects.patches;
    if (effects.rings && isImage) throw std::invalid_argument("a lidar can have outliers, and no other effect");
    return effects;
}

} // namespace tools
