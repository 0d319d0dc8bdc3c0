// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/tkdtree.h"
#include "zorvan/platform/export.h"

namespace Zorvan::detail {

/// Deepest a tree may get. A split halves an extent, and extents run from 2^129 to 2^-21 in each of three dimensions,
/// so 450 levels are the most a spatial tree can ask for; the build stops there whatever comes.
inline constexpr unsigned maxDepth = 512;
inline constexpr std::uint32_t noPosition = 0xFFFFFFFF;

/// Longest load of any width, in floats.
inline constexpr std::size_t loadPadding = 8;

inline bool nearerFirst(const IndexAndDist& a, const IndexAndDist& b) { return a.distSq < b.distSq; }

/// The searches for one width of vector unit. All widths give the same answers.
struct KdTreeKernels
{
    const char* name;
    void (*findNearest)(const TKdTree<3, 48>::View&, NearestQuery&);
    void (*findNearestAndNext)(const TKdTree<3, 48>::View&, NearestQuery&, float, float&);
    void (*findInBall)(const TKdTree<3, 48>::View&, const kdtree::Ball<3>&, std::vector<unsigned>&);
    int (*findNearestToLine)(const TKdTree<3, 48>::View&, const kdtree::Ball<3>&, const kdtree::Vector<3>&);
    void (*findKNearest3)(const TKdTree<3, 48>::View&, const kdtree::Vector<3>&, std::vector<IndexAndDist>&,
                          std::size_t, float);
    void (*findKNearest33)(const TKdTree<33, 4096>::View&, const kdtree::Vector<33>&, std::vector<IndexAndDist>&,
                           std::size_t, float);
};

/// Every processor has these (SSE4.2).
extern const KdTreeKernels baselineKernels;
/// To be called where `simd::IsWide` holds.
extern const KdTreeKernels avxKernels;

/// Those of the vector unit in use.
[[nodiscard]] ZORVAN_API const KdTreeKernels& ActiveKernels();

} // namespace Zorvan::detail
