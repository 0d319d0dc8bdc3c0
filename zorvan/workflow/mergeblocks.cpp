// SPDX-License-Identifier: MIT
#include "zorvan/workflow/mergeblocks.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace prereg {

namespace {

using Trafos = CClusterRegistration::Trafos;
using Sets = std::map<UniversalUniqueID, const CFPFHPointSet*>;

/// The frame of `b` in that of `a` by the shared scan that the others of them agree with best.
std::optional<CTrafo> frameBetween(const Trafos& a, const Trafos& b, const Sets& sets, double play)
{
    std::vector<UniversalUniqueID> shared;
    for (const auto& [id, pose] : b)
        if (a.contains(id)) shared.push_back(id);
    std::optional<CTrafo> best;
    double least = play * play;
    for (const UniversalUniqueID& by : shared) {
        const CTrafo frame = a.at(by) * b.at(by).GetInverse(true);
        double worst = 0.0;
        for (const UniversalUniqueID& id : shared) {
            const Ellipsoid& ellipsoid = sets.at(id)->GetEllipsoid();
            const float distanceSq = ellipsoid.Transform(a.at(id)).DistanceSq(ellipsoid.Transform(frame * b.at(id)));
            worst = std::max(worst, static_cast<double>(distanceSq));
        }
        if (!(worst <= least) || (best && worst == least)) continue;
        best = frame;
        least = worst;
    }
    return best;
}

bool isSharing(const Trafos& a, const Trafos& b)
{
    return std::ranges::any_of(b, [&](const auto& member) { return a.contains(member.first); });
}

/// Of blocks that follow each other in the list, all but the last of one size.
std::vector<std::span<const LooseScan>> blocksOf(std::span<const LooseScan> scans)
{
    std::vector<std::span<const LooseScan>> blocks;
    for (std::size_t first = 0;; first += uiBlockScans - uiBlockShared) {
        blocks.push_back(scans.subspan(first, std::min(uiBlockScans, scans.size() - first)));
        if (first + uiBlockScans >= scans.size()) return blocks;
    }
}

/// The caller's question is for this thread alone.
void answer(std::vector<std::future<void>>& jobs, std::atomic<bool>& isAborted, const Zorvan::Hooks& hooks)
{
    for (std::future<void>& job : jobs) {
        while (job.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
            isAborted = hooks.IsAborted() || isAborted;
        hooks.Advance();
    }
}

/// Waits for all, also when a hook throws: they work on what their caller owns.
void waitFor(std::vector<std::future<void>>& jobs, std::atomic<bool>& isAborted, const Zorvan::Hooks& hooks)
{
    try {
        answer(jobs, isAborted, hooks);
    } catch (...) {
        isAborted = true;
        for (std::future<void>& job : jobs) job.wait();
        throw;
    }
    for (std::future<void>& job : jobs) job.get();
}

} // namespace

std::vector<Trafos> JoinSharing(std::span<const Trafos> clusters, std::span<const LooseScan> scans, double dPlay)
{
    Sets sets;
    for (const LooseScan& scan : scans) sets[scan.id] = scan.set.get();
    std::vector<Trafos> joined;
    for (Trafos cluster : clusters) {
        for (auto other = joined.begin(); other != joined.end() && !cluster.empty();) {
            if (!isSharing(*other, cluster)) {
                ++other;
                continue;
            }
            if (const auto frame = frameBetween(*other, cluster, sets, dPlay)) {
                // What both have stays where the earlier one put it.
                for (const auto& [id, pose] : cluster) other->try_emplace(id, *frame * pose);
                cluster = std::move(*other);
                other = joined.erase(other);
            } else {
                std::erase_if(cluster, [&](const auto& member) { return other->contains(member.first); });
                ++other;
            }
        }
        if (!cluster.empty()) joined.push_back(std::move(cluster));
    }
    std::erase_if(joined, [](const Trafos& cluster) { return cluster.size() < 2; });
    return joined;
}

std::vector<Trafos> MergeInBlocks(std::span<const LooseScan> scans, const BlockMerger& merge, double dPlay,
                                  const CSession::Group& group, const Zorvan::Hooks& hooks)
{
    const std::vector<std::span<const LooseScan>> blocks = blocksOf(scans);
    std::vector<std::vector<Trafos>> merged(blocks.size());
    std::atomic<bool> isAborted = false;
    const Zorvan::Hooks jobHooks([&] { return isAborted.load(); });
    std::vector<std::future<void>> jobs;
    hooks.Start("registering", blocks.size());
    for (std::size_t i = 0; i < blocks.size(); ++i)
        jobs.push_back(group->Schedule([&, i] { merged[i] = merge(blocks[i], jobHooks); }));
    waitFor(jobs, isAborted, hooks);
    hooks.Finish();
    std::vector<Trafos> clusters;
    for (std::vector<Trafos>& block : merged)
        clusters.insert(clusters.end(), std::make_move_iterator(block.begin()), std::make_move_iterator(block.end()));
    return JoinSharing(clusters, scans, dPlay);
}

} // namespace prereg
