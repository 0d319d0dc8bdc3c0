// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/placing.h"

#include <cmath>
#include <map>
#include <set>
#include <utility>
#include <vector>

/// Scans on a line, `truth` apart. A pair supports its true pose and refutes all others, unless it is told otherwise.
class CPuzzle : public prereg::IScanPairs
{
public:
    using ScanPair = prereg::ScanPair;

    explicit CPuzzle(std::vector<float> truth) : m_truth(std::move(truth)) {}

    [[nodiscard]] static prereg::CTrafo At(float x)
    {
        return {kdtree::Vector<3>(1, 0, 0), {0, 1, 0}, {0, 0, 1}, {x, 0, 0}};
    }
    [[nodiscard]] float Apart(ScanPair pair) const { return m_truth[pair.second] - m_truth[pair.first]; }

    /// The pose of b in the frame of a; several make the pair ambiguous.
    void Find(std::size_t a, std::size_t b, const std::vector<float>& places)
    {
        prereg::PairFinding& finding = m_findings[{a, b}];
        finding.eVerdict = places.size() == 1 ? prereg::EPairVerdict::Aligned : prereg::EPairVerdict::Ambiguous;
        for (const float x : places) finding.places.push_back({At(x), counts(true), true});
    }
    /// A place where the pair by itself may slide.
    void FindLoose(std::size_t a, std::size_t b, float x)
    {
        prereg::PairFinding& finding = m_findings[{a, b}];
        finding.eVerdict = prereg::EPairVerdict::Ambiguous;
        finding.places.push_back({At(x), counts(true), false});
    }
    /// Scans that slide over all others together, too.
    void LetSlide(std::size_t scan) { m_slides.insert(scan); }
    /// Another place, which need not share any surface.
    void FindOpen(std::size_t a, std::size_t b, float x)
    {
        prereg::PairFinding& finding = m_findings[{a, b}];
        finding.eVerdict = prereg::EPairVerdict::Ambiguous;
        finding.places.push_back({At(x), {}, false, true});
    }
    void FindTrue(std::size_t a, std::size_t b) { Find(a, b, {Apart({a, b})}); }
    /// Scans that cannot tell two poses of the pair apart.
    void Confuse(std::size_t a, std::size_t b, float x) { m_alsoRight[{a, b}] = x; }
    void Forget(std::size_t a, std::size_t b) { m_findings.erase({a, b}); }
    /// What a pair counts at one of the poses that it supports.
    void Count(std::size_t a, std::size_t b, float x, unsigned matched, unsigned contradictions)
    {
        m_counts[{a, b}].emplace_back(x, counts(true));
        prereg::PoseCounts& last = m_counts[{a, b}].back().second;
        last.uiMatched = matched;
        last.uiInFront = contradictions;
    }
    /// Pairs that support poses up to so far off, as flat faces do.
    void LetPairsSlide(float by) { m_play = by; }
    /// Scans that cannot have common surface.
    void PutFar(std::size_t a, std::size_t b) { m_far.insert({a, b}); }
    /// Scans without common surface: they say nothing of their true pose.
    void Part(std::size_t a, std::size_t b) { m_apart.insert({a, b}); }
    /// What looks alike before it is searched.
    void Suggest(std::size_t a, std::size_t b, double votes)
    {
        m_likely.resize(m_truth.size());
        m_likely[a][b] = m_likely[b][a] = votes;
    }
    /// Of scans put far, how many pairs were weighed nevertheless.
    [[nodiscard]] std::size_t GetNumFarWeighed() const { return m_farWeighed; }
    [[nodiscard]] const std::map<ScanPair, prereg::PairFinding>& GetFindings() const { return m_findings; }

    [[nodiscard]] std::size_t GetNumScans() const override { return m_truth.size(); }
    [[nodiscard]] prereg::LikelyScans FindLikely() const override { return m_likely; }
    [[nodiscard]] bool IsWorthAGlance(ScanPair) const override { return true; }
    [[nodiscard]] std::vector<prereg::PairFinding> Search(std::span<const ScanPair> pairs, bool,
                                                          const Zorvan::Hooks&) override
    {
        std::vector<prereg::PairFinding> found;
        for (const ScanPair& pair : pairs) found.push_back(m_findings[pair]);
        return found;
    }
    [[nodiscard]] prereg::EEvidence EvidenceOf(ScanPair pair, float x) const
    {
        const auto also = m_alsoRight.find(pair);
        if (also != m_alsoRight.end() && std::abs(x - also->second) < m_play) return prereg::EEvidence::Supports;
        if (std::abs(x - Apart(pair)) > m_play) return prereg::EEvidence::Refutes;
        return m_apart.contains(pair) ? prereg::EEvidence::Silent : prereg::EEvidence::Supports;
    }
    [[nodiscard]] std::vector<prereg::PairEvidence>
    Weigh(std::span<const std::pair<ScanPair, prereg::CTrafo>> poses) const override
    {
        std::vector<prereg::PairEvidence> all;
        for (const auto& [pair, pose] : poses) {
            if (m_far.contains(pair)) ++m_farWeighed;
            const prereg::EEvidence evidence = EvidenceOf(pair, pose.GetTranslation().x);
            all.push_back({evidence, countsOf(pair, pose.GetTranslation().x, evidence)});
        }
        return all;
    }
    [[nodiscard]] bool MayMeet(ScanPair pair, const prereg::CTrafo&) const override { return !m_far.contains(pair); }
    [[nodiscard]] bool AreDistinct(std::size_t, const prereg::CTrafo& a, const prereg::CTrafo& b) const override
    {
        return (a.GetTranslation() - b.GetTranslation()).Length() > 0.1F;
    }
    /// A motion after which all scans look much the same.
    void LetFitMoved(float by) { m_turns.push_back(At(by)); }
    [[nodiscard]] std::vector<prereg::CTrafo> Turns(std::size_t) const override { return m_turns; }
    /// Snaps to whole numbers, as scans settle a little beside where they start.
    [[nodiscard]] std::vector<prereg::PoseAmong>
    Settle(std::size_t scan, std::span<const prereg::CTrafo> poses,
           std::span<const std::pair<std::size_t, prereg::CTrafo>>) const override
    {
        std::vector<prereg::PoseAmong> settled;
        for (const prereg::CTrafo& pose : poses)
            settled.push_back({At(std::round(pose.GetTranslation().x)), counts(true), counts(m_slides.contains(scan))});
        return settled;
    }

private:
    [[nodiscard]] prereg::PoseCounts countsOf(ScanPair pair, float x, prereg::EEvidence evidence) const
    {
        if (evidence == prereg::EEvidence::Silent) return {};
        if (const auto known = m_counts.find(pair); known != m_counts.end())
            for (const auto& [at, said] : known->second)
                if (std::abs(x - at) < m_play) return said;
        return counts(evidence == prereg::EEvidence::Supports);
    }
    static prereg::PoseCounts counts(bool isRight)
    {
        prereg::PoseCounts counts;
        counts.uiSamples = 2000;
        counts.uiMatched = 1000;
        counts.uiInFront = isRight ? 0 : 500;
        return counts;
    }

    std::vector<float> m_truth;
    std::map<ScanPair, prereg::PairFinding> m_findings;
    std::map<ScanPair, float> m_alsoRight;
    std::map<ScanPair, std::vector<std::pair<float, prereg::PoseCounts>>> m_counts;
    float m_play = 0.1F;
    prereg::LikelyScans m_likely;
    std::set<std::size_t> m_slides;
    std::vector<prereg::CTrafo> m_turns;
    std::set<ScanPair> m_apart;
    std::set<ScanPair> m_far;
    mutable std::size_t m_farWeighed = 0;
};
