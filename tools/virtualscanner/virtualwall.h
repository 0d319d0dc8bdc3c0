// SPDX-License-Identifier: MIT
#pragma once

#include "virtualobject.h"

#include <array>
#include <cstddef>
#include <vector>

namespace tools {

/// A wavy wall with a lump or a pit in each cell of 4 mm, as a signed distance field in millimetres: z away from the
/// wall. Every cell is drawn anew from the seed, so no place looks like another, however large the wall is; a larger
/// one of the same seed is the same in its middle. Const operations are safe from several threads.
class CVirtualWall : public AVirtualObject
{
public:
    /// @param dHalfWidth  mm: lumps reach so far from the middle in x and y, and the wall itself everywhere
    CVirtualWall(unsigned uiSeed, double dHalfWidth);

    [[nodiscard]] float Distance(const Zorvan::Vector3& p) const override;
    [[nodiscard]] const ObjectTraits& GetTraits() const override { return m_traits; }

private:
    /// An ellipsoid turned about z: added to the wall, or taken away.
    struct Lump
    {
        Zorvan::Vector3 centre; ///< z over the wall
        Zorvan::Vector3 halfAxes;
        float cosTurn = 1.0F;
        float sinTurn = 0.0F;
        bool isPit = false;
    };

    [[nodiscard]] Lump drawLump(int column, int row) const;
    /// Height of the wall without lumps.
    [[nodiscard]] float swell(float x, float y) const;
    [[nodiscard]] static float withLump(const Lump& lump, const Zorvan::Vector3& p, float distance);

    struct Wave
    {
        float x; ///< radians per millimetre
        float y;
        float phase;
    };

    ObjectTraits m_traits;
    unsigned m_seed;
    int m_reach; ///< cells to each side of the middle one
    std::array<Wave, 6> m_waves{};
    std::vector<Lump> m_lumps; ///< row by row
};

} // namespace tools
