// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/cposejudge.h"

#include <span>
#include <vector>

namespace prereg {

/// Another scan, where it lies.
struct ScanBeside
{
    const CPoseJudge* judge = nullptr; ///< of the two
    CTrafo pose;                       ///< of the other scan
    bool isFixed = true;               ///< it is the fixed one of the judge
};

/// What all pairs of a scan with others say of its pose together.
struct PoseAmong
{
    CTrafo pose = CTrafo::Invalid();
    PoseCounts counts;
    /// Of the place that explains the scans best of all that lie so far off that they are places of their own, along
    /// what the others hold least: where the scan might be as well if nothing speaks against that.
    PoseCounts beside;
};

/// Moves poses to where hardly anything contradicts them.
///
/// A scan that shows a flat face or two slides over each other scan, and no fit of surfaces ends that. What holds it
/// are outlines: where it ends, where others look through, what they should have seen. So the pose goes along the three
/// directions that the surfaces hold least, to where all pairs together match most and contradict it least, in steps of
/// two pixels and then shorter ones.
/// @param starts  surfaces lie on each other there; some pixels beside a place
/// @param dAway   how far a place of its own lies off, mm
/// @return        at most one a start, in their order: of those that come within a pixel of each other the first, and
///                none where, a pixel or so beside the place, more contradicts it than any right pose of two scans
/// Same input, same bytes, for any number of tasks.
[[nodiscard]] ZORVAN_API std::vector<PoseAmong>
SettleAmong(std::span<const ScanBeside> others, std::span<const CTrafo> starts, double dAway, unsigned uiNumTasks);

} // namespace prereg
