// SPDX-License-Identifier: MIT
#include "zorvan/workflow/arrangement.h"

#include "zorvan/workflow/layinganew.h"

#include <functional>
#include <iterator>
#include <utility>

namespace prereg {

namespace {

using Members = std::vector<std::size_t>;

Members commonOf(const Arrangement& a, const Arrangement& b)
{
    Members common;
    std::ranges::set_intersection(a.members, b.members, std::back_inserter(common));
    return common;
}

/// The ones with the fewest contradictions first.
template <class RulesOut>
Arrangements leftOf(const Arrangements& all, const RulesOut& isOut)
{
    Arrangements left;
    for (const Arrangement& arrangement : all) {
        const auto rulesOut = [&](const Arrangement& other) { return isOut(arrangement, other); };
        if (std::ranges::none_of(all, rulesOut)) left.push_back(arrangement);
    }
    std::ranges::stable_sort(left, {},
                             [](const Arrangement& arrangement) { return arrangement.counts.Contradictions(); });
    return left;
}

} // namespace

Arrangement CArrangementWeigher::Agreed(const Arrangements& arrangements) const
{
    if (arrangements.empty()) return {};
    Arrangement largest = arrangements.front();
    largest.members.clear();
    for (const std::size_t scan : arrangements.front().members) {
        Members members = agreedWith(scan, arrangements);
        if (members.size() > largest.members.size()) largest.members = std::move(members);
    }
    return largest;
}

Arrangement CArrangementWeigher::Undisputed(Arrangement group, const Arrangements& others) const
{
    const auto isDisputed = [&](std::size_t scan, std::size_t with) {
        return std::ranges::any_of(others, [&](const Arrangement& other) {
            return other.Has(scan) && other.Has(with) && !areAlike(scan, with, group, other);
        });
    };
    Members largest;
    for (const std::size_t first : group.members) {
        Members part{first};
        for (const std::size_t scan : group.members) {
            const auto isWith = [&](std::size_t with) { return with == scan || isDisputed(scan, with); };
            if (std::ranges::none_of(part, isWith)) part.push_back(scan);
        }
        if (part.size() > largest.size()) largest = std::move(part);
    }
    std::ranges::sort(largest);
    group.members = std::move(largest);
    return group;
}

bool CArrangementWeigher::IsRuledOut(const Arrangement& arrangement, const Arrangement& beside, bool isByMatches) const
{
    if (AreRuledOut(arrangement.counts, beside.counts, isByMatches)) return true;
    if (arrangement.members == beside.members) return false;
    const Members common = commonOf(arrangement, beside);
    return AreRuledOut(m_weigher.Counts({common, &arrangement.poses}), m_weigher.Counts({common, &beside.poses}),
                       isByMatches);
}

Arrangements CArrangementWeigher::WithoutRuledOut(const Arrangements& all, EStage eStage) const
{
    return leftOf(all, [&](const Arrangement& arrangement, const Arrangement& beside) {
        return IsRuledOut(arrangement, beside, eStage == EStage::Final || !arrangement.isOpen);
    });
}

Arrangements CArrangementWeigher::LaidAnew(Arrangements all, const Zorvan::Hooks& hooks) const
{
    if (all.size() < 2) return all;
    // What has placed most says where others may have what they lack.
    std::ranges::stable_sort(all, std::greater(), [](const Arrangement& one) { return one.members.size(); });
    Arrangements laid;
    std::ranges::copy_if(all, std::back_inserter(laid), &Arrangement::isLaid);
    for (const Arrangement& arrangement : all)
        if (!arrangement.isLaid && !hooks.IsAborted()) laid.push_back(laidAnew(arrangement, laid, hooks));
    return EachOnce(leftOf(laid, [&](const Arrangement& arrangement, const Arrangement& beside) {
        return IsRuledOut(arrangement, beside, true) || isRuledOutWhereTheyDiffer(arrangement, beside);
    }));
}

Arrangement CArrangementWeigher::laidAnew(const Arrangement& arrangement, const Arrangements& laid,
                                          const Zorvan::Hooks& hooks) const
{
    const Arrangement* like = nullptr;
    Members shared;
    for (const Arrangement& other : laid) {
        Members same = Agreed({other, arrangement}).members;
        if (2 * same.size() <= arrangement.members.size() || same.size() <= shared.size()) continue;
        shared = std::move(same);
        like = &other;
    }
    Arrangement anew = arrangement;
    anew.isLaid = true;
    anew.poses = LaidPoses(m_pairs, m_weigher, arrangement.Group(),
                           {shared, like == nullptr ? &arrangement.poses : &like->poses}, hooks);
    anew.counts = m_weigher.Counts(anew.Group());
    if (anew.counts.Score() < arrangement.counts.Score()) return arrangement;
    return like == nullptr ? anew : completed(anew, *like);
}

Arrangement CArrangementWeigher::completed(Arrangement arrangement, const Arrangement& like) const
{
    for (const std::size_t scan : like.members) {
        if (arrangement.Has(scan)) continue;
        Arrangement more = arrangement.With(scan, like.poses[scan]);
        more.isLaid = true;
        const PoseCounts counts = m_weigher.Counts(more.Group(), arrangement.members);
        if (AreFewer({}, counts)) continue;
        more.counts += counts;
        arrangement = std::move(more);
    }
    return arrangement;
}

bool CArrangementWeigher::isRuledOutWhereTheyDiffer(const Arrangement& arrangement, const Arrangement& beside) const
{
    const Members same = Agreed({arrangement, beside}).members;
    const Members common = commonOf(arrangement, beside);
    return AreRuledOut(m_weigher.Counts({common, &arrangement.poses}, same),
                       m_weigher.Counts({common, &beside.poses}, same));
}

Arrangements CArrangementWeigher::EachOnce(const Arrangements& all) const
{
    Arrangements once;
    for (const Arrangement& arrangement : all) {
        const auto isSame = [&](const Arrangement& other) {
            return other.members == arrangement.members && Agreed({other, arrangement}).members == other.members;
        };
        if (std::ranges::none_of(once, isSame)) once.push_back(arrangement);
    }
    return once;
}

Members CArrangementWeigher::agreedWith(std::size_t scan, const Arrangements& arrangements) const
{
    const Arrangement& best = arrangements.front();
    Members members;
    for (const std::size_t other : best.members) {
        const auto isSame = [&](const Arrangement& arrangement) {
            return arrangement.Has(scan) && arrangement.Has(other) && areAlike(scan, other, best, arrangement);
        };
        if (std::ranges::all_of(arrangements, isSame)) members.push_back(other);
    }
    return members;
}

bool CArrangementWeigher::areAlike(std::size_t scan, std::size_t other, const Arrangement& a,
                                   const Arrangement& b) const
{
    const CTrafo onto = a.poses[scan] * b.poses[scan].GetInverse(true);
    return !m_pairs.AreDistinct(other, onto * b.poses[other], a.poses[other]);
}

} // namespace prereg
