// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/features/cfpfhclusteranalysis.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <random>
#include <utility>
#include <vector>

namespace prereg {

class CFeatureCandidates;

/// A closed ring of features drawn at random from one point set, to be found again in another: a proposal of how one
/// lies on the other.
///
///     const CFPFHPolygon polygon(random, flt, {}, config, -1.0);
///     if (!polygon) return;
///     const auto [trafo, pairs] = polygon.ComputePreRegistration(fix, flt, config, false);
///     if (trafo) refine(trafo); // flt into fix
///
/// Each vertex has candidates in the other set whose features look like its own; of all ways to choose one candidate a
/// vertex, the one is taken whose ring keeps the lengths of the sides best. A polygon is used by one thread.
class ZORVAN_API CFPFHPolygon
{
public:
    /// A candidate for a vertex: a feature of the fixed set.
    struct IdxAndDist
    {
        unsigned int index;
        float distSq; ///< of the histograms
    };

    /// A vertex with what it was matched to.
    struct Correspondence
    {
        std::size_t fixIndex;
        std::size_t fltIndex;
        double weight;
    };

    /// Draws the vertices from the features of `flt`: one from each cluster of `analysis`, when it has any; else
    /// `uiNumPolygonVertices` within a ball of `dMaxPolygonDiameter` around a random feature, or from anywhere when no
    /// such ball has enough features or the diameter is negative.
    /// @param spacing  > 0: distance of features (mm); vertices drawn from anywhere then come from densely covered
    ///                 places, the best of ten draws each
    /// An empty polygon (logged) when there are too few features.
    CFPFHPolygon(std::mt19937& random, const CFPFHPointSet& flt, const CFPFHClusterAnalysis& analysis,
                 const ConfigurationFPFH& config, double spacing);

    [[nodiscard]] explicit operator bool() const { return !m_indices.empty(); }
    [[nodiscard]] std::size_t GetNumVertices() const { return m_indices.size(); }
    /// Feature of the floating set; negative for vertex 0 of an empty polygon.
    [[nodiscard]] int GetVertexIndex(std::size_t i) const { return m_indices.empty() ? -1 : m_indices[i]; }

    /// The rigid motion that the polygon proposes, floating into fixed coordinates, with the correspondences it comes
    /// from; invalid when fewer than 3 vertices keep the shape to within `dMaxPolygonVertexError`.
    [[nodiscard]] std::pair<CTrafo, std::vector<Correspondence>> ComputePreRegistration(const CFPFHPointSet& fix,
                                                                                        const CFPFHPointSet& flt,
                                                                                        const ConfigurationFPFH& config,
                                                                                        bool debug) const;
    /// The same for a caller with many polygons between the same sets.
    [[nodiscard]] std::pair<CTrafo, std::vector<Correspondence>>
    ComputePreRegistration(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const ConfigurationFPFH& config,
                           CFeatureCandidates& candidates) const;

private:
    void drawFromClusters(std::mt19937& random, const CFPFHClusterAnalysis& analysis);
    /// @return  false when no ball has enough features
    bool drawFromBall(std::mt19937& random, const CFPFHPointSet& flt, const ConfigurationFPFH& config);
    void drawFromAnywhere(std::mt19937& random, const CFPFHPointSet& flt, const ConfigurationFPFH& config,
                          double spacing);

    std::vector<int> m_indices;
};

} // namespace prereg
