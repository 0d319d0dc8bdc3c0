// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/core/hooks.h"
#include "zorvan/workflow/disputerow.h"
#include "zorvan/workflow/knownpairs.h"
#include "zorvan/workflow/placing.h"
#include "zorvan/workflow/scanpairs.h"
#include "zorvan/workflow/session.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace prereg {

/// Puts the scans of a session where all pairs agree. Goes on where it stopped when it is asked again, and where an
/// earlier run on the session did: pairs that it searched are not searched again, and the places that it found for them
/// count as rivals still.
class CArranger
{
public:
    CArranger(const CSession& session, const CSession::Group& group, EPairEffort eEffort);

    /// For CClusterRegistration::SetArranger.
    std::vector<CClusterRegistration::Trafos> Arrange(const CClusterRegistration::ClusterContents& clusters,
                                                      const Zorvan::Hooks& hooks);
    /// Where no group has come about, see StartJointly. @return whether groups have changed
    bool ArrangeAnew(CClusterRegistration& registration, const Zorvan::Hooks& hooks);
    /// Asks all scans together about each, see LayAnew, PlaceTogether and TakeOutUnsure.
    void ArrangeTogether(CClusterRegistration& registration, const Zorvan::Hooks& hooks);
    /// Whether clusters lie apart, or pairs are at odds about the poses within one. Where none supports them, what is
    /// known of the sensors may not suit these scans, and a refutation counts only when the surfaces do not meet
    /// either.
    [[nodiscard]] bool FindsFault(const CClusterRegistration& registration);
    /// Divides clusters whose scans are of objects that differ in some spot. @return what about
    std::vector<Dispute> Divide(CClusterRegistration& registration);

    [[nodiscard]] const Placing& GetPlacing() const { return m_placing; }
    [[nodiscard]] std::vector<PairStanding> GetPairs() const { return WeighPairs(m_pairs, m_placing); }
    /// What searches have found until now, for the session to keep. Not of pairs whose poses somebody gave: what those
    /// are worth depends on the poses, which may be others tomorrow.
    [[nodiscard]] KnownPairs GetKnownPairs() const;
    /// "19 of 66 pairs searched, 12 of these in earlier runs; 31 support the poses, 0 refute them, 20 loops closed"
    [[nodiscard]] std::string Words(std::span<const PairStanding> pairs) const;

private:
    void takeKnown(const KnownPairs& known);
    void apply(CClusterRegistration& registration) const;
    [[nodiscard]] std::vector<CClusterRegistration::Trafos> clustersOf(const Placing& placing) const;
    /// @return who belongs to no part
    std::vector<std::size_t> divide(const std::vector<std::size_t>& members, std::span<const DisputedSpot> spots);
    /// Groups and poses as the clusters have them; what has been searched stays known.
    void take(const std::vector<CClusterRegistration::Trafos>& clusters);

    CScanPairs m_pairs;
    EPairEffort m_eEffort;
    std::vector<UniversalUniqueID> m_ids; ///< of the scans, by their numbers
    Placing m_placing;
    std::size_t m_numKnown = 0; ///< of the searched pairs: by earlier runs
};

} // namespace prereg
