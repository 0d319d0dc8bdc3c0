// SPDX-License-Identifier: MIT
#pragma once

#include "virtualobject.h"

#include <array>
#include <cstddef>
#include <random>
#include <vector>

namespace tools {

/// A row of fourteen teeth on an arch of gum, some 60 mm across, as a signed distance field in millimetres: x to the
/// side, y to the front, z away from the gum. Every tooth is drawn anew from the seed and bumps cover everything, so no
/// stretch looks like another and none is symmetric. Const operations are safe from several threads.
///
/// The field is zero on the surface and negative inside; elsewhere it is only near the distance, and its gradient stays
/// below `fSteepest`.
class CVirtualJaw : public AVirtualObject
{
public:
    static constexpr float fSteepest = 1.7F;

    explicit CVirtualJaw(unsigned uiSeed);

    [[nodiscard]] float Distance(const Zorvan::Vector3& p) const override;
    [[nodiscard]] const ObjectTraits& GetTraits() const override { return m_traits; }

    /// A place on the arch with its directions, unit vectors in the plane of the arch.
    struct Station
    {
        Zorvan::Vector3 place;
        Zorvan::Vector3 along;   ///< to the next tooth
        Zorvan::Vector3 outward; ///< to lips and cheeks
    };
    /// @param share  0 at the left end of the arch, 0.5 at its front, 1 at the right end
    [[nodiscard]] static Station OnArch(double share);

private:
    /// An ellipsoid in the frame of a tooth.
    struct Lobe
    {
        Zorvan::Vector3 center;
        Zorvan::Vector3 halfAxes;
    };

    struct Tooth
    {
        Zorvan::Vector3 place;
        std::array<Zorvan::Vector3, 3> axes; ///< along the arch, outward, up to the cusps
        Zorvan::Vector3 halfBody;            ///< half size of the rounded box
        float rounding = 0.0F;
        std::vector<Lobe> cusps;
        std::vector<Lobe> fissures; ///< taken away
        float reach = 0.0F;         ///< no part is further from `place`
    };

    struct Wave
    {
        Zorvan::Vector3 direction; ///< radians per millimetre
        float phase = 0.0F;
    };

    static Tooth makeTooth(std::mt19937& rng, std::size_t kind, double share);
    static void addCusps(std::mt19937& rng, std::size_t kind, Tooth& tooth);
    static void addFissures(std::mt19937& rng, std::size_t kind, Tooth& tooth);
    [[nodiscard]] static float toothDistance(const Tooth& tooth, const Zorvan::Vector3& p);
    [[nodiscard]] float gumDistance(const Zorvan::Vector3& p) const;
    [[nodiscard]] float bumps(const Zorvan::Vector3& p) const;

    ObjectTraits m_traits;
    std::vector<Tooth> m_teeth;
    std::vector<Zorvan::Vector3> m_gum; ///< the middle line of the gum, left to right
    std::array<Wave, 6> m_waves;
};

} // namespace tools
