// SPDX-License-Identifier: MIT
#include "zorvan/workflow/scanpairs.h"

#include "zorvan/core/rigid.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/verdict/jointrefinement.h"
#include "zorvan/verdict/planeshare.h"
#include "zorvan/verdict/posecovariance.h"
#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/autosettings.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <numbers>
#include <numeric>
#include <utility>

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.Workflow");

constexpr std::size_t uiMaxPlaces = 6; ///< of a pair
/// The cheap search draws so many of the polygons: most pairs of many scans have nothing in common, and most others are
/// found soon.
constexpr double dQuickShare = 0.25;
/// Pixels: a chain of poses may be off by so much, and what lies nearer to each other than that is one place.
constexpr double dPlayPixels = 6.0;
constexpr std::size_t uiMaxJudges = 200; ///< some 200 KB each, made in less time than it takes to ask one

/// Contradictions from which on a pair refutes a pose: where the scans share surface, what refutes a pair alone; where
/// they hardly do, more than the edges of thin walls bring about, 0.5 % of the samples on flange and bracket.
bool isRefuted(EFinding eFinding, const PoseCounts& counts)
{
    constexpr unsigned uiMinAlone = 25;
    constexpr double dMinShareAlone = 0.01;
    if (counts.Contradiction() <= verdict::dMaxDoubt) return false;
    if (eFinding != EFinding::TooLittle) return counts.Contradictions() >= verdict::uiMinEarlyContradictions;
    return counts.Contradictions() >= std::max(uiMinAlone, static_cast<unsigned>(dMinShareAlone * counts.uiSamples));
}

EEvidence evidenceOf(EFinding eFinding, const PoseCounts& counts)
{
    if (isRefuted(eFinding, counts)) return EEvidence::Refutes;
    const bool isSupport = eFinding == EFinding::Consistent || eFinding == EFinding::Doubtful;
    return isSupport ? EEvidence::Supports : EEvidence::Silent;
}

} // namespace

CScanPairs::CScanPairs(const CSession& session, CSession::Group group)
    : m_group(std::move(group)), m_config(session.GetRegistration().GetRegistrationConfig())
{
    m_scans.resize(session.GetFiles().size());
    std::vector<std::future<void>> done;
    for (std::size_t i = 0; i < m_scans.size(); ++i) {
        done.push_back(m_group->Schedule([this, &session, i] {
            const CSession::ScanFile& file = session.GetFiles()[i];
            Scan& scan = m_scans[i];
            const CClusterRegistration& registration = session.GetRegistration();
            if (registration.GetClusterTrafo(registration.GetClusterID(file.id)))
                scan.start = registration.GetTrafo(file.id);
            scan.searched.set = registration.GetPointSetAndTransform(file.id).first;
            scan.searched.view =
                std::make_shared<const CScanView>(*scan.searched.set, SensorKnowledge{false, file.sensor, file.ray});
            scan.isPlane = PlaneShare(scan.searched.set->GetNormals()) > verdict::dMaxPlaneShare;
            scan.box = OrientedBox::FromCorners(scan.searched.set->GetAABB());
        }));
    }
    for (std::future<void>& job : done) job.get();
}

LikelyScans CScanPairs::FindLikely() const
{
    std::vector<const CFPFHPointSet*> sets;
    for (const Scan& scan : m_scans) sets.push_back(scan.searched.set.get());
    return FindLikelyScans(sets, m_config.dFeatureRadius, m_group);
}

bool CScanPairs::IsWorthAGlance(ScanPair pair) const
{
    return !m_scans[pair.first].isPlane && !m_scans[pair.second].isPlane;
}

std::vector<PairFinding> CScanPairs::Search(std::span<const ScanPair> pairs, bool isThorough,
                                            const Zorvan::Hooks& hooks)
{
    std::atomic<bool> isAborted = false;
    const Zorvan::Hooks jobHooks([&] { return isAborted.load(); });
    std::vector<PairFinding> found(pairs.size());
    std::vector<std::future<void>> jobs;
    for (std::size_t i = 0; i < pairs.size(); ++i)
        jobs.push_back(m_group->Schedule([&, i] { found[i] = search(pairs[i], isThorough, jobHooks); }));
    // The caller's question is for this thread alone.
    for (std::future<void>& job : jobs)
        while (job.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
            isAborted = hooks.IsAborted() || isAborted;
    if (isAborted) found.clear();
    for (std::future<void>& job : jobs) job.get();
    return found;
}

PairFinding CScanPairs::search(ScanPair pair, bool isThorough, const Zorvan::Hooks& hooks) const
{
    if (hooks.IsAborted()) return {};
    if (PairFinding start = weighStart(pair); start.IsAligned()) return start;
    ConfigurationFPFH config = SettingsForSearch(m_config);
    // Without polygons the user wants no search at all.
    if (config.uiNumPolygons == 0) return {};
    if (!isThorough) config.uiNumPolygons = static_cast<unsigned>(std::ceil(dQuickShare * config.uiNumPolygons));
    logger.Info(L"computing preregistration of scans %zu and %zu ...", pair.first, pair.second);
    CJudgedSearch judged(m_scans[pair.first].searched, m_scans[pair.second].searched, config,
                         SettingsForRefinement(m_config));
    judged.SetVote(isThorough);
    judged.SetTwins(true);
    judged.Compute(hooks);
    // What the features leave open the vote has to settle.
    if (!isThorough && !judged.GetVerdict()) return {};
    PairFinding finding = findingOf(pair, judged);
    // The teeth of a wheel agree in many places, of which the features find some.
    if (!isThorough && finding.IsAligned() && !judged.IsSettled()) finding.eVerdict = EPairVerdict::Ambiguous;
    return finding;
}

/// A pose that the caller gave needs no search for rivals: it says which of several places is meant.
PairFinding CScanPairs::weighStart(ScanPair pair) const
{
    if (!HaveStarts(pair)) return {};
    const CTrafo& a = m_scans[pair.first].start;
    const CTrafo& b = m_scans[pair.second].start;
    const ICPResult refined = RefinePose(*m_scans[pair.first].searched.set, *m_scans[pair.second].searched.set,
                                         m_config.icpConfig, a.GetInverse(false) * b);
    const PoseVerdict verdict = judgeOf(pair)->Judge(refined.GetTrafo());
    if (!refined || (!verdict && verdict.eFinding != EFinding::Sliding)) return {};
    return {EPairVerdict::Aligned, {{refined.GetTrafo(), verdict.counts, true}}};
}

bool CScanPairs::HaveStarts(ScanPair pair) const { return m_scans[pair.first].start && m_scans[pair.second].start; }

PairFinding CScanPairs::findingOf(ScanPair pair, const CJudgedSearch& search) const
{
    const PairVerdict& verdict = search.GetVerdict();
    PairFinding finding{verdict.eVerdict, {}};
    for (const std::size_t i : verdict.explanations) {
        if (finding.places.size() == uiMaxPlaces) break;
        const CJudgedSearch::Candidate& candidate = search.GetCandidates()[i];
        const EFinding eFinding = candidate.verdict.eFinding;
        // A twin that shares no surface is known to a pixel or so.
        const bool isOpen = eFinding == EFinding::NotRuledOut;
        finding.places.push_back({Rigid(candidate.refined.GetTrafo()), candidate.verdict.counts,
                                  eFinding != EFinding::Sliding && !isOpen, isOpen});
    }
    if (finding.places.size() != 1 || !verdict.isRayUnknown || !verdict.poses[verdict.explanations.front()])
        return finding;
    // Nothing can contradict scans whose sensors are unknown; then the limits of the ICP decide.
    const ICPResult refined = RefinePose(*m_scans[pair.first].searched.set, *m_scans[pair.second].searched.set,
                                         SettingsForMerging(m_config, {}), finding.places.front().pose);
    if (refined) finding.eVerdict = EPairVerdict::Aligned;
    return finding;
}

std::shared_ptr<const CPoseJudge> CScanPairs::judgeOf(ScanPair pair) const
{
    {
        const std::lock_guard lock(m_mutex);
        if (const auto known = m_known.find(pair); known != m_known.end() && known->second.judge)
            return known->second.judge;
    }
    auto judge =
        std::make_shared<const CPoseJudge>(*m_scans[pair.first].searched.view, *m_scans[pair.second].searched.view);
    const std::lock_guard lock(m_mutex);
    if (m_numJudges >= uiMaxJudges) {
        for (auto& [other, known] : m_known) known.judge = nullptr;
        m_numJudges = 0;
    }
    std::shared_ptr<const CPoseJudge>& kept = m_known[pair].judge;
    if (!kept) ++m_numJudges;
    kept = judge;
    return judge;
}

std::vector<PairEvidence> CScanPairs::Weigh(std::span<const std::pair<ScanPair, CTrafo>> poses) const
{
    std::vector<PairEvidence> evidence(poses.size());
    const std::size_t step = std::min<std::size_t>(poses.size(), m_group->GetMaxConcurrency());
    std::vector<std::future<void>> jobs;
    for (std::size_t first = 0; first < step; ++first) {
        jobs.push_back(m_group->Schedule([&, first] {
            for (std::size_t i = first; i < poses.size(); i += step)
                evidence[i] = weigh(poses[i].first, poses[i].second);
        }));
    }
    for (const std::future<void>& job : jobs) job.wait();
    for (std::future<void>& job : jobs) job.get();
    return evidence;
}

PairEvidence CScanPairs::weigh(ScanPair pair, const CTrafo& pose) const
{
    if (!MayMeet(pair, pose)) return {};
    if (const auto known = findWeighed(pair, pose)) return *known;
    const PairEvidence evidence = weighAnew(pair, *judgeOf(pair), pose);
    const std::lock_guard lock(m_mutex);
    m_known[pair].weighed.push_back({pose, pose * m_scans[pair.second].searched.view->GetMiddle(), evidence});
    return evidence;
}

std::optional<PairEvidence> CScanPairs::findWeighed(ScanPair pair, const CTrafo& pose) const
{
    constexpr double dSamePixels = 0.02; // the same pose, composed in another order
    const CScanView& view = *m_scans[pair.second].searched.view;
    const double same = dSamePixels * std::max(pixelOf(pair.first), pixelOf(pair.second));
    const kdtree::Vector<3> middle = pose * view.GetMiddle();
    const std::lock_guard lock(m_mutex);
    const auto known = m_known.find(pair);
    if (known == m_known.end()) return std::nullopt;
    for (const Weighed& other : known->second.weighed) {
        // There are hundreds, most of them elsewhere: the middle is no further off than the pose.
        if (static_cast<double>((middle - other.middle).Length()) >= same) continue;
        if (DistanceOfPoses(view, other.pose, pose) < same) return other.evidence;
    }
    return std::nullopt;
}

PairEvidence CScanPairs::weighAnew(ScanPair pair, const CPoseJudge& judge, const CTrafo& pose) const
{
    PoseCounts counts = judge.Count(pose);
    EFinding eFinding = judge.Weigh(counts);
    const unsigned touching = counts.uiMatched + counts.uiTail + counts.uiShallow;
    if (eFinding == EFinding::Consistent || touching < verdict::uiMinMatched)
        return {evidenceOf(eFinding, counts), counts, CTrafo::Invalid()};
    CTrafo met = CTrafo::Invalid();
    // What a chain of poses has added up to is no contradiction.
    const ICPResult refined = RefinePose(*m_scans[pair.first].searched.set, *m_scans[pair.second].searched.set,
                                         SettingsForRefinement(m_config), pose);
    if (refined.GetTrafo() && judge.Distance(refined.GetTrafo(), pose) <= dPlayPixels * judge.GetPixelSize()) {
        const PoseCounts there = judge.Count(refined.GetTrafo());
        if (there.Score() > counts.Score()) {
            counts = there;
            met = refined.GetTrafo();
        }
        eFinding = judge.Weigh(counts);
    }
    return {evidenceOf(eFinding, counts), counts, met};
}

bool CScanPairs::MayMeet(ScanPair pair, const CTrafo& pose) const
{
    return Overlap(m_scans[pair.first].box, m_scans[pair.second].box.Moved(pose));
}

std::vector<PoseAmong> CScanPairs::Settle(std::size_t scan, std::span<const CTrafo> poses,
                                          std::span<const std::pair<std::size_t, CTrafo>> others) const
{
    std::vector<std::pair<std::size_t, CTrafo>> near;
    for (const auto& [other, pose] : others) {
        const auto meets = [&, other = other, pose = pose](const CTrafo& own) {
            return Overlap(m_scans[other].box.Moved(pose), m_scans[scan].box.Moved(own));
        };
        if (std::ranges::any_of(poses, meets)) near.emplace_back(other, pose);
    }
    const Surroundings surroundings = surroundingsOf(scan, near);
    const CScanView& view = *m_scans[scan].searched.view;
    const auto numTasks = static_cast<unsigned>(m_group->GetMaxConcurrency());
    std::vector<CTrafo> starts(poses.size());
    Zorvan::ForEachTask(starts.size(), numTasks, [&](std::size_t i) {
        starts[i] = SettlePose(*surroundings.surface, *m_scans[scan].searched.set, poses[i], surroundings.sampling,
                               view.GetSampling());
    });
    return SettleAmong(surroundings.scans, starts, dPlayPixels * pixelOf(scan), numTasks);
}

std::vector<CTrafo> CScanPairs::RefineJointly(std::span<const std::pair<std::size_t, CTrafo>> scans) const
{
    std::vector<ScanInFrame> inFrame;
    for (const auto& [scan, pose] : scans) {
        const SearchedScan& searched = m_scans[scan].searched;
        inFrame.push_back({searched.set.get(), pose, searched.view->GetSampling()});
    }
    return prereg::RefineJointly(inFrame, m_config.icpConfig.uiNumSamples, m_group);
}

/// Quarter turns about the middle of what the scan shows, as it faces its sensor.
std::vector<CTrafo> CScanPairs::Turns(std::size_t scan) const
{
    const Vectors& normals = m_scans[scan].searched.set->GetNormals();
    const kdtree::Vector<3> axis = std::accumulate(normals.begin(), normals.end(), kdtree::Vector<3>());
    const kdtree::Vector<3>& middle = m_scans[scan].searched.view->GetMiddle();
    std::vector<CTrafo> turns;
    for (const int quarters : {1, 2, 3}) {
        const CTrafo turn(axis, static_cast<float>(quarters) * 0.5F * std::numbers::pi_v<float>, kdtree::Vector<3>());
        turns.push_back(turn.Translate(middle - turn.Rotate(middle)));
    }
    return turns;
}

CScanPairs::Surroundings CScanPairs::surroundingsOf(std::size_t scan,
                                                    std::span<const std::pair<std::size_t, CTrafo>> others) const
{
    Surroundings surroundings;
    Vectors points;
    Vectors normals;
    for (const auto& [other, pose] : others) {
        const SearchedScan& searched = m_scans[other].searched;
        for (std::size_t i = 0; i < searched.set->Size(); ++i) {
            const auto [point, normal] = pose.Transform(searched.set->GetPoint(i), searched.set->GetNormal(i));
            points.push_back(point);
            normals.push_back(normal);
        }
        const ScanSampling& sampling = searched.view->GetSampling();
        surroundings.sampling.dSpacing = std::max(surroundings.sampling.dSpacing, sampling.dSpacing);
        surroundings.sampling.dNoise = std::max(surroundings.sampling.dNoise, sampling.dNoise);
        surroundings.judges.push_back(judgeOf({std::min(scan, other), std::max(scan, other)}));
        surroundings.scans.push_back({surroundings.judges.back().get(), pose, other < scan});
    }
    surroundings.surface = std::make_shared<const CPointSet>(points.data(), normals.data(), points.size());
    return surroundings;
}

bool CScanPairs::MeetAt(ScanPair pair, const CTrafo& pose) const
{
    const ICPResult refined = RefinePose(*m_scans[pair.first].searched.set, *m_scans[pair.second].searched.set,
                                         SettingsForRefinement(m_config), pose);
    return refined && !AreDistinct(pair.second, refined.GetTrafo(), pose);
}

std::vector<DisputedSpot> CScanPairs::FindDisputes(const std::vector<std::size_t>& members,
                                                   const std::vector<CTrafo>& poses,
                                                   std::span<const PairStanding> pairs) const
{
    std::map<std::size_t, std::size_t> numbers;
    std::vector<PlacedView> views;
    for (const std::size_t scan : members) {
        numbers[scan] = views.size();
        views.push_back({m_scans[scan].searched.view.get(), poses[scan]});
    }
    std::vector<ViewPair> viewPairs;
    for (const PairStanding& standing : pairs) {
        const auto a = numbers.find(standing.pair.first);
        const auto b = numbers.find(standing.pair.second);
        if (!standing.isTogether || a == numbers.end() || b == numbers.end()) continue;
        const PoseCounts& counts = standing.evidence.counts;
        const bool isAtOdds = counts.uiInFront + counts.uiMissing + counts.uiInGap > 0;
        viewPairs.push_back({a->second, b->second, counts.uiMatched, isAtOdds, counts.uiInFront > 0});
    }
    return FindDisputedSpots(views, viewPairs);
}

double CScanPairs::pixelOf(std::size_t scan) const
{
    const CScanView& view = *m_scans[scan].searched.view;
    return view.HasImage() ? static_cast<double>(view.GetImage().GetPixelSize())
                           : verdict::dPixelPerSpacing * view.GetSampling().dSpacing;
}

bool CScanPairs::AreDistinct(std::size_t scan, const CTrafo& a, const CTrafo& b) const
{
    const CScanView& view = *m_scans[scan].searched.view;
    const auto shift = static_cast<double>((a * view.GetMiddle() - b * view.GetMiddle()).Length());
    const double turn = 2.0 * std::sin(0.5 * static_cast<double>(a.GetRotationDistance(b))) * view.GetRadius();
    return std::hypot(shift, turn) > dPlayPixels * pixelOf(scan);
}

} // namespace prereg
