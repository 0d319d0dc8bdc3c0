// SPDX-License-Identifier: MIT
#include "zorvan/workflow/placinggroups.h"

#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <utility>

namespace prereg {

namespace {

/// So many pairs must support a pose for each that refutes it. At the true poses one of the bunny's 45 pairs refutes,
/// where its ear was moved between two scans.
constexpr std::size_t uiSupportsPerRefutation = 4;

/// A place falls behind another one by so many more contradictions: on a flange whose keyway tells its six turns apart
/// most pairs show one to seventeen of them.
constexpr unsigned uiMinMargin = 30;

constexpr std::size_t uiMaxSymmetries = 24;

/// Pairs: two or three that refute a place decide about it among a dozen.
constexpr std::size_t uiAskedAtOnce = 4;

/// Pairs that support a place which none of them knows by itself.
constexpr std::size_t uiMinTogether = 3;

ScanPair ordered(std::size_t a, std::size_t b) { return {std::min(a, b), std::max(a, b)}; }

/// The pose of the second scan of the ordered pair in the frame of the first one.
CTrafo relative(const CTrafo& poseA, const CTrafo& poseB) { return poseA.GetInverse(true) * poseB; }

/// Whether `a` explains the scans better than `b`, by a margin: fewer contradictions, or more than twice the score,
/// unless `b` need not share any surface.
bool beats(const Hypothesis& a, const Hypothesis& b)
{
    if (AreFewer(a.counts, b.counts)) return true;
    if (b.isOpen) return false;
    const bool isDoubtful = b.counts.Contradiction() > verdict::dMaxContradiction;
    const double share = isDoubtful ? verdict::dRivalShare : verdict::dCleanRivalShare;
    return b.counts.Score() < share * a.counts.Score() &&
           a.counts.Contradictions() < b.counts.Contradictions() + uiMinMargin;
}

/// The same of places where hardly anything contradicts the scan: how much surface a place shares says nothing any
/// more. A view with patches dropped matches twice as much half a turn off.
bool beatsSettled(const Hypothesis& a, const Hypothesis& b) { return AreFewer(a.counts, b.counts); }

/// The one that beats all others.
template <class Beats>
const Hypothesis* winner(const std::vector<Hypothesis>& standing, const Beats& isBetter)
{
    for (const Hypothesis& candidate : standing) {
        const bool isBest = std::all_of(standing.begin(), standing.end(), [&](const Hypothesis& other) {
            return &other == &candidate || isBetter(candidate, other);
        });
        if (isBest) return &candidate;
    }
    return nullptr;
}

} // namespace

bool AreFewer(const PoseCounts& a, const PoseCounts& b)
{
    return b.Contradictions() >= a.Contradictions() + std::max(uiMinMargin, a.Contradictions());
}

bool AreBetter(const PoseCounts& a, const PoseCounts& b)
{
    if (AreFewer(a, b)) return a.Score() >= verdict::dCleanRivalShare * b.Score();
    if (AreFewer(b, a)) return b.Score() < verdict::dCleanRivalShare * a.Score();
    return a.Score() > b.Score();
}

bool AreRuledOut(const PoseCounts& a, const PoseCounts& b, bool isByMatches)
{
    if (AreFewer(b, a)) return b.Score() >= verdict::dCleanRivalShare * a.Score();
    return isByMatches && !AreFewer(a, b) && a.Score() < verdict::dCleanRivalShare * b.Score();
}

bool Hypothesis::Stands() const
{
    // Where no surface is shared, matches are no measure.
    if (isOpen && uiSupports == 0) return uiRefutations == 0;
    // Where no pair is aligned by itself, all of them together must be as sure as one that is.
    const double limit = isAligned ? verdict::dMaxDoubt : verdict::dMaxContradiction;
    return uiSupports > 0 && uiRefutations * uiSupportsPerRefutation <= uiSupports && counts.Contradiction() <= limit;
}

namespace {

/// What pairs say that stand out among those that have been asked.
struct Outstanding
{
    unsigned uiMatched = 0;         ///< of the pair that matches most
    ScanPair scans;                 ///< of that pair
    CTrafo met = CTrafo::Invalid(); ///< where it was found to meet; invalid: at the pose itself
    unsigned uiWorst = 0;           ///< contradictions of the pair with the most
};

/// @param scans  of the first and of the second group
void addEvidence(const ScanPair& scans, const PairEvidence& said, Hypothesis& hypothesis, Outstanding& most)
{
    hypothesis.counts += said.counts;
    if (said.eEvidence == EEvidence::Supports) {
        ++hypothesis.uiSupports;
        if (said.counts.uiMatched > most.uiMatched) most = {said.counts.uiMatched, scans, said.met, most.uiWorst};
    }
    if (said.eEvidence != EEvidence::Refutes) return;
    const std::size_t refuter = scans.first;
    ++hypothesis.uiRefutations;
    if (hypothesis.refuters.empty() || hypothesis.refuters.back() != refuter) hypothesis.refuters.push_back(refuter);
    if (said.counts.Contradictions() <= most.uiWorst) return;
    most.uiWorst = said.counts.Contradictions();
    hypothesis.worst = scans;
}

} // namespace

CPlacingWeigher::CPlacingWeigher(IScanPairs& pairs, const Placing& placing) : m_pairs(pairs)
{
    for (std::size_t i = 0; i < placing.searched.size(); ++i) AddFinding(placing.searched[i], placing.findings[i]);
}

void CPlacingWeigher::AddFinding(ScanPair pair, PairFinding finding)
{
    m_findings.insert_or_assign(pair, std::move(finding));
}

std::size_t CPlacingWeigher::GetNumFindings(const std::vector<std::size_t>& a, const std::vector<std::size_t>& b) const
{
    std::size_t count = 0;
    for (const std::size_t i : a) {
        for (const std::size_t k : b) {
            const auto found = m_findings.find(ordered(i, k));
            count += found != m_findings.end() && !found->second.places.empty() ? 1 + found->second.places.size() : 0;
        }
    }
    return count;
}

void CPlacingWeigher::addPlaces(const PlacedGroup& a, const PlacedGroup& b, std::vector<Hypothesis>& all) const
{
    // Aligned pairs first: of places that are the same, the pose of the better finding stays.
    for (const bool isAligned : {true, false}) {
        for (const std::size_t i : a.members) {
            for (const std::size_t k : b.members) {
                const auto found = m_findings.find(ordered(i, k));
                if (found == m_findings.end() || found->second.IsAligned() != isAligned) continue;
                for (const PairFinding::Place& place : found->second.places) {
                    Hypothesis hypothesis;
                    const CTrafo toFirst = i < k ? place.pose : place.pose.GetInverse(true);
                    hypothesis.pose = a.PoseOf(i) * toFirst * b.PoseOf(k).GetInverse(true);
                    hypothesis.isAligned = isAligned;
                    hypothesis.isHeld = place.isHeld;
                    hypothesis.isOpen = place.isOpen;
                    hypothesis.pair = ordered(i, k);
                    addDistinct(b, hypothesis, all);
                }
            }
        }
    }
}

bool CPlacingWeigher::addDistinct(const PlacedGroup& b, Hypothesis hypothesis, std::vector<Hypothesis>& all) const
{
    const std::size_t scan = b.members.front();
    for (Hypothesis& other : all) {
        if (m_pairs.AreDistinct(scan, hypothesis.pose * b.PoseOf(scan), other.pose * b.PoseOf(scan))) continue;
        other.isAligned = other.isAligned || hypothesis.isAligned;
        other.isOpen = other.isOpen || hypothesis.isOpen;
        if (hypothesis.pair && hypothesis.pair == other.pair) {
            // Two places to the pair itself.
            other.nearby.push_back({hypothesis.pose, hypothesis.isHeld});
            return false;
        }
        other.pair = hypothesis.pair;
        if (!hypothesis.isHeld || other.isHeld) return false;
        other.nearby.push_back({std::exchange(other.pose, hypothesis.pose), false});
        other.isHeld = true;
        return false;
    }
    all.push_back(std::move(hypothesis));
    return true;
}

/// Where much contradicts the pose, one nearby may be meant. And a place that shares no surface with the scan it comes
/// from is known to a few pixels: where it shares some with another one, it is where these two meet.
void CPlacingWeigher::weigh(const PlacedGroup& a, const PlacedGroup& b, EAsked eAsked, Hypothesis& hypothesis) const
{
    const Hypothesis blank = hypothesis;
    const auto met = weighAt(a, b, eAsked, hypothesis);
    const auto tryPose = [&](const CTrafo& pose, bool isHeld) {
        Hypothesis other = blank;
        other.pose = pose;
        other.isHeld = isHeld;
        weighAt(a, b, eAsked, other);
        if (other.isHopeless) return;
        const bool isLess = other.counts.Contradictions() < hypothesis.counts.Contradictions();
        if (hypothesis.isHopeless || isLess) hypothesis = std::move(other);
    };
    for (const Hypothesis::Nearby& nearby : blank.nearby)
        if (hypothesis.isHopeless || hypothesis.counts.Contradictions() >= uiMinMargin)
            tryPose(nearby.pose, nearby.isHeld);
    if (hypothesis.isOpen && met) tryPose(*met, blank.isHeld);
}

/// @return where the pair that matches most found that its scans meet; nothing where that is at the pose itself
std::optional<CTrafo> CPlacingWeigher::weighAt(const PlacedGroup& a, const PlacedGroup& b, EAsked eAsked,
                                               Hypothesis& hypothesis) const
{
    std::vector<std::pair<ScanPair, CTrafo>> poses;
    std::vector<ScanPair> scans; // of the first and of the second group
    for (const std::size_t i : a.members) {
        for (const std::size_t k : b.members) {
            const CTrafo moved = hypothesis.pose * b.PoseOf(k);
            const CTrafo pose = i < k ? relative(a.PoseOf(i), moved) : relative(moved, a.PoseOf(i));
            if (!m_pairs.MayMeet(ordered(i, k), pose)) continue;
            poses.emplace_back(ordered(i, k), pose);
            scans.emplace_back(i, k);
        }
    }
    const std::size_t step = eAsked == EAsked::All ? poses.size() : uiAskedAtOnce;
    Outstanding most;
    for (std::size_t first = 0; first < poses.size(); first += step) {
        const auto asked = std::span(poses).subspan(first, std::min(step, poses.size() - first));
        const std::vector<PairEvidence> said = m_pairs.Weigh(asked);
        for (std::size_t i = 0; i < said.size(); ++i) addEvidence(scans[first + i], said[i], hypothesis, most);
        if (eAsked == EAsked::All) break;
        const std::size_t left = poses.size() - first - asked.size();
        hypothesis.isHopeless = hypothesis.uiRefutations * uiSupportsPerRefutation > hypothesis.uiSupports + left;
        if (hypothesis.isHopeless) return {};
    }
    if (!most.met) return {};
    const auto [first, second] = most.scans;
    const CTrafo toFirst = first < second ? most.met : most.met.GetInverse(true);
    return a.PoseOf(first) * toFirst * b.PoseOf(second).GetInverse(true);
}

/// Motions that carry the object nearly onto itself, in the frame of a group: an ambiguous pair shows them.
void CPlacingWeigher::addSymmetries(const PlacedGroup& group, std::vector<CTrafo>& motions) const
{
    for (const auto& [pair, finding] : m_findings) {
        for (std::size_t i = 1; i < finding.places.size(); ++i) {
            const CTrafo& best = finding.places.front().pose;
            const CTrafo& other = finding.places[i].pose;
            for (const auto& [scan, motion] :
                 {std::pair{pair.first, other * best.GetInverse(true)}, {pair.second, best.GetInverse(true) * other}}) {
                if (motions.size() >= uiMaxSymmetries) return;
                if (!std::binary_search(group.members.begin(), group.members.end(), scan)) continue;
                const CTrafo& pose = group.PoseOf(scan);
                for (const CTrafo& turn : {motion, motion.GetInverse(true)})
                    motions.push_back(pose * turn * pose.GetInverse(true));
            }
        }
    }
}

void CPlacingWeigher::addTurned(const PlacedGroup& a, const PlacedGroup& b, EAsked eAsked,
                                std::vector<Hypothesis>& all) const
{
    std::vector<CTrafo> ofFirst;
    std::vector<CTrafo> ofSecond;
    addSymmetries(a, ofFirst);
    addSymmetries(b, ofSecond);
    const auto tryPose = [&](const CTrafo& pose) {
        Hypothesis hypothesis;
        hypothesis.pose = pose;
        if (addDistinct(b, hypothesis, all)) weigh(a, b, eAsked, all.back());
    };
    const CTrafo best = all.front().pose;
    for (const CTrafo& motion : ofFirst) tryPose(motion * best);
    for (const CTrafo& motion : ofSecond) tryPose(best * motion);
}

std::vector<Hypothesis> CPlacingWeigher::places(const PlacedGroup& a, const PlacedGroup& b,
                                                const std::optional<CTrafo>& present, EAsked eAsked) const
{
    std::vector<Hypothesis> all;
    addPlaces(a, b, all);
    for (Hypothesis& hypothesis : all) weigh(a, b, eAsked, hypothesis);
    if (present) {
        Hypothesis hypothesis;
        hypothesis.pose = *present;
        hypothesis.isAligned = hypothesis.isHeld = true;
        if (addDistinct(b, hypothesis, all)) weigh(a, b, eAsked, all.back());
    }
    if (eAsked == EAsked::UntilHopeless)
        std::erase_if(all, [](const Hypothesis& hypothesis) { return hypothesis.isHopeless; });
    if (all.empty()) return all;
    std::stable_sort(all.begin(), all.end(),
                     [](const Hypothesis& x, const Hypothesis& y) { return x.counts.Score() > y.counts.Score(); });
    addTurned(a, b, eAsked, all);
    return all;
}

std::vector<Hypothesis> CPlacingWeigher::StandingPlaces(const PlacedGroup& a, const PlacedGroup& b) const
{
    std::vector<Hypothesis> all = places(a, b, {}, EAsked::UntilHopeless);
    std::erase_if(all, [](const Hypothesis& hypothesis) { return !hypothesis.Stands(); });
    return all;
}

JoinDecision CPlacingWeigher::Decide(const PlacedGroup& a, const PlacedGroup& b,
                                     const std::optional<CTrafo>& present) const
{
    JoinDecision decision;
    std::vector<Hypothesis> all = places(a, b, present);
    if (all.empty()) return decision;
    const auto [refuter, refuted] = all.front().worst;
    std::erase_if(all, [](const Hypothesis& hypothesis) { return !hypothesis.Stands(); });
    if (all.empty()) {
        decision.place = {EPlace::Contradicted, 0, refuter};
        decision.uiRefuted = refuted;
        return decision;
    }
    // Two scans alone have nobody to decide between their places.
    const bool isPair = a.members.size() == 1 && b.members.size() == 1;
    const Hypothesis* const best = winner(all, beats);
    const bool isDecided = best != nullptr && best->isHeld && (best->isAligned || !isPair);
    if (!isDecided) {
        decision.place = {EPlace::Ambiguous, all.size(), 0};
        return decision;
    }
    decision.pose = best->pose;
    decision.dScore = best->counts.Score();
    return decision;
}

std::vector<CTrafo> CPlacingWeigher::startsOf(const PlacedGroup& group, std::size_t scan) const
{
    const PlacedGroup one{{scan}, group.poses};
    std::vector<CTrafo> starts;
    for (const Hypothesis& place : places(group, one)) {
        if (place.uiRefutations > place.uiSupports) continue;
        starts.push_back(place.pose * group.PoseOf(scan));
        for (const Hypothesis::Nearby& nearby : place.nearby) starts.push_back(nearby.pose * group.PoseOf(scan));
    }
    return starts;
}

/// Of several that settle in one place the one that explains the scans best.
void CPlacingWeigher::addSettled(const PlacedGroup& group, std::size_t scan, std::span<const CTrafo> starts,
                                 std::vector<Hypothesis>& all) const
{
    for (const PoseAmong& place : m_pairs.Settle(scan, starts, group.PosesBeside(scan))) {
        Hypothesis settled;
        settled.pose = place.pose * group.PoseOf(scan).GetInverse(true);
        settled.isHeld = AreFewer(place.counts, place.beside);
        weighAt(group, {{scan}, group.poses}, EAsked::UntilHopeless, settled);
        if (!settled.Stands()) continue;
        const auto same = std::ranges::find_if(all, [&](const Hypothesis& other) {
            return !m_pairs.AreDistinct(scan, place.pose, other.pose * group.PoseOf(scan));
        });
        if (same == all.end())
            all.push_back(std::move(settled));
        else if (settled.counts.Score() > same->counts.Score())
            *same = std::move(settled);
    }
}

std::size_t CPlacingWeigher::CountRivals(const PlacedGroup& others, std::size_t scan) const
{
    const CTrafo& present = others.PoseOf(scan);
    std::vector<CTrafo> starts = startsOf(others, scan);
    starts.insert(starts.begin(), present);
    for (const CTrafo& turn : m_pairs.Turns(scan)) starts.push_back(present * turn);
    std::vector<Hypothesis> all;
    addSettled(others, scan, starts, all);
    const auto own = std::ranges::find_if(
        all, [&](const Hypothesis& place) { return !m_pairs.AreDistinct(scan, place.pose * present, present); });
    if (own == all.end()) return 0;
    const auto isRival = [&](const Hypothesis& place) { return &place != &*own && !beatsSettled(*own, place); };
    return static_cast<std::size_t>(std::ranges::count_if(all, isRival));
}

CTrafo CPlacingWeigher::FindTogether(const PlacedGroup& group, std::size_t scan) const
{
    std::vector<Hypothesis> all;
    addSettled(group, scan, startsOf(group, scan), all);
    if (const Hypothesis* const first = winner(all, beatsSettled)) {
        std::vector<CTrafo> turned;
        for (const CTrafo& turn : m_pairs.Turns(scan)) turned.push_back(first->pose * group.PoseOf(scan) * turn);
        addSettled(group, scan, turned, all);
    }
    const Hypothesis* const best = winner(all, beatsSettled);
    if (best == nullptr || !best->isHeld || best->uiSupports < uiMinTogether || best->uiRefutations > 0)
        return CTrafo::Invalid();
    return best->pose * group.PoseOf(scan);
}

std::vector<PairEvidence> CPlacingWeigher::evidenceIn(const PlacedGroup& group, std::vector<ScanPair>& pairs) const
{
    std::vector<std::pair<ScanPair, CTrafo>> poses;
    for (const std::size_t b : group.members) {
        for (const std::size_t a : group.members) {
            if (a >= b) break;
            const CTrafo pose = relative(group.PoseOf(a), group.PoseOf(b));
            if (!m_pairs.MayMeet({a, b}, pose)) continue;
            pairs.emplace_back(a, b);
            poses.emplace_back(pairs.back(), pose);
        }
    }
    return m_pairs.Weigh(poses);
}

std::optional<std::size_t> CPlacingWeigher::FindRefuted(const PlacedGroup& group) const
{
    std::vector<ScanPair> pairs;
    const std::vector<PairEvidence> all = evidenceIn(group, pairs);
    std::map<std::size_t, std::pair<std::size_t, std::size_t>> votes; // supports, refutations
    for (std::size_t i = 0; i < all.size(); ++i) {
        for (const std::size_t scan : {pairs[i].first, pairs[i].second}) {
            votes[scan].first += all[i].eEvidence == EEvidence::Supports;
            votes[scan].second += all[i].eEvidence == EEvidence::Refutes;
        }
    }
    std::optional<std::size_t> worst;
    for (const auto& [scan, vote] : votes) {
        const auto& [supports, refutations] = vote;
        if (refutations * uiSupportsPerRefutation <= supports) continue;
        // Of scans that refute each other the later one goes.
        if (!worst || refutations * (votes[*worst].first + 1) >= votes[*worst].second * (supports + 1)) worst = scan;
    }
    return worst;
}

PoseCounts CPlacingWeigher::Counts(const PlacedGroup& group, const std::vector<std::size_t>& known) const
{
    std::vector<ScanPair> pairs;
    const std::vector<PairEvidence> all = evidenceIn(group, pairs);
    const auto isKnown = [&](std::size_t scan) { return std::ranges::binary_search(known, scan); };
    PoseCounts sum;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (!isKnown(pairs[i].first) || !isKnown(pairs[i].second)) sum += all[i].counts;
    return sum;
}

std::vector<PairEvidence> CPlacingWeigher::evidenceOn(const PlacedGroup& group, std::size_t scan) const
{
    std::vector<std::pair<ScanPair, CTrafo>> poses;
    for (const std::size_t other : group.members) {
        if (other == scan) continue;
        const auto pair = ordered(scan, other);
        const CTrafo pose = relative(group.PoseOf(pair.first), group.PoseOf(pair.second));
        if (m_pairs.MayMeet(pair, pose)) poses.emplace_back(pair, pose);
    }
    return m_pairs.Weigh(poses);
}

double CPlacingWeigher::Score(const PlacedGroup& group, std::size_t scan) const
{
    double sum = 0.0;
    for (const PairEvidence& evidence : evidenceOn(group, scan)) sum += evidence.counts.Score();
    return sum;
}

std::size_t CPlacingWeigher::CountSupports(const PlacedGroup& group, std::size_t scan) const
{
    const std::vector<PairEvidence> all = evidenceOn(group, scan);
    return static_cast<std::size_t>(std::ranges::count(all, EEvidence::Supports, &PairEvidence::eEvidence));
}

std::vector<std::vector<std::size_t>> CPlacingWeigher::SupportedParts(const PlacedGroup& group) const
{
    std::vector<ScanPair> pairs;
    const std::vector<PairEvidence> all = evidenceIn(group, pairs);
    std::map<std::size_t, std::size_t> part; // of each scan, by a scan of it
    for (const std::size_t scan : group.members) part[scan] = scan;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::size_t kept = part[pairs[i].first];
        const std::size_t gone = part[pairs[i].second];
        if (all[i].eEvidence != EEvidence::Supports) continue;
        for (auto& [scan, name] : part)
            if (name == gone) name = kept;
    }
    std::map<std::size_t, std::vector<std::size_t>> parts;
    for (const auto& [scan, name] : part) parts[name].push_back(scan);
    std::vector<std::vector<std::size_t>> answer;
    answer.reserve(parts.size());
    for (auto& [name, members] : parts) answer.push_back(std::move(members));
    return answer;
}

void CPlacingWeigher::PutInParts(const PlacedGroup& group, Placing& placing) const
{
    for (const std::vector<std::size_t>& part : SupportedParts(group)) {
        for (const std::size_t scan : part) {
            placing.group[scan] = part.front();
            placing.places[scan] = {part.size() > 1 ? EPlace::Placed : EPlace::Alone};
        }
    }
}

} // namespace prereg
