#include "pairsearch.h"

#include "autosettings.h"
#include "featuresizes.h"
#include "inputerror.h"
#include "interruption.h"
#include "progress.h"
#include "textnumber.h"

#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/platform/cpufeatures.h"
#include "zorvan/preregistration/cfpfhpreregistration.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;
using SetPtr = std::shared_ptr<const prereg::CFPFHPointSet>;

constexpr unsigned uiSeed = 47110815;    // the same scans always give the same pose
constexpr std::size_t uiMaxRefined = 10; // of candidates, while none is accepted

std::string milliseconds(Clock::time_point from, Clock::time_point to)
{
    return ToText(std::chrono::duration<double, std::milli>(to - from).count(), 3) + " ms";
}

void refuse(const SurfelScan& scan, const std::string& what)
{
    throw CInputError(scan.file, "has " + what + ", too few for a search",
                      "give a larger scan or a finer --grid, or a rough pose with --initial");
}

SetPtr computeFeatures(const SurfelScan& scan, const prereg::ConfigurationFPFH& config, unsigned numTasks)
{
    if (!Zorvan::GetCpuFeatures().bAvx)
        throw CInputError("a search without a start pose needs a processor with AVX; give --initial POSES.json");
    prereg::CFPFHDataSource source(config, numTasks, nullptr);
    source.Load(scan.points, scan.normals, nullptr);
    if (source.GetNumFeatures() == 0) refuse(scan, "no features");
    auto set = std::make_shared<const prereg::CFPFHPointSet>(source);
    if (set->IsTooLean(config))
        refuse(scan, std::to_string(set->Size()) + " points and " + std::to_string(set->SizeFeatures()) + " features");
    return set;
}

/// @return whether the user stopped it
bool compute(prereg::CFPFHPreRegistration& search, const PairSearchOptions& options)
{
    const CInterruption interruption;
    CProgress progress("searching", search.GetMatchingConfig().uiNumPolygons, options.isQuiet);
    std::size_t asked = 0;
    search.Compute([&] {
        if (++asked % 2 == 0) progress.Step(); // the search asks twice for each polygon
        return interruption.IsRequested();
    });
    if (!interruption.IsRequested()) return false;
    search.FinalizeAfterAbort();
    return true;
}

std::vector<PairCandidate> refine(const std::vector<prereg::ICPResult>& found, const prereg::CPointSet& fix,
                                  const prereg::CPointSet& flt, const prereg::ConfigurationICP& icp, bool isAll)
{
    std::vector<PairCandidate> candidates;
    for (const auto& candidate : found) {
        if (!isAll && candidates.size() == uiMaxRefined) break;
        std::mt19937 rng(uiSeed);
        candidates.push_back(
            {candidate, fix.ComputeICPRegistration(icp, rng, flt, candidate.GetTrafo(), nullptr, false)});
        if (!isAll && candidates.back().refined) break;
    }
    const auto isAccepted = [](const PairCandidate& candidate) { return static_cast<bool>(candidate.refined); };
    std::stable_partition(candidates.begin(), candidates.end(), isAccepted);
    return candidates;
}

} // namespace

prereg::ICPResult PairSearchResult::Best() const
{
    return candidates.empty() ? prereg::ICPResult() : candidates.front().refined;
}

PairSearchResult SearchPair(const SurfelScan& fixScan, const SurfelScan& fltScan,
                            const prereg::ConfigurationFPFH& config, const PairSearchOptions& options)
{
    const prereg::ConfigurationFPFH searchConfig = SettingsForSearch(config);
    for (const SurfelScan* scan : {&fixScan, &fltScan}) CheckFeatureSizes(*scan, searchConfig, options.dMmPerUnit);
    const auto start = Clock::now();
    const SetPtr fix = computeFeatures(fixScan, searchConfig, options.uiNumTasks);
    const SetPtr flt = computeFeatures(fltScan, searchConfig, options.uiNumTasks);
    const auto featuresDone = Clock::now();
    prereg::CFPFHPreRegistration search(fix, flt, searchConfig);
    const bool isStopped = compute(search, options);
    const auto searchDone = Clock::now();

    PairSearchResult result;
    result.candidates = refine(search.GetAllResults(), *fix, *flt, SettingsForRefinement(config), options.isAll);
    result.words = (isStopped ? "stopped; this is what was found so far: " : "") + search.GetStatistics().ToString() +
                   "\nfeatures " + milliseconds(start, featuresDone) + ", search " +
                   milliseconds(featuresDone, searchDone) + ", refinement " + milliseconds(searchDone, Clock::now());
    return result;
}

} // namespace tools
