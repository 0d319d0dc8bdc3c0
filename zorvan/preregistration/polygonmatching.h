// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <vector>

namespace prereg {

/// One vertex of a ring: where it lies, and where each of its candidates lies in the other set.
struct RingVertex
{
    kdtree::Vector<3> point;
    std::vector<kdtree::Vector<3>> candidates;
};

/// Which candidate each vertex takes.
struct RingMatch
{
    std::vector<std::size_t> candidate;
    std::vector<float> errors; ///< mm; how much the lengths of the two sides at the vertex change, on average

    [[nodiscard]] bool Empty() const { return candidate.empty(); }
};

/// Chooses the candidates so that the sum of all changes of side lengths is smallest: the shortest closed path through
/// the layers of candidates, one for each vertex. Empty when a vertex has no candidate.
/// Cost: the third power of the candidates a vertex, times the vertices.
[[nodiscard]] ZORVAN_API RingMatch matchRing(const std::vector<RingVertex>& ring);

} // namespace prereg
