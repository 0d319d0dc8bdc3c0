// SPDX-License-Identifier: MIT
#pragma once

#include "virtualobject.h"

#include "zorvan/core/ctrafo.h"

#include <array>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace tools {

/// The rays do not run along z of the scan: the scan's frame is turned against them, in all views in the same way.
struct ObliqueRays
{
    double dMostDegrees = 30.0; ///< the seed picks an angle between half of this and this

    /// Turn from the frame of the rays to that of the scan.
    [[nodiscard]] prereg::CTrafo PickTurn(unsigned uiSeed) const;
};

/// Light falls along the rays and a camera beside them has to see it too; where it cannot, there is a shadow.
struct Triangulation
{
    double dDegrees = 25.0; ///< between ray and camera, in the plane y = 0

    [[nodiscard]] Zorvan::Vector3 TowardCamera() const;
};

/// Depth comes in steps.
struct Quantisation
{
    double dStep = 0.5; ///< pixel spacings

    [[nodiscard]] float Apply(float depth, double spacing) const;
};

/// Depth is off by slow waves over the field of view, the same in all views.
struct Warp
{
    double dAmplitude = 0.5; ///< pixel spacings, the most that it may be
};

/// The waves of a `Warp` for one sensor.
class CWarpField
{
public:
    /// @param field  width of a view, mm
    CWarpField(const Warp& warp, double field, double spacing, unsigned uiSeed);
    [[nodiscard]] float At(float x, float y) const;

private:
    struct Wave
    {
        double x;
        double y;
        double phase;
    };
    double m_amplitude;
    std::array<Wave, 3> m_waves;
};

/// Some points lie anywhere along their ray.
struct Outliers
{
    double dShare = 0.01;
};

/// Round patches of every view stay empty.
struct DroppedPatches
{
    unsigned uiCount = 0;
    double dSmallest = 0.0; ///< radius, mm
    double dLargest = 0.0;
    double dWithin = 0.0; ///< their middles lie in a square of twice this side around the middle of the view, mm
};

/// A spinning sensor beside the object: dense along each ring, sparse across.
struct Rings
{
    double dRatio = 10.0;   ///< spacing of the rings over that along a ring
    double dDistance = 3.0; ///< of the sensor from the middle of the object, in radii of the object
};

/// How a sensor differs from parallel rays along z with white noise.
struct SensorEffects
{
    std::optional<ObliqueRays> oblique;
    std::optional<Triangulation> triangulation;
    std::optional<Quantisation> quantisation;
    std::optional<Warp> warp;
    std::optional<Outliers> outliers;
    std::optional<DroppedPatches> patches;
    std::optional<Rings> rings;
    double dMissing = 0.0; ///< share of the points that are missing, each by itself
};

/// What the effects do to the depth of one pixel.
class CDepthSpoiler
{
public:
    /// @param field  width of a view, mm
    CDepthSpoiler(const SensorEffects& effects, double field, double spacing, unsigned uiSeed);

    /// @param depth  with noise; a stray point lies within half a field of the plane z = 0
    [[nodiscard]] float Spoil(float x, float y, float depth, std::mt19937& rng) const;

private:
    double m_field;
    double m_spacing;
    std::optional<CWarpField> m_warp;
    std::optional<Quantisation> m_quantisation;
    std::optional<Outliers> m_outliers;
};

/// What `SensorFor` knows, "depth" first.
[[nodiscard]] const std::vector<std::string>& SensorNames();

/// Effects of one or several names, joined by "+": "oblique+outliers". One point in a hundred is missing.
/// @throws std::invalid_argument for an unknown name, and for rings with effects that only an image can have
[[nodiscard]] SensorEffects SensorFor(const std::string& names, const ObjectTraits& object);

} // namespace tools
