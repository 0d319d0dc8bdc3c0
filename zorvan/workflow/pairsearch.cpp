// SPDX-License-Identifier: MIT
#include "zorvan/workflow/pairsearch.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>

namespace prereg {

namespace {

using Clock = std::chrono::steady_clock;
using SetPtr = std::shared_ptr<const CFPFHPointSet>;

std::string milliseconds(Clock::duration time)
{
    return Zorvan::ToText(std::chrono::duration<double, std::milli>(time).count(), 3) + " ms";
}

void refuse(const Zorvan::SurfelScan& scan, const std::string& what)
{
    throw Zorvan::CInputError(scan.file, "has " + what + ", too few for a search",
                              "give a larger scan or a finer --grid, or a rough pose with --initial");
}

SetPtr computeFeatures(const Zorvan::SurfelScan& scan, const ConfigurationFPFH& config,
                       const PairSearchOptions& options)
{
    SetPtr set = ComputeFeatureSet(scan, config, options.uiNumTasks, options.dMmPerUnit, options.gpu);
    if (set->SizeFeatures() == 0) refuse(scan, "no features");
    if (set->IsTooLean(config))
        refuse(scan, std::to_string(set->Size()) + " points and " + std::to_string(set->SizeFeatures()) + " features");
    return set;
}

} // namespace

PairSearchResult SearchPair(const Zorvan::SurfelScan& fixScan, const Zorvan::SurfelScan& fltScan,
                            const ConfigurationFPFH& config, const PairSearchOptions& options,
                            const Zorvan::Hooks& hooks)
{
    const ConfigurationFPFH searchConfig = SettingsForSearch(config);
    const auto start = Clock::now();
    const std::array<const Zorvan::SurfelScan*, 2> scans{&fixScan, &fltScan};
    std::array<SetPtr, 2> sets;
    // A compute device takes one scan after the other.
    Zorvan::ForEachTask(scans.size(), options.gpu ? 1 : options.uiNumTasks,
                        [&](std::size_t i) { sets[i] = computeFeatures(*scans[i], searchConfig, options); });
    const auto& [fix, flt] = sets;
    const auto featuresDone = Clock::now();
    CJudgedSearch search({fix, options.fixView}, {flt, options.fltView}, searchConfig, SettingsForRefinement(config));
    search.RequireLimits(options.areLimitsRequired);
    search.SetNumTasks(options.uiNumTasks);
    search.SetTwins(true);
    search.Compute(hooks);
    const CJudgedSearch::Times& times = search.GetTimes();
    const std::string words = "features " + milliseconds(featuresDone - start) + ", search " +
                              milliseconds(times.features + times.vote) + ", refinement " +
                              milliseconds(Clock::now() - featuresDone - times.features - times.vote) +
                              (times.vote > Clock::duration() ? "; the vote took " + milliseconds(times.vote) : "");
    const CFPFHPreRegistration::Statistics& statistics = search.GetStatistics();
    const std::string proposals =
        statistics.polygons > 0 ? statistics.ToString() : "a part made of planes: poses come from the vote alone";
    return {search.GetCandidates(), search.GetVerdict(), proposals, words, hooks.IsAborted()};
}

} // namespace prereg
