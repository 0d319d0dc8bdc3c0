// SPDX-License-Identifier: MIT
#include "zorvan/workflow/mergeblocks.h"

#include "zorvan/workflow/sidebyside.h"

#include <algorithm>
#include <cmath>
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

struct Block
{
    std::vector<LooseScan> scans;
    LikelyScans likely;
};

Block blockOf(const std::vector<std::size_t>& members, std::span<const LooseScan> scans, const LikelyScans& likely)
{
    std::map<std::size_t, std::size_t> numbers;
    for (const std::size_t member : members) numbers.emplace(member, numbers.size());
    Block block;
    for (const std::size_t member : members) {
        block.scans.push_back(scans[member]);
        auto& others = block.likely.emplace_back();
        for (const auto& [other, votes] : likely[member])
            if (const auto inside = numbers.find(other); inside != numbers.end()) others[inside->second] = votes;
    }
    return block;
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

std::vector<Trafos> MergeInBlocks(std::span<const LooseScan> scans, const BlockMerger& merge, const ScanSearch& search,
                                  const ConfigurationFPFH& config, const CSession::Group& group,
                                  const Zorvan::Hooks& hooks)
{
    std::vector<const CFPFHPointSet*> sets;
    for (const LooseScan& scan : scans) sets.push_back(scan.set.get());
    const LikelyScans likely = FindLikelyScans(sets, config.dFeatureRadius, group);
    std::vector<Block> blocks;
    for (const auto& members : GrowBlocks(likely, uiBlockScans, uiBlockShared))
        blocks.push_back(blockOf(members, scans, likely));
    std::vector<std::vector<Trafos>> merged(blocks.size());
    std::vector<Work> work;
    for (std::size_t i = 0; i < blocks.size(); ++i)
        work.emplace_back(
            [&, i](const Zorvan::Hooks& jobHooks) { merged[i] = merge(blocks[i].scans, blocks[i].likely, jobHooks); });
    hooks.Start("registering", blocks.size());
    RunSideBySide(work, group, hooks);
    hooks.Finish();
    std::vector<Trafos> clusters;
    for (std::vector<Trafos>& block : merged)
        clusters.insert(clusters.end(), std::make_move_iterator(block.begin()), std::make_move_iterator(block.end()));
    // What lies nearer to each other than this counts as the same surface.
    const std::vector<Trafos> joined = JoinSharing(clusters, scans, config.icpConfig.dMinQueryRadius);
    return LinkLikely(joined, scans, likely, search, group, hooks);
}

} // namespace prereg
