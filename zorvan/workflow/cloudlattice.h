// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/workflow/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace prereg {

/// A place on a lattice: sixteen bits a coordinate.
using LatticePoint = std::array<std::uint16_t, 3>;

/// The lattice that covers a box with the same step along all axes, so that distances keep their proportions.
struct ZORVAN_WORKFLOW_API CloudLattice
{
    static constexpr double dLast = 65535.0; ///< index of the last place along the longest side

    kdtree::Vector<3> low;
    double dStep = 0.0; ///< 0: all points are at `low`

    /// @param box  finite and not empty
    [[nodiscard]] static CloudLattice Over(const kdtree::Range<3>& box);
    /// The nearest place; outside the box, one on its border. @param p  finite
    [[nodiscard]] LatticePoint Nearest(const kdtree::Vector<3>& p) const;
};

/// Takes at most `uiMax` of the points, spread as evenly as the points allow: the one nearest to the middle of each
/// cell of a grid that is just coarse enough. Ascending indices; all when there are no more than `uiMax`. Same points,
/// same result.
///
/// Every k-th point would leave stripes: scanners deliver their points row by row.
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::uint32_t> ThinEvenly(std::span<const LatticePoint> points,
                                                                        std::size_t uiMax);

} // namespace prereg
