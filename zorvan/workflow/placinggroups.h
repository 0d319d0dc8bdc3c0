// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/placing.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace prereg {

/// Some scans and their poses in a common frame.
struct PlacedGroup
{
    std::vector<std::size_t> members; ///< ascending
    const std::vector<CTrafo>* poses; ///< of all scans; those of the members count

    [[nodiscard]] const CTrafo& PoseOf(std::size_t scan) const { return (*poses)[scan]; }
    /// Of all members but one.
    [[nodiscard]] std::vector<std::pair<std::size_t, CTrafo>> PosesBeside(std::size_t scan) const
    {
        std::vector<std::pair<std::size_t, CTrafo>> others;
        for (const std::size_t member : members)
            if (member != scan) others.emplace_back(member, PoseOf(member));
        return others;
    }
};

/// A pose that would join two groups, with what all their pairs say of it.
struct Hypothesis
{
    /// The same place, as some pair found it too, or another place so near to it that a chain of poses may be off by as
    /// much.
    struct Nearby
    {
        CTrafo pose;
        bool isHeld = false;
    };

    CTrafo pose = CTrafo::Invalid();   ///< second to first group
    std::vector<Nearby> nearby;        ///< to be weighed where much contradicts the pose
    std::optional<ScanPair> pair;      ///< the last that found it
    bool isAligned = false;            ///< a pair is aligned there
    bool isHeld = false;               ///< a pair holds it in all directions
    bool isOpen = false;               ///< it may be the truth though hardly any surface is shared there
    PoseCounts counts;                 ///< of all pairs
    std::size_t uiSupports = 0;        ///< pairs
    std::vector<std::size_t> refuters; ///< scans of the first group that refute it, ascending
    std::size_t uiRefutations = 0;     ///< pairs
    ScanPair worst;                    ///< scans of the first and of the second group with the most contradictions
    bool isHopeless = false;           ///< it does not stand whatever the pairs say that were not asked any more

    /// Hardly a pair refutes it. One in five may: a sensor loses surface for reasons that nobody foresees.
    [[nodiscard]] bool Stands() const;
};

/// Whether all pairs together contradict poses by a margin less than others: by 30 samples, and half as much at most.
[[nodiscard]] ZORVAN_WORKFLOW_API bool AreFewer(const PoseCounts& a, const PoseCounts& b);

/// Whether poses of which all pairs together say `a` are better than others of the same scans. Fewer contradictions
/// count for more than matches: sides that look alike, folded onto each other, match more than they do where they
/// belong. But scans apart have none, so matches must not be less than half.
[[nodiscard]] ZORVAN_WORKFLOW_API bool AreBetter(const PoseCounts& a, const PoseCounts& b);

/// Whether poses of scans of which all pairs together say `a` are ruled out beside others of which they say `b`: by a
/// margin more contradicts them, and they match less than twice as much; or they match less than half as much.
/// @param isByMatches  false: they need not share surface, so that matches are no measure
[[nodiscard]] ZORVAN_WORKFLOW_API bool AreRuledOut(const PoseCounts& a, const PoseCounts& b, bool isByMatches = true);

struct JoinDecision
{
    CTrafo pose = CTrafo::Invalid(); ///< second to first group
    double dScore = 0.0;
    ScanPlace place;           ///< why not; of a contradicted one the refuter is a scan of the first group
    std::size_t uiRefuted = 0; ///< by it, of the second group

    [[nodiscard]] explicit operator bool() const { return static_cast<bool>(pose); }
};

/// Weighs what groups of scans say of each other.
class CPlacingWeigher
{
public:
    explicit CPlacingWeigher(IScanPairs& pairs) : m_pairs(pairs) {}
    /// With all that has been found.
    CPlacingWeigher(IScanPairs& pairs, const Placing& placing);

    /// The last one for a pair counts.
    void AddFinding(ScanPair pair, PairFinding finding);
    [[nodiscard]] const std::map<ScanPair, PairFinding>& GetFindings() const { return m_findings; }
    /// Of pairs between two groups that have places.
    [[nodiscard]] std::size_t GetNumFindings(const std::vector<std::size_t>& a,
                                             const std::vector<std::size_t>& b) const;

    /// Of the places that findings or near symmetries of the object suggest the ones that stand. The first are those
    /// that findings suggest, best first.
    [[nodiscard]] std::vector<Hypothesis> StandingPlaces(const PlacedGroup& a, const PlacedGroup& b) const;
    /// The pose that beats all others, near symmetries of the object included, or why there is none.
    /// @param present  where the second group is now, which is a hypothesis too
    [[nodiscard]] JoinDecision Decide(const PlacedGroup& a, const PlacedGroup& b,
                                      const std::optional<CTrafo>& present = {}) const;
    /// The pose of a scan that no pair places by itself: each place is moved to where the scan fits all of the group
    /// best, all of these together have to hold it there, and it has to beat the others, and itself turned.
    /// @return  in the frame of the group; invalid where there is none
    [[nodiscard]] CTrafo FindTogether(const PlacedGroup& group, std::size_t scan) const;
    /// Other places in which a scan fits others as well, moved there and here to where it fits them best: two places
    /// that are each a pixel or two off may seem to be told apart. None where the scan does not fit where it is.
    /// @param others  its group without it; the present pose of the scan is in their frame
    [[nodiscard]] std::size_t CountRivals(const PlacedGroup& others, std::size_t scan) const;
    /// The scans of a group that would go along if one of them went elsewhere: those that refute the others that go,
    /// and find less that contradicts them when they go too. Ascending.
    /// @param stays   a scan that does not go
    /// @param motion  of those that go, in the frame of the group
    [[nodiscard]] std::vector<std::size_t> PartThatGoes(const PlacedGroup& group, std::size_t stays, std::size_t goes,
                                                        const CTrafo& motion) const;
    /// The scan that the others of its group refute most; nothing when they refute none.
    [[nodiscard]] std::optional<std::size_t> FindRefuted(const PlacedGroup& group) const;
    /// What the pairs of a group say of it, together.
    /// @param known  some scans, ascending: pairs of these are left out
    [[nodiscard]] PoseCounts Counts(const PlacedGroup& group, const std::vector<std::size_t>& known = {}) const;
    /// What those of one of its scans say for its pose.
    [[nodiscard]] double Score(const PlacedGroup& group, std::size_t scan) const;
    /// Pairs of a scan that support its pose in the group.
    [[nodiscard]] std::size_t CountSupports(const PlacedGroup& group, std::size_t scan) const;
    /// Scans that pairs hold together, directly or along others; a part is ascending.
    [[nodiscard]] std::vector<std::vector<std::size_t>> SupportedParts(const PlacedGroup& group) const;
    /// Makes a group of each such part; scans that are left by themselves are alone.
    void PutInParts(const PlacedGroup& group, Placing& placing) const;

private:
    /// Which pairs are asked about a hypothesis.
    enum class EAsked
    {
        All,
        UntilHopeless
    };

    /// All hypotheses: those that findings suggest, and the present pose, best first, then turned ones.
    [[nodiscard]] std::vector<Hypothesis> places(const PlacedGroup& a, const PlacedGroup& b,
                                                 const std::optional<CTrafo>& present = {},
                                                 EAsked eAsked = EAsked::All) const;
    void addPlaces(const PlacedGroup& a, const PlacedGroup& b, std::vector<Hypothesis>& all) const;
    void addTurned(const PlacedGroup& a, const PlacedGroup& b, EAsked eAsked, std::vector<Hypothesis>& all) const;
    bool addDistinct(const PlacedGroup& b, Hypothesis hypothesis, std::vector<Hypothesis>& all) const;
    void weigh(const PlacedGroup& a, const PlacedGroup& b, EAsked eAsked, Hypothesis& hypothesis) const;
    std::optional<CTrafo> weighAt(const PlacedGroup& a, const PlacedGroup& b, EAsked eAsked,
                                  Hypothesis& hypothesis) const;
    /// Of a scan: where pairs have found it beside the group, or near symmetries carry it.
    [[nodiscard]] std::vector<CTrafo> startsOf(const PlacedGroup& group, std::size_t scan) const;
    void addSettled(const PlacedGroup& group, std::size_t scan, std::span<const CTrafo> starts,
                    std::vector<Hypothesis>& all) const;
    [[nodiscard]] PairEvidence weighPair(std::size_t i, const CTrafo& poseI, std::size_t k, const CTrafo& poseK) const;
    /// Of one scan with each of the others.
    [[nodiscard]] std::vector<PairEvidence> evidenceOn(const PlacedGroup& group, std::size_t scan) const;
    [[nodiscard]] std::vector<PairEvidence> evidenceIn(const PlacedGroup& group, std::vector<ScanPair>& pairs) const;
    void addSymmetries(const PlacedGroup& group, std::vector<CTrafo>& motions) const;

    IScanPairs& m_pairs;
    std::map<ScanPair, PairFinding> m_findings;
};

} // namespace prereg
