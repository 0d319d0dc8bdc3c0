// SPDX-License-Identifier: MIT
#pragma once

// What surfaces hold of a pose. Not installed.

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/numerics/packedldlt.h"

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace prereg {

/// What both surfaces hold of a pose, in the three turns and three shifts about a middle; turns count by what they move
/// at the distance `radius`. Each surface brings its own normals: noise in one of them alone looks like a hold.
class CHold
{
public:
    using Vector3 = kdtree::Vector<3>;

    CHold(const Vector3& middle, double radius);

    void Add(const Vector3& point, const Vector3& normal, const Vector3& otherNormal);
    /// Motions of length `step` to and fro along each of the directions that are held least, the weakest first.
    [[nodiscard]] std::vector<CTrafo> WeakestMotions(std::size_t count, double step) const;
    /// The same along the edges, diagonals and space diagonals too of the cube that the three weakest directions span:
    /// where two of them are held as badly, what is free may lie between them.
    [[nodiscard]] std::vector<CTrafo> WeakMotionsAllAround(double step) const;
    /// The least hold over the greatest, in [0, 1]; negative values are noise.
    [[nodiscard]] double Ratio() const;
    /// Full turns, in equal steps, about the axes that are held much less than the rest.
    [[nodiscard]] std::vector<CTrafo> WeakTurns(std::size_t count, std::size_t steps) const;

private:
    static constexpr std::size_t iSize = 6;
    using Direction = std::array<double, iSize>;

    struct Directions
    {
        std::array<double, iSize> values{}; ///< ascending
        std::array<Direction, iSize> vectors{};
    };

    [[nodiscard]] Directions decompose() const;
    [[nodiscard]] std::optional<CTrafo> turnAbout(const Direction& direction, double angle) const;
    [[nodiscard]] Direction row(const Vector3& point, const Vector3& normal) const;
    [[nodiscard]] CTrafo motion(const Direction& direction, double step) const;

    Vector3 m_middle;
    double m_radius;
    std::array<double, Zorvan::symsolvers::PackedSize(iSize)> m_sum{};
};

} // namespace prereg
