// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/core/vector.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace prereg {

/// One drawn surfel of the floating set, moved into the fixed frame.
struct MovedSurfel
{
    int fltIndex;
    kdtree::Vector<3> point;
    kdtree::Vector<3> normal;
};

/// Draws `draws` floating surfels with `draw(k)`, in order, moves them by the pose and looks each up in the fixed tree:
/// `find(surfel)` gives the index of a fixed point or -1, `use(surfel, index)` is called, in the order of the draws,
/// where there is one. Works batch by batch, each stage asking for the memory of the next: samples lie all over both
/// clouds, and on millions of points every look-up waits for it.
template <typename Draw, typename Find, typename Use>
void ForEachMovedSurfel(std::size_t draws, const kdtree::Vector<3>* fltPoints, const kdtree::Vector<3>* fltNormals,
                        const kdtree::Vector<3>* fixPoints, const kdtree::Vector<3>* fixNormals,
                        const Zorvan::TKdTree<3, 48>& fixTree, const CTrafo& trafo, Draw draw, Find find, Use use)
{
    constexpr std::size_t batch = 64;
    std::array<MovedSurfel, batch> surfels;
    std::array<kdtree::Vector<3>, batch> queries;
    std::array<int, batch> found;
    for (std::size_t done = 0; done < draws; done += batch) {
        const std::size_t n = std::min(batch, draws - done);
        for (std::size_t k = 0; k < n; ++k) {
            surfels[k].fltIndex = draw(done + k);
            __builtin_prefetch(fltPoints + surfels[k].fltIndex);
            __builtin_prefetch(fltNormals + surfels[k].fltIndex);
        }
        for (std::size_t k = 0; k < n; ++k) {
            const int i = surfels[k].fltIndex;
            surfels[k].point = queries[k] = trafo * fltPoints[i];
            surfels[k].normal = trafo.Rotate(fltNormals[i]);
        }
        fixTree.Prefetch(queries.data(), n);
        for (std::size_t k = 0; k < n; ++k) {
            found[k] = find(surfels[k]);
            if (found[k] < 0) continue;
            __builtin_prefetch(fixPoints + found[k]);
            __builtin_prefetch(fixNormals + found[k]);
        }
        for (std::size_t k = 0; k < n; ++k) {
            if (found[k] >= 0) use(surfels[k], found[k]);
        }
    }
}

} // namespace prereg
