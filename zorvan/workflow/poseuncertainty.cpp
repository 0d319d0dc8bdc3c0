// SPDX-License-Identifier: MIT
#include "zorvan/workflow/poseuncertainty.h"

#include "zorvan/core/groupwork.h"
#include "zorvan/verdict/jointcovariance.h"
#include "zorvan/verdict/planeshare.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>

namespace prereg {

namespace {

ScanInFrame inFrame(const CFPFHPointSet& set, const CTrafo& pose)
{
    return {&set, pose, MeasureSampling(set.GetPoints(), set.GetKdTree())};
}

} // namespace

std::vector<PoseUncertainty> JointUncertainties(const CSession& session, const RegistrationTable& table,
                                                const std::shared_ptr<Zorvan::CJobScheduler::Group>& group)
{
    const CClusterRegistration& registration = session.GetRegistration();
    std::map<std::string, std::vector<std::size_t>> clusters;
    for (std::size_t i = 0; i < table.scans.size(); ++i)
        if (table.scans[i].isPlaced && !table.scans[i].copyOf) clusters[table.scans[i].cluster].push_back(i);
    std::vector<PoseUncertainty> all;
    for (const auto& [cluster, members] : clusters) {
        std::vector<CClusterRegistration::PointSet> sets; // kept while they are looked at
        std::vector<ScanInFrame> scans;
        for (const std::size_t i : members) {
            sets.push_back(registration.GetPointSetAndTransform(session.GetFiles()[i].id).first);
            scans.push_back(inFrame(*sets.back(), table.scans[i].pose));
        }
        const bool hasFaces = std::ranges::any_of(
            sets, [](const auto& set) { return PlaneShare(set->GetNormals()) > verdict::dMaxPlaneShare; });
        const CJointCovariance joint(scans, registration.GetRegistrationConfig().icpConfig.uiNumSamples, hasFaces,
                                     group);
        const std::size_t before = all.size();
        all.resize(before + members.size());
        ForEachIndex(group, scans.size(), [&, &scansOf = members](std::size_t k) {
            all[before + k] = {scansOf[k], joint.CentreOf(k), joint.Of(k)};
        });
    }
    for (std::size_t i = 0; i < table.scans.size(); ++i) {
        const auto original = std::ranges::find(all, table.scans[i].copyOf, [](const PoseUncertainty& known) {
            return std::optional<std::size_t>(known.scan);
        });
        if (table.scans[i].copyOf && original != all.end()) {
            PoseUncertainty copy = *original;
            copy.scan = i;
            all.push_back(copy);
        }
    }
    std::ranges::sort(all, {}, &PoseUncertainty::scan);
    return all;
}

} // namespace prereg
