// SPDX-License-Identifier: MIT
#include "zorvan/verdict/pairverdict.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <utility>

namespace prereg {

namespace {

bool isExplanation(const PoseVerdict& verdict)
{
    return verdict || verdict.eFinding == EFinding::Sliding || verdict.eFinding == EFinding::Doubtful ||
           verdict.eFinding == EFinding::NotRuledOut;
}

/// Poses that stand, best first, without those that say the same as a better one.
std::vector<std::size_t> explanations(const CPoseJudge& judge, std::span<const CTrafo> poses,
                                      const std::vector<PoseVerdict>& verdicts)
{
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < poses.size(); ++i)
        if (isExplanation(verdicts[i])) order.push_back(i);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return verdicts[a].counts.Score() > verdicts[b].counts.Score();
    });
    const double distinct = verdict::dDistinctPixels * judge.GetPixelSize();
    std::vector<std::size_t> kept;
    for (const std::size_t i : order) {
        // What is not ruled out stays so beside a pose that is doubted.
        const auto saysTheSame = [&](std::size_t k) {
            const bool mayGo = verdicts[k] || verdicts[i].eFinding != EFinding::NotRuledOut;
            return mayGo && judge.Distance(poses[i], poses[k]) <= distinct;
        };
        if (std::none_of(kept.begin(), kept.end(), saysTheSame)) kept.push_back(i);
    }
    return kept;
}

/// Explains the scans about as well as the best one, which is its own rival. One that nothing speaks against and that
/// is held does so however little it shares: where an object looks alike on two sides, more may match in the wrong
/// place. Not so on a model, which shows all of the object: there it should share as much.
bool isRival(const CPoseJudge& judge, const PoseVerdict& verdict, const PoseCounts& best)
{
    if (verdict.eFinding == EFinding::NotRuledOut) return true; // it need not share any surface
    const bool areScans = judge.GetFix().HasImage() && judge.GetFlt().HasImage();
    if (verdict && areScans) return true;
    const bool isAsDoubtful = verdict.counts.Contradiction() <= verdict::dAsDoubtful * best.Contradiction();
    const bool isClean = verdict || verdict.eFinding == EFinding::Sliding || isAsDoubtful; // may be the right one
    const double share = isClean ? verdict::dCleanRivalShare : verdict::dRivalShare;
    return verdict.counts.Score() >= share * best.Score();
}

/// Whether the best pose is held against a motion to this one, as it has to be against motions to the sides: of so many
/// pixels, which leave the overlap as it is, more speaks against the scans there.
bool isHeldAgainst(const CPoseJudge& judge, double distance, const PoseVerdict& other, const PoseCounts& best)
{
    return other.eFinding != EFinding::NotRuledOut && distance <= verdict::dSlidePixels * judge.GetPixelSize() &&
           other.counts.Misfits() - best.Misfits() >= judge.MinSlideGrowth();
}

double matchedShare(const PoseCounts& counts)
{
    // A pose that part of the samples refuted has the counts of that part: shares compare, amounts do not.
    return static_cast<double>(counts.uiMatched) / std::max(1U, counts.uiSamples);
}

/// A pose that fell, elsewhere, with more to say for it than the best of those that stand, or with several times its
/// matches: then the object agrees with itself by more than what the best one rests on.
bool isOutdone(const CPoseJudge& judge, std::span<const CTrafo> poses, const std::vector<PoseVerdict>& verdicts,
               std::size_t best)
{
    const double distinct = verdict::dDistinctPixels * judge.GetPixelSize();
    const PoseCounts& bestCounts = verdicts[best].counts;
    for (std::size_t i = 0; i < poses.size(); ++i) {
        const PoseCounts& counts = verdicts[i].counts;
        const bool isMore = counts.Score() > bestCounts.Score() ||
                            matchedShare(counts) > verdict::dFallenMatches * matchedShare(bestCounts);
        if (isMore && judge.Distance(poses[i], poses[best]) > distinct) return true;
    }
    return false;
}

/// Whether a pose that explains the scans as well as the best one, in the same place, may slide: then it is chance
/// which of them is held.
bool hasSlidingTwin(const CPoseJudge& judge, std::span<const CTrafo> poses, const std::vector<PoseVerdict>& verdicts,
                    std::size_t best)
{
    const double distinct = verdict::dDistinctPixels * judge.GetPixelSize();
    for (std::size_t i = 0; i < poses.size(); ++i) {
        if (verdicts[i].eFinding != EFinding::Sliding) continue;
        if (verdicts[i].counts.Score() >= verdict::dTwinShare * verdicts[best].counts.Score() &&
            judge.Distance(poses[i], poses[best]) <= distinct)
            return true;
    }
    return false;
}

/// Details may lie between its points; between the rings of a spinning sensor what lies there was judged when the
/// surface was made.
bool isTooCoarse(const CScanView& view)
{
    return view.HasImage() && !view.IsEven() && view.GetImage().GetNumFilled() < verdict::uiFewPixels;
}

/// Of poses that fell: the one with the most matches for its contradictions.
std::size_t nearestMiss(const std::vector<PoseVerdict>& verdicts)
{
    const auto merit = [](const PoseVerdict& v) {
        return v.eFinding == EFinding::Invalid ? -1.0 : matchedShare(v.counts) * (1.0 - v.counts.Contradiction());
    };
    const auto best = std::max_element(verdicts.begin(), verdicts.end(),
                                       [&](const auto& a, const auto& b) { return merit(a) < merit(b); });
    return static_cast<std::size_t>(best - verdicts.begin());
}

bool sharesSurface(const PoseVerdict& verdict)
{
    return verdict.eFinding != EFinding::Invalid && verdict.eFinding != EFinding::TooLittle;
}

} // namespace

const char* VerdictName(EPairVerdict eVerdict)
{
    switch (eVerdict) {
    case EPairVerdict::Aligned:
        return "aligned";
    case EPairVerdict::Ambiguous:
        return "ambiguous";
    case EPairVerdict::NotAligned:
        return "not aligned";
    case EPairVerdict::TooLittle:
        return "too little to go on";
    }
    return "";
}

std::string PairVerdict::ToString() const { return std::string(VerdictName(eVerdict)) + ": " + Reason(); }

std::string PairVerdict::Reason() const
{
    if (eVerdict == EPairVerdict::Aligned)
        return poses[explanations.front()].ToString() + ", and no other pose explains the scans as well";
    if (explanations.empty())
        return poses.empty() ? "no pose was proposed" : "of the nearest miss: " + poses[uiNearest].ToString();
    if (explanations.size() > 1) return reasonOfRivals();
    const PoseVerdict& best = poses[explanations.front()];
    if (best && isRayUnknown)
        return "nothing speaks against the pose, but neither scan shows from where it was taken, so that missing "
               "surface cannot speak against it; say where the sensor stood";
    if (best && isCoarse)
        return "nothing speaks against the pose, but a scan has so few points that details which tell it from another "
               "may "
               "lie between them; a denser scan would have to show them";
    if (best && isOutdone)
        return "nothing speaks against the pose, but more surface agrees in others, which some of it contradicts; a "
               "further scan would have to share more with this pose";
    return best.ToString() + "; a further scan would have to show surface that holds it";
}

std::string PairVerdict::reasonOfRivals() const
{
    const std::string count = std::to_string(explanations.size()) + " poses explain the scans";
    const bool areTwins = std::all_of(explanations.begin() + 1, explanations.end(),
                                      [&](std::size_t i) { return poses[i].eFinding == EFinding::NotRuledOut; });
    if (!areTwins) return count + " equally well; a further scan would have to show surface where they differ";
    return count +
           ": what matches may look alike on several sides, as the faces of a box do, and nothing contradicts that "
           "the scans show different ones; a further scan would have to show both";
}

PairVerdict JudgePoses(const CPoseJudge& judge, std::span<const CTrafo> poses, unsigned uiNumTasks)
{
    std::vector<PoseVerdict> verdicts(poses.size());
    Zorvan::ForEachTask(poses.size(), uiNumTasks, [&](std::size_t i) { verdicts[i] = judge.Judge(poses[i]); });
    return DecideOnPoses(judge, poses, std::move(verdicts));
}

PairVerdict DecideOnPoses(const CPoseJudge& judge, std::span<const CTrafo> poses, std::vector<PoseVerdict> verdicts)
{
    PairVerdict result;
    result.poses = std::move(verdicts);
    result.explanations = explanations(judge, poses, result.poses);
    result.isRayUnknown = !judge.CanMissSurface();
    result.isCoarse = isTooCoarse(judge.GetFix()) || isTooCoarse(judge.GetFlt());
    if (poses.empty()) return result;
    if (result.explanations.empty()) {
        result.uiNearest = nearestMiss(result.poses);
        const bool isAnyShared = std::any_of(result.poses.begin(), result.poses.end(), sharesSurface);
        result.eVerdict = isAnyShared ? EPairVerdict::NotAligned : EPairVerdict::TooLittle;
        return result;
    }
    const std::size_t first = result.explanations.front();
    if (result.poses[first] && hasSlidingTwin(judge, poses, result.poses, first))
        result.poses[first].eFinding = EFinding::Sliding;
    const PoseVerdict best = result.poses[first];
    std::erase_if(result.explanations, [&](std::size_t i) {
        return !isRival(judge, result.poses[i], best.counts) ||
               (i != first &&
                isHeldAgainst(judge, judge.Distance(poses[i], poses[first]), result.poses[i], best.counts));
    });
    result.isOutdone = isOutdone(judge, poses, result.poses, result.explanations.front());
    const bool isAlone = result.explanations.size() == 1 && best && !result.isRayUnknown && !result.isCoarse;
    result.eVerdict = isAlone && !result.isOutdone ? EPairVerdict::Aligned : EPairVerdict::Ambiguous;
    return result;
}

} // namespace prereg
