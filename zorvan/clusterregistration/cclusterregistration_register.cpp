// SPDX-License-Identifier: MIT
// Which clusters fit together, and how two become one.

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/clusterregistration/cluster.h"
#include "zorvan/core/orientedbox.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/platform/stopwatch.h"
#include "zorvan/preregistration/cfpfhpreregistration.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.ClusterRegistration");

std::unique_ptr<IPreRegistration> featureSearch(const ConstPointSetPtr& fix, const ConstPointSetPtr& flt,
                                                const ConfigurationFPFH& config, const CTrafo* oracle)
{
    auto search = std::make_unique<CFPFHPreRegistration>(fix, flt, config);
    if (oracle != nullptr) search->SetOracleTrafo(*oracle);
    return search;
}

// The second cluster in the frame of the first one, as the poses say that the caller gave.
CTrafo relativePreTrafo(const Cluster& a, const Cluster& b)
{
    if (!a.clusterTrafo || !b.clusterTrafo) throw std::runtime_error("invalid pre-trafo");
    return a.clusterTrafo.GetInverse(false) * b.clusterTrafo;
}

void tryPreTrafo(IPreRegistration& search, const CTrafo& preTrafo, const Zorvan::Stopwatch& watch)
{
    const ICPResult result = search.InjectTrafo(preTrafo);
    if (result) {
        logger.Info(L"external pre-trafo works (%.3fs, %ls)", watch.Seconds(), result.ToWString(true));
    } else {
        logger.Warn(L"external pre-trafo seems to be wrong (%ls)", result.ToWString(false));
    }
}

} // namespace

bool CClusterRegistration::Run() { return Run(Zorvan::Hooks::None()); }

bool CClusterRegistration::Run(const Zorvan::Hooks& hooks)
{
    const std::lock_guard lock(m_mutex);
    const bool isAnyMerged = registerClusters(hooks);
    logger.Info(L"%s", getStatusString(4));
    m_state.events += bson::element("run", isAnyMerged);
    return isAnyMerged;
}

bool CClusterRegistration::registerClusters(const Zorvan::Hooks& hooks)
{
    if (m_state.arrange) return arrangeClusters(hooks);
    bool isAnyMerged = false;
    hooks.Start("registering", std::max<std::size_t>(m_state.clusters.size(), 1) - 1);
    while (mergeNextPair(hooks)) {
        isAnyMerged = true;
        hooks.Advance();
    }
    hooks.Finish();
    return isAnyMerged;
}

bool CClusterRegistration::mergeNextPair(const Zorvan::Hooks& hooks)
{
    // Each pair is met once, the later one first, and so memoized in that order.
    for (const auto& [a, laterCluster] : m_state.clusters) {
        for (const auto& [b, earlierCluster] : m_state.clusters) {
            if (a == b) break;
            if (registrationFailedPreviously(a, b)) continue;
            if (hooks.IsAborted()) return false;
            if (const CTrafo trafo = findPose(a, b, hooks)) {
                mergeClusters(a, b, trafo);
                return true;
            }
            if (hooks.IsAborted()) return false;
            memoizeFailedRegistration(a, b);
        }
    }
    return false;
}

CTrafo CClusterRegistration::findPose(const UniversalUniqueID& a, const UniversalUniqueID& b,
                                      const Zorvan::Hooks& hooks) const
{
    Cluster& fix = *m_state.clusters.at(a);
    Cluster& flt = *m_state.clusters.at(b);
    const PointSet fixSet = fix.getMergedPointSet();
    const PointSet fltSet = flt.getMergedPointSet();
    const Zorvan::Stopwatch watch;
    std::optional<CTrafo> preTrafo;
    if (fix.clusterTrafo && flt.clusterTrafo) preTrafo = relativePreTrafo(fix, flt);
    const CTrafo* const oracle = preTrafo && m_state.config.SupportsOracleCheck() ? &*preTrafo : nullptr;
    const SearchFactory& makeSearch = m_state.makeSearch ? m_state.makeSearch : SearchFactory(&featureSearch);
    const auto search = makeSearch(fixSet, fltSet, m_state.config, oracle);

    if (preTrafo) tryPreTrafo(*search, *preTrafo, watch);
    if (!search->HasMoreResults()) {
        logger.Info(L"computing preregistration ...");
        search->Compute(Zorvan::Hooks([&hooks] { return hooks.IsAborted(); }));
        logger.Info(L"preregistration completed (%.3fs).", watch.Seconds());
    }
    if (!search->HasMoreResults()) {
        logger.Warn(L"NO RESULTS! (wasted %.3fs)", watch.Seconds());
        return CTrafo::Invalid();
    }
    const ICPResult best = search->GetNextResult();
    logger.Info(L"successful registration found (%.3fs, overlap: %.1fp, RMSE: %.3fmm, StdDev: %.3f)", watch.Seconds(),
                100 * best.fStop_OverlapRatio, best.fStop_RMSE, best.GetStdDev());
    return best.GetTrafo();
}

UniversalUniqueID CClusterRegistration::mergeClusters(UniversalUniqueID into, UniversalUniqueID from, CTrafo trafo)
{
    // The primary cluster survives under its identifier.
    if (from == m_state.primaryClusterID) {
        std::swap(into, from);
        trafo = trafo.GetInverse(false);
    }
    Cluster& target = *m_state.clusters.at(into);
    Cluster& source = *m_state.clusters.at(from);
    for (const auto& [id, entity] : source.entities) {
        Entity moved = entity;
        moved.trafo = trafo * entity.trafo;
        target.entities.insert_or_assign(id, std::move(moved));
        m_state.changes[id] = target.GetTrafo(id);
    }
    resetRegistrationFailures(from);
    resetRegistrationFailures(into);

    // One pass over two sets instead of one over the sets of all entities.
    target.mergedPointSetStale = false;
    const auto mergedSet = [](Cluster& cluster) {
        return std::make_shared<CLazyPointSet>(cluster.getMergedPointSet());
    };
    target.orderMergedPointSet(m_state.config, m_state.group,
                               {{mergedSet(target), CTrafo::Identity()}, {mergedSet(source), trafo}});
    m_state.clusters.erase(from);
    return into;
}

float CClusterRegistration::estimateOverlapRatio(const Entity& a, const Entity& b) const
{
    const PointSet setA = a.GetPointSet();
    const PointSet setB = b.GetPointSet();
    if (setA->IsTooLean(m_state.config) || setB->IsTooLean(m_state.config)) return 0.0F;
    const CTrafo toA = a.trafo.GetInverse(false) * b.trafo;
    const auto boxOf = [](const CFPFHPointSet& set) { return OrientedBox::FromCorners(set.GetAABB()); };
    if (!Overlap(boxOf(*setA), boxOf(*setB).Moved(toA))) return 0.0F;

    ConfigurationICP config = m_state.config.icpConfig;
    config.uiMaxNumIterations = 0;
    return setA->ComputeICPRegistration(config, *m_state.rng, *setB, toA, nullptr, false).fStart_OverlapRatio;
}

} // namespace prereg
