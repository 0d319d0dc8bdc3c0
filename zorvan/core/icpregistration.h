// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/core/ellipsoid.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <functional>
#include <random>
#include <tuple>
#include <vector>

/// Pairwise ICP: free functions without state, so different pairs can run in parallel.
namespace prereg {

/// One correspondence. Sorts by error, smallest first.
struct PairWithError
{
    int fixIndex;
    int fltIndex;
    float distSq;  ///< squared distance of the two points at the pose of sampling
    float errorSq; ///< squared point-to-plane error, the worse of the two planes

    friend bool operator<(const PairWithError& a, const PairWithError& b) { return a.errorSq < b.errorSq; }
};

/// Aligns a floating set to a fixed one from a start pose: point-to-plane ICP on random samples with a robust choice of
/// inliers. A pose is judged by its slip, the standard deviation that the normal equations give for it; the pose of the
/// smallest slip is kept, not the last one, and then has to pass the acceptance tests of `config` one after another.
///
/// @param config      settings, lengths in mm
/// @param rng         copied: the same state draws the same samples, and the caller's sequence is not disturbed
/// @param fixPoints, fixNormals, fixTree  the fixed set; the tree was built over the points
/// @param fltPoints, fltNormals, fltTree, fltEllipsoid  the floating set
/// @param initial     start pose, floating into fixed coordinates
/// @param oracle      pose that the result must stay near to (`dMaxMovement`), or null
/// @return            the verdict; the pose is invalid for the outcomes 2, 3, 5 and 6, and the rejected one for 7 to 11
/// The last flag has no effect. Does not throw for bad data. Thread-safe. Sources: Chen and Medioni, Image and Vision
/// Computing 10 (1992) for the error; Rousseeuw and Croux, JASA 88 (1993) for the inlier scale.
[[nodiscard]] ZORVAN_API ICPResult ComputeICPRegistration(
    const ConfigurationICP& config, std::mt19937& rng, const kdtree::Vector<3>* fixPoints,
    const kdtree::Vector<3>* fixNormals, const Zorvan::TKdTree<3, 48>& fixTree, const kdtree::Vector<3>* fltPoints,
    const kdtree::Vector<3>* fltNormals, const Zorvan::TKdTree<3, 48>& fltTree, const Ellipsoid& fltEllipsoid,
    const CTrafo& initial, const CTrafo* oracle, bool);

/// Draws floating points and pairs each with its nearest fixed point within the radius.
/// @param random       source of floating indices, used when `indices` is null
/// @param pairs        filled, sorted by error
/// @param indices      floating indices to take instead of random ones, or null
/// @param checkNormals drop pairs whose normals differ by more than `dNormalAngleTolerance`
/// @return             RMSE over all pairs; +Infinity without any
ZORVAN_API float SamplePairs(const ConfigurationICP& config, float radiusSq, const kdtree::Vector<3>* fixPoints,
                             const kdtree::Vector<3>* fixNormals, const Zorvan::TKdTree<3, 48>& fixTree,
                             const kdtree::Vector<3>* fltPoints, const kdtree::Vector<3>* fltNormals,
                             const Zorvan::TKdTree<3, 48>& fltTree, const CTrafo& trafo,
                             const std::function<int()>& random, std::vector<PairWithError>* pairs,
                             std::vector<int>* indices, bool checkNormals);

/// How many of the sorted pairs are inliers, and their RMSE. From 16 pairs on, an inlier's error lies at most
/// `inlierScaling` robust standard deviations (1.4826 MAD) above the median; below 16 the worst pair is dropped.
/// @return (0, +Infinity) without pairs
[[nodiscard]] ZORVAN_API std::tuple<std::size_t, float> ComputeNumberOfInliers(const std::vector<PairWithError>& pairs,
                                                                               double inlierScaling);

/// One point-to-plane step from the first `count` pairs, to be applied after `trafo`.
/// @param stdDev  null, or receives the slip (mm) at the centre of the first third of the inliers; +Infinity on failure
/// @return        when the equations cannot be solved: the identity without `stdDev`, an invalid pose with it
[[nodiscard]] ZORVAN_API CTrafo ComputeTrafoUpdate(const ConfigurationICP& config, const kdtree::Vector<3>* fixPoints,
                                                   const kdtree::Vector<3>* fixNormals,
                                                   const kdtree::Vector<3>* fltPoints,
                                                   const kdtree::Vector<3>* fltNormals,
                                                   const std::vector<PairWithError>& pairs, const CTrafo& trafo,
                                                   std::size_t count, kdtree::Vector<3>* stdDev);

} // namespace prereg
