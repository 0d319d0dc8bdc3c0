// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"

#include <cstddef>
#include <vector>

namespace prereg::detail {

/// A caller's surface.
struct SurfaceView
{
    const kdtree::Vector<3>* points;
    const kdtree::Vector<3>* normals;
    const unsigned int* masks; ///< or null: all 0
    std::size_t n;

    [[nodiscard]] unsigned int MaskOf(std::size_t i) const { return masks == nullptr ? 0 : masks[i]; }
};

struct Surface
{
    std::vector<kdtree::Vector<3>> points;
    std::vector<kdtree::Vector<3>> normals;
    std::vector<unsigned int> masks;

    void Reserve(std::size_t n);
    void Push(const kdtree::Vector<3>& point, const kdtree::Vector<3>& normal, unsigned int mask);
};

/// One surfel for each cell of a grid: the means of the points and of the normals (which then are shorter than 1), the
/// masks joined. A copy of the surface for a grid size <= 0. Cells in the order in which they were first met.
[[nodiscard]] Surface reduce(const SurfaceView& surface, double gridSize);

/// A surface on the grid of the points and on that of the feature points. Where these are the same, there is one.
struct Reduction
{
    Surface points;
    Surface featurePoints; ///< empty where `isShared`
    bool isShared;

    Reduction(const SurfaceView& surface, double gridSize, double featureGridSize, unsigned numTasks);

    [[nodiscard]] const Surface& FeaturePoints() const { return isShared ? points : featurePoints; }
};

/// To unit length, by the processor's approximate reciprocal square root; normals without a length stay as they are.
void normalize(std::vector<kdtree::Vector<3>>& normals);

} // namespace prereg::detail
