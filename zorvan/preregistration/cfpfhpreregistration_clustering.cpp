// SPDX-License-Identifier: MIT
// Which of the proposed poses agree, and which survive.

#include "zorvan/preregistration/cfpfhpreregistration.h"

#include "zorvan/features/cmeanshiftclusterer.h"
#include "zorvan/features/cmeanshiftclusterer3d.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

// Square of the angle between two rotations, given as quaternions; q and -q are the same rotation. In double: a cosine
// one float below 1 is an angle of 0.0007, more than a mean may still move. In single precision a mean of two poses
// had that angle to itself in one of five cases, never settled, and its group was lost.
float squaredAngle(std::size_t dimension, const float* a, const float* b)
{
    double dot = 0.0;
    double aa = 0.0;
    double bb = 0.0;
    for (std::size_t i = 0; i < dimension; ++i) {
        dot += double{a[i]} * b[i];
        aa += double{a[i]} * a[i];
        bb += double{b[i]} * b[i];
    }
    const double cosine = std::min(1.0, std::abs(dot / (std::sqrt(aa) * std::sqrt(bb))));
    const double angle = 2 * std::acos(cosine);
    return static_cast<float>(angle * angle);
}

} // namespace

void CFPFHPreRegistration::clusterTransformations()
{
    refineProposals();
    if (m_successes.empty()) return;
    m_results.clear();
    if (m_successes.size() == 1) {
        push({m_successes[0], 1});
        return;
    }
    const auto byPosition = groupByPosition(m_successes);
    if (!byPosition) {
        for (const ICPResult& success : m_successes) push({success, 1});
        return;
    }
    for (unsigned int c = 0; c < byPosition->size(); ++c) {
        for (const Group& group : groupByOrientation(m_successes, (*byPosition)[c], c)) pushBest(m_successes, group);
    }
}

bool CFPFHPreRegistration::refineProposals()
{
    const std::size_t before = m_successes.size();
    for (; m_numRefined < m_proposed.size(); ++m_numRefined) {
        const CTrafo& trafo = m_proposed[m_numRefined];
        auto found = m_icpCache.find(trafo);
        if (found == m_icpCache.end()) found = m_icpCache.emplace(trafo, refine(trafo)).first;
        if (found->second) m_successes.push_back(found->second);
    }
    return m_successes.size() > before;
}

void CFPFHPreRegistration::forgetSuccesses()
{
    m_numRefined = 0;
    m_successes.clear();
}

std::optional<std::vector<CFPFHPreRegistration::Group>>
CFPFHPreRegistration::groupByPosition(const std::vector<ICPResult>& successes) const
{
    const auto [low, high] = getFlt().GetAABB();
    const Vector3 center = 0.5F * (low + high);
    std::vector<std::array<float, 3>> positions;
    for (const ICPResult& success : successes) {
        const Vector3 p = success.trafo * center;
        positions.push_back({p.x, p.y, p.z});
    }
    const auto bandwidth = static_cast<float>(m_config.dTrafoPositionClusteringBandwidth);
    Zorvan::CMeanShiftClusterer3D clusterer;
    if (bandwidth > 0) clusterer = {positions, bandwidth};
    if (!clusterer.Run()) {
        logger.Warn(L"(position) clustering failed!");
        return std::nullopt;
    }
    logger.Debug(L"clustering: found %u position-clusters among %zi trafos", clusterer.GetNumClusters(),
                 positions.size());
    std::vector<Group> groups(clusterer.GetNumClusters());
    for (unsigned int i = 0; i < successes.size(); ++i) {
        const int cluster = clusterer.GetCluster(i);
        if (cluster >= 0) groups[static_cast<std::size_t>(cluster)].push_back(i);
    }
    return groups;
}

std::vector<CFPFHPreRegistration::Group>
CFPFHPreRegistration::groupByOrientation(const std::vector<ICPResult>& successes, const Group& group,
                                         unsigned int number) const
{
    logger.Debug(L"  #%u: cluster size %u", number, static_cast<unsigned>(group.size()));
    const double bandwidth = m_config.dTrafoOrientationClusteringBandwidth;
    if (group.size() < 2 || bandwidth <= 0) return {group};
    std::vector<float> quaternions;
    for (const unsigned int i : group) {
        const Quaternion q = successes[i].trafo.GetQuaternion();
        for (const double value : {q.w, q.x, q.y, q.z}) quaternions.push_back(static_cast<float>(value));
    }
    Zorvan::CMeanShiftClusterer clusterer(quaternions.data(), group.size(), 4, static_cast<float>(bandwidth));
    if (!clusterer.Run(&squaredAngle)) {
        logger.Warn(L"(rotation) clustering failed!");
        return {group};
    }
    if (clusterer.GetNumClusters() == 1) return {group};
    logger.Debug(L"cluster #%u (size %u) consists of %u orientation clusters:", number,
                 static_cast<unsigned>(group.size()), clusterer.GetNumClusters());
    std::vector<Group> parts;
    for (unsigned int c = 0; c < clusterer.GetNumClusters(); ++c) {
        logger.Debug(L"  orientation cluster #%u: (size %u)", c, clusterer.GetClusterSize(c));
        Group part;
        for (const unsigned int member : clusterer.GetClusterIterator(c)) part.push_back(group[member]);
        parts.push_back(std::move(part));
    }
    return parts;
}

void CFPFHPreRegistration::pushBest(const std::vector<ICPResult>& successes, const Group& group)
{
    if (group.empty()) return;
    unsigned int best = group.front();
    for (const unsigned int member : group) {
        if (successes[member] < successes[best]) best = member;
    }
    push({successes[best], static_cast<unsigned int>(group.size())});
}

void CFPFHPreRegistration::filterTrafosFeatureBased()
{
    if (m_config.dVerifyTrafoMaxFeatureDistance <= 0 || m_config.dVerifyTrafoMinConfidence <= 0) return;
    Results candidates;
    candidates.swap(m_results);
    while (!candidates.empty()) {
        std::pop_heap(candidates.begin(), candidates.end(), std::greater<>());
        const Result candidate = candidates.back();
        candidates.pop_back();
        if (getFix().VerifyAlignmentFeatureBased(m_config, getFlt(), candidate.icp.trafo)) {
            push(candidate);
            continue;
        }
        // Under the refined pose, not the proposed one: so statistics count it as one more, and hosts know them so.
        const auto entry = m_icpCache.try_emplace(candidate.icp.trafo, candidate.icp).first;
        entry->second.eICPResult = ICP_SuccessRejected;
    }
    forgetSuccesses();
}

} // namespace prereg
