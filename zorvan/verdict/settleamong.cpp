// SPDX-License-Identifier: MIT
#include "zorvan/verdict/settleamong.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/verdict/chold.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>

namespace prereg {

namespace {

/// Of the floating scan of the judge in the frame of the fixed one.
CTrafo poseOfPair(const ScanBeside& other, const CTrafo& pose)
{
    return other.isFixed ? other.pose.GetInverse(true) * pose : pose.GetInverse(true) * other.pose;
}

/// Of the scan that is beside the other one.
const CScanView& ownView(const ScanBeside& other)
{
    return other.isFixed ? other.judge->GetFlt() : other.judge->GetFix();
}

CHold holdAmong(std::span<const ScanBeside> others, const CTrafo& pose)
{
    const CScanView& own = ownView(others.front());
    CHold hold(pose * own.GetMiddle(), own.GetRadius());
    for (const ScanBeside& other : others)
        other.judge->AddHold(poseOfPair(other, pose), other.isFixed ? other.pose : pose, hold);
    return hold;
}

double pixelAmong(std::span<const ScanBeside> others)
{
    double pixel = 0.0;
    for (const ScanBeside& other : others) pixel = std::max(pixel, other.judge->GetPixelSize());
    return pixel;
}

using Count = PoseCounts (CPoseJudge::*)(const CTrafo&) const;

PoseCounts countAmong(std::span<const ScanBeside> others, const CTrafo& pose, Count count)
{
    PoseCounts sum;
    for (const ScanBeside& other : others) sum += (other.judge->*count)(poseOfPair(other, pose));
    return sum;
}

/// The best of some motions of a pose.
PoseAmong bestOf(std::span<const ScanBeside> others, const CTrafo& pose, const std::vector<CTrafo>& motions,
                 Count count)
{
    PoseAmong best;
    for (const CTrafo& motion : motions) {
        const CTrafo moved = motion * pose;
        const PoseCounts counts = countAmong(others, moved, count);
        if (!best.pose || counts.Score() > best.counts.Score()) best = {moved, counts, {}};
    }
    return best;
}

/// Without poses that are as good as earlier ones.
std::vector<CTrafo> apartFrom(std::span<const CTrafo> poses, const CScanView& view, double distance)
{
    std::vector<CTrafo> apart;
    for (const CTrafo& pose : poses) {
        const auto isNear = [&](const CTrafo& other) { return DistanceOfPoses(view, pose, other) < distance; };
        if (pose && std::ranges::none_of(apart, isNear)) apart.push_back(pose);
    }
    return apart;
}

/// To where no step of a length, and then no shorter one, leads to a better pose.
CTrafo descend(std::span<const ScanBeside> others, const CTrafo& start, double dFirstStep, double dLastStep,
               Count count)
{
    constexpr std::size_t uiDirections = 3;
    PoseAmong at{start, countAmong(others, start, count), {}};
    for (double step = dFirstStep; step >= dLastStep;) {
        const auto motions = holdAmong(others, at.pose).WeakestMotions(uiDirections, step);
        const PoseAmong best = bestOf(others, at.pose, motions, count);
        if (best.counts.Score() > at.counts.Score())
            at = best;
        else
            step /= 2.0;
    }
    return at.pose;
}

} // namespace

std::vector<PoseAmong> SettleAmong(std::span<const ScanBeside> others, std::span<const CTrafo> starts, double dAway,
                                   unsigned uiNumTasks)
{
    if (others.empty()) return {};
    const double pixel = pixelAmong(others);
    std::vector<CTrafo> near(starts.begin(), starts.end());
    Zorvan::ForEachTask(near.size(), uiNumTasks, [&](std::size_t i) {
        if (!near[i]) return;
        near[i] = descend(others, near[i], 2.0 * pixel, pixel, &CPoseJudge::CountPart);
        const double share = countAmong(others, near[i], &CPoseJudge::CountPart).Contradiction();
        if (share > verdict::dMaxDoubt) near[i] = CTrafo::Invalid();
    });
    const std::vector<CTrafo> apart = apartFrom(near, ownView(others.front()), pixel);
    std::vector<PoseAmong> settled(apart.size());
    Zorvan::ForEachTask(apart.size(), uiNumTasks, [&](std::size_t i) {
        const CTrafo pose = descend(others, apart[i], 0.5 * pixel, 0.25 * pixel, &CPoseJudge::Count);
        const auto away = holdAmong(others, pose).WeakMotionsAllAround(dAway);
        settled[i] = {pose, countAmong(others, pose, &CPoseJudge::Count),
                      bestOf(others, pose, away, &CPoseJudge::Count).counts};
    });
    return settled;
}

} // namespace prereg
