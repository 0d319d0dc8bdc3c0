// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/core/rigid.h"
#include "zorvan/workflow/placinggroups.h"

#include <algorithm>
#include <vector>

namespace prereg {

/// Scans where they may lie together.
struct Arrangement
{
    std::vector<std::size_t> members; ///< ascending
    std::vector<CTrafo> poses;        ///< of all scans; those of the members count
    PoseCounts counts;                ///< of all pairs
    bool isOpen = false;              ///< some scan need not share surface with those before it: matches are no measure
    bool isLaid = false;              ///< no scan slides any more

    [[nodiscard]] PlacedGroup Group() const { return {members, &poses}; }
    [[nodiscard]] bool Has(std::size_t scan) const { return std::ranges::binary_search(members, scan); }

    /// Without what is said of it.
    [[nodiscard]] Arrangement With(std::size_t scan, const CTrafo& pose) const
    {
        Arrangement more = *this;
        more.members.insert(std::ranges::lower_bound(more.members, scan), scan);
        more.poses[scan] = pose;
        more.isLaid = false;
        return more;
    }

    [[nodiscard]] Arrangement With(std::size_t scan, const Hypothesis& place) const
    {
        Arrangement more = With(scan, Rigid(place.pose * poses[scan]));
        more.counts += place.counts;
        more.isOpen = isOpen || (place.isOpen && place.uiSupports == 0);
        return more;
    }
};

using Arrangements = std::vector<Arrangement>;

/// While scans come in, matches are no measure for those that are open; in the end half of the matches are missing
/// where half of the scans find no place.
enum class EStage
{
    Growing,
    Final
};

/// Compares arrangements of the same scans.
class CArrangementWeigher
{
public:
    CArrangementWeigher(const IScanPairs& pairs, const CPlacingWeigher& weigher) : m_pairs(pairs), m_weigher(weigher) {}

    /// The largest part of the first one that lies the same way in all of them.
    [[nodiscard]] Arrangement Agreed(const Arrangements& arrangements) const;
    /// The largest part, as far as a start with each scan tells, of which no other one has two scans otherwise.
    [[nodiscard]] Arrangement Undisputed(Arrangement group, const Arrangements& others) const;
    /// By what is said of all scans, or of those that are in both.
    [[nodiscard]] bool IsRuledOut(const Arrangement& arrangement, const Arrangement& beside, bool isByMatches) const;
    /// Those that none of the others rules out, the ones with the fewest contradictions first.
    [[nodiscard]] Arrangements WithoutRuledOut(const Arrangements& all, EStage eStage) const;
    /// Without what lies as an earlier one: a scan that settles from two sides stops here and there.
    [[nodiscard]] Arrangements EachOnce(const Arrangements& all) const;
    /// What is left where scans lie exactly: while they slide, the right ones contradict each other by hundreds, and
    /// then hardly at all. After a stop it is of no use.
    [[nodiscard]] Arrangements LaidAnew(Arrangements all, const Zorvan::Hooks& hooks) const;

private:
    /// @param laid  others that have been: what most scans share with one of them lies as there
    [[nodiscard]] Arrangement laidAnew(const Arrangement& arrangement, const Arrangements& laid,
                                       const Zorvan::Hooks& hooks) const;
    /// With scans that only another one has found places for, if nothing speaks against these.
    /// @param like  most scans lie in the same places there
    [[nodiscard]] Arrangement completed(Arrangement arrangement, const Arrangement& like) const;
    /// By what pairs say that do not lie the same way in both.
    [[nodiscard]] bool isRuledOutWhereTheyDiffer(const Arrangement& arrangement, const Arrangement& beside) const;
    /// Scans that lie the same way beside one in all of them.
    [[nodiscard]] std::vector<std::size_t> agreedWith(std::size_t scan, const Arrangements& arrangements) const;
    /// Whether two scans lie the same way beside each other.
    [[nodiscard]] bool areAlike(std::size_t scan, std::size_t other, const Arrangement& a, const Arrangement& b) const;

    const IScanPairs& m_pairs;
    const CPlacingWeigher& m_weigher;
};

} // namespace prereg
