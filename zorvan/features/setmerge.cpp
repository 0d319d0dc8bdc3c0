// SPDX-License-Identifier: MIT
#include "zorvan/features/setmerge.h"

#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/indexparts.h"

namespace prereg::detail {

namespace {

void addFeatures(TCells<CFPFHDataSource::PFHGridCell>& cells, const CFPFHPointSet& set, const CTrafo& trafo)
{
    for (std::size_t i = 0; i < set.SizeFeatures(); ++i) {
        const auto p = trafo * set.GetFeaturePoint(i);
        cells.At(p).Add(p, trafo.Rotate(set.GetFeatureNormal(i)), set.GetFeature(i), set.GetFeatureBitMask(i));
    }
}

void addPoints(TCells<CFPFHDataSource::GridCell>& cells, const CFPFHPointSet& set, const CTrafo& trafo)
{
    for (std::size_t i = 0; i < set.Size(); ++i) {
        const auto p = trafo * set.GetPoint(i);
        cells.At(p).Add(p, trafo.Rotate(set.GetNormal(i)), set.GetBitMask(i));
    }
}

} // namespace

void Merge::Add(const CFPFHPointSet& set, const CTrafo& trafo, unsigned numTasks)
{
    inParallel(
        numTasks, [&] { addFeatures(features, set, trafo); }, [&] { addPoints(points, set, trafo); });
}

} // namespace prereg::detail
