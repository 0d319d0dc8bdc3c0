// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/verdict/jointcovariance.h"

#include <memory>
#include <span>
#include <vector>

namespace prereg {

/// Poses of scans that lie a fraction of a spacing off, moved to where the surfaces of all pairs meet best: least
/// squares over all points that match, along their normals (Y. Chen and G. Medioni, Image and Vision Computing 10
/// (1992)), of all scans at once. An optimisation that draws points knows less, by what its draw adds.
///
/// What plane faces leave free stays where it was. The normals of a match differ by their noise, and beside an edge by
/// more; as much lean of their mean looks like a hold where there is none. So that much, many times over, holds each
/// scan where it came.
/// @param uiSamples  points that an optimisation draws of a pair, see ConfigurationICP: of more than 32 scans as many
///                   times fewer than all are looked at as it draws fewer
/// @param group      where pairs are matched side by side; null: on this thread
/// @return           in the order of the scans, the first one where it was
/// @throws std::invalid_argument for a scan without points or with an invalid pose
/// Same input, same bytes for any number of threads.
[[nodiscard]] ZORVAN_API std::vector<CTrafo>
RefineJointly(std::span<const ScanInFrame> scans, unsigned uiSamples = 0,
              const std::shared_ptr<Zorvan::CJobScheduler::Group>& group = nullptr);

} // namespace prereg
