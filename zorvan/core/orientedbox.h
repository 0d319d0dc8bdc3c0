// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <array>
#include <utility>

namespace prereg {

/// A box in any orientation.
struct ZORVAN_API OrientedBox
{
    kdtree::Vector<3> center;
    std::array<kdtree::Vector<3>, 3> axes;
    kdtree::Vector<3> halfExtent;

    using Corners = std::pair<kdtree::Vector<3>, kdtree::Vector<3>>;

    /// Along the world axes, from low and high corner.
    [[nodiscard]] static OrientedBox FromCorners(const Corners& corners);
    /// The same box moved by a pose; its extents stay.
    [[nodiscard]] OrientedBox Moved(const CTrafo& trafo) const;
};

/// Separating-axis test (Gottschalk, Lin and Manocha, SIGGRAPH 1996): true when the boxes may share a point. The edge
/// products are left out when two axes are nearly parallel, where they say nothing and round badly.
[[nodiscard]] ZORVAN_API bool Overlap(const OrientedBox& a, const OrientedBox& b);

/// The six faces as half-spaces dot(p, normal) <= offset: three floats a normal, one offset each.
struct BoxInequalities
{
    std::array<float, 18> normals;
    std::array<float, 6> offsets;
};
[[nodiscard]] BoxInequalities FacesOf(const OrientedBox& box);

} // namespace prereg
