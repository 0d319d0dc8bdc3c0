// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/orientedbox.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/preregistration/cjudgedsearch.h"
#include "zorvan/verdict/disputedspots.h"
#include "zorvan/workflow/placing.h"
#include "zorvan/workflow/session.h"

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace prereg {

/// The scans of a session, searched and weighed as `Align` does it. A view is made of the points of the session, so
/// that a scan that comes tomorrow is weighed as one that came today.
class CScanPairs : public IScanPairs
{
public:
    /// @param group  where pairs are searched and weighed side by side
    CScanPairs(const CSession& session, CSession::Group group);

    [[nodiscard]] std::size_t GetNumScans() const override { return m_scans.size(); }
    [[nodiscard]] std::vector<PairFinding> Search(std::span<const ScanPair> pairs, bool isThorough,
                                                  const Zorvan::Hooks& hooks) override;
    [[nodiscard]] LikelyScans FindLikely() const override;
    [[nodiscard]] bool IsWorthAGlance(ScanPair pair) const override;
    [[nodiscard]] std::vector<PairEvidence> Weigh(std::span<const std::pair<ScanPair, CTrafo>> poses) const override;
    [[nodiscard]] bool MayMeet(ScanPair pair, const CTrafo& pose) const override;
    [[nodiscard]] bool AreDistinct(std::size_t scan, const CTrafo& a, const CTrafo& b) const override;
    [[nodiscard]] std::vector<CTrafo> Turns(std::size_t scan) const override;
    [[nodiscard]] std::vector<PoseAmong> Settle(std::size_t scan, std::span<const CTrafo> poses,
                                                std::span<const std::pair<std::size_t, CTrafo>> others) const override;

    /// Whether somebody gave the poses of both: a search weighs these first.
    [[nodiscard]] bool HaveStarts(ScanPair pair) const;
    [[nodiscard]] std::vector<CTrafo>
    RefineJointly(std::span<const std::pair<std::size_t, CTrafo>> scans) const override;

    /// Spots that the scans of a group divide about; views are numbers of its members.
    /// @param pairs  what WeighPairs says of the placing
    [[nodiscard]] std::vector<DisputedSpot> FindDisputes(const std::vector<std::size_t>& members,
                                                         const std::vector<CTrafo>& poses,
                                                         std::span<const PairStanding> pairs) const;

    /// Whether the surfaces lie on each other there, as those of a pair that is accepted without looking at sensors.
    [[nodiscard]] bool MeetAt(ScanPair pair, const CTrafo& pose) const;

private:
    struct Scan
    {
        SearchedScan searched;
        CTrafo start = CTrafo::Invalid(); ///< what the caller gave
        bool isPlane = false;             ///< made of planes: what the features find is never the last word
        OrientedBox box{};
    };
    /// Of a scan: others where they lie, and their surface as one.
    struct Surroundings
    {
        std::shared_ptr<const CPointSet> surface;
        ScanSampling sampling; ///< of the coarsest
        std::vector<ScanBeside> scans;
        std::vector<std::shared_ptr<const CPoseJudge>> judges;
    };
    struct Weighed
    {
        CTrafo pose;
        kdtree::Vector<3> middle; ///< of the second scan at the pose
        PairEvidence evidence;
    };
    struct Known
    {
        std::shared_ptr<const CPoseJudge> judge;
        std::vector<Weighed> weighed;
    };

    [[nodiscard]] PairFinding search(ScanPair pair, bool isThorough, const Zorvan::Hooks& hooks) const;
    [[nodiscard]] PairFinding weighStart(ScanPair pair) const;
    [[nodiscard]] PairFinding findingOf(ScanPair pair, const CJudgedSearch& search) const;
    [[nodiscard]] PairEvidence weigh(ScanPair pair, const CTrafo& pose) const;
    [[nodiscard]] PairEvidence weighAnew(ScanPair pair, const CPoseJudge& judge, const CTrafo& pose) const;
    /// What was said of the pose before.
    [[nodiscard]] std::optional<PairEvidence> findWeighed(ScanPair pair, const CTrafo& pose) const;
    [[nodiscard]] Surroundings surroundingsOf(std::size_t scan,
                                              std::span<const std::pair<std::size_t, CTrafo>> others) const;
    [[nodiscard]] double pixelOf(std::size_t scan) const;
    [[nodiscard]] std::shared_ptr<const CPoseJudge> judgeOf(ScanPair pair) const;

    CSession::Group m_group;
    ConfigurationFPFH m_config;
    std::vector<Scan> m_scans;
    mutable std::mutex m_mutex;
    mutable std::map<ScanPair, Known> m_known;
    mutable std::size_t m_numJudges = 0; ///< of the known pairs
};

} // namespace prereg
