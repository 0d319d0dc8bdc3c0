// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/hooks.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/settleamong.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/likelyscans.h"
#include "zorvan/workflow/pairfinding.h"

#include <cstddef>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace prereg {

/// Two scans by their numbers, the smaller one first; poses map the second into the frame of the first.
using ScanPair = std::pair<std::size_t, std::size_t>;

/// What two scans say of a pose that others brought about.
enum class EEvidence
{
    Silent,
    Supports,
    Refutes
};

struct PairEvidence
{
    EEvidence eEvidence = EEvidence::Silent;
    PoseCounts counts;
    CTrafo met = CTrafo::Invalid(); ///< near the pose, where the scans were found to meet; invalid: at the pose itself
};

/// All that placing asks of the scans. Tests make theirs up.
class ZORVAN_WORKFLOW_API IScanPairs
{
public:
    virtual ~IScanPairs();

    [[nodiscard]] virtual std::size_t GetNumScans() const = 0;
    /// Searches pairs, side by side where it can.
    /// @param isThorough  false: cheap, and hence of no avail for many pairs
    /// @return            one a pair; fewer when the hooks stop it
    [[nodiscard]] virtual std::vector<PairFinding> Search(std::span<const ScanPair> pairs, bool isThorough,
                                                          const Zorvan::Hooks& hooks) = 0;
    /// Of many scans: which may share surface, as far as that can be told without a search.
    [[nodiscard]] virtual LikelyScans FindLikely() const = 0;
    /// Whether the cheap search may find something.
    [[nodiscard]] virtual bool IsWorthAGlance(ScanPair pair) const = 0;
    /// Weighs poses, one a pair. Each may be off by what a chain of poses adds up to.
    [[nodiscard]] virtual std::vector<PairEvidence> Weigh(std::span<const std::pair<ScanPair, CTrafo>> poses) const = 0;
    /// Whether the scans may share surface at a pose; where they cannot, they have nothing to say of it.
    [[nodiscard]] virtual bool MayMeet(ScanPair pair, const CTrafo& pose) const = 0;
    /// Whether two poses of a scan are places of their own.
    [[nodiscard]] virtual bool AreDistinct(std::size_t scan, const CTrafo& a, const CTrafo& b) const = 0;
    /// Motions of a scan in its own frame after which it may look much the same, whether a pair has found them or not.
    [[nodiscard]] virtual std::vector<CTrafo> Turns(std::size_t scan) const;
    /// Moves poses of a scan to where it fits some others together best.
    /// @param others  with their poses
    /// @return        what is left where those that are near to each other become one, and hopeless ones none
    [[nodiscard]] virtual std::vector<PoseAmong> Settle(std::size_t scan, std::span<const CTrafo> poses,
                                                        std::span<const std::pair<std::size_t, CTrafo>> others) const;

    /// Moves scans that lie a fraction of a spacing off, all at once, to where their surfaces meet best.
    /// @param scans  with their poses
    /// @return       a pose each
    [[nodiscard]] virtual std::vector<CTrafo>
    RefineJointly(std::span<const std::pair<std::size_t, CTrafo>> scans) const;

protected:
    IScanPairs() = default;
    IScanPairs(const IScanPairs&) = default;
    IScanPairs(IScanPairs&&) = default;
    IScanPairs& operator=(const IScanPairs&) = default;
    IScanPairs& operator=(IScanPairs&&) = default;
};

/// What became of a scan.
enum class EPlace
{
    Placed,
    Ambiguous,    ///< several places explain it equally well
    Contradicted, ///< each place that was found is refuted by other scans
    Alone         ///< no place was found
};

struct ScanPlace
{
    EPlace ePlace = EPlace::Alone;
    std::size_t uiPlaces = 0;  ///< of an ambiguous one
    std::size_t uiRefuter = 0; ///< of a contradicted one: the scan that speaks against it most
    std::size_t uiUntried = 0; ///< of one without a place: scans that it was not searched with, as there are too many
    bool isOfEither = false;   ///< of an ambiguous one: the others are of objects that differ in what it does not show
};

/// Scans in groups, each with a frame of its own.
struct Placing
{
    std::vector<std::size_t> group;    ///< of each scan; a group is named by the smallest number of its scans
    std::vector<CTrafo> poses;         ///< of each scan in the frame of its group
    std::vector<ScanPlace> places;     ///< why each scan is where it is
    std::vector<PairFinding> findings; ///< of each pair that was searched
    std::vector<ScanPair> searched;    ///< as many, in the order of the search
    std::set<ScanPair> settled;        ///< of these, pairs that no search would say more of

    /// Every scan for itself.
    [[nodiscard]] ZORVAN_WORKFLOW_API static Placing Apart(std::size_t numScans);
    /// Of its groups.
    [[nodiscard]] ZORVAN_WORKFLOW_API std::set<std::size_t> Names() const;
    [[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::size_t> MembersOf(std::size_t name) const;
    /// Members of the first of several.
    [[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::size_t> LargestGroup() const;
};

/// What pairs between groups may cost.
enum class EPairEffort
{
    Glances, ///< cheap searches, each scan with a few others, one apart from most with 31: for what a merge of the
             ///< first pairs that fit has left over
    All      ///< cheap searches of all pairs, and thorough ones where these find nothing; of the latter each scan has
             ///< 31 that it wants, so that of up to 32 scans all pairs are searched
};

/// Puts scans into common frames, so that all pairs of a group agree, not only those that were found.
///
/// Aligned pairs are joined first, best first; whatever a join brings together is weighed pair by pair, and
/// contradictions add up: it stands where hardly a pair refutes it, and where each other place that was found, or that
/// a near symmetry of the object suggests, is worse by a margin. Ambiguous pairs wait until the scans around them
/// decide. At the end each scan is weighed against all others once more; one that they refute is taken out, and one
/// that fits better elsewhere moves there. What stays out has no place, or several.
///
/// Pairs are searched in the order of the list, neighbours first; of more than 32 scans those first that are likely to
/// share surface.
///
/// @param start  groups to go on with: they are weighed first, and what does not hold is taken out; pairs that it says
///               were searched are not searched again
/// Same pairs, same placing. A stop ends it with what has been placed until then.
[[nodiscard]] ZORVAN_WORKFLOW_API Placing PlaceScans(IScanPairs& pairs, Placing start, const Zorvan::Hooks& hooks,
                                                     EPairEffort eEffort = EPairEffort::All);

/// A pair after all: what its search found, and what the two scans say of the poses that they have now.
struct PairStanding
{
    ScanPair pair;
    std::optional<PairFinding> finding; ///< of the last search; nothing: none was needed
    std::optional<std::size_t> kept;    ///< which of its places the poses agree with; nothing: none, or apart
    bool isTogether = false;            ///< in one group
    PairEvidence evidence;              ///< on their poses, when they are together
};

/// Pairs that were searched or lie in one group and have something to say, in ascending order.
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<PairStanding> WeighPairs(const IScanPairs& pairs, const Placing& placing);

/// Loops of pairs that support their poses, of which none consists of others: each closes, or it would refute them.
[[nodiscard]] ZORVAN_WORKFLOW_API std::size_t CountLoops(std::span<const PairStanding> pairs, std::size_t numScans);

/// For people: "registered", "ambiguous: fits equally well in two places", "contradicted by b.ply", "alone", "alone,
/// not tried with 68 others".
[[nodiscard]] ZORVAN_WORKFLOW_API std::string PlaceWords(const ScanPlace& place, const std::string& refuter);

} // namespace prereg
