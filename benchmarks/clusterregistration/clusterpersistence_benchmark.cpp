// What it costs to save a registration of a hundred scans and to go on with it later, beside what it costs to register
// two of its scans: features of both, and the search for their pose. A floating cluster, as registering without start
// poses makes them; 24 surfaces take turns under the hundred identifiers.

#include "tools/zorvan/autosettings.h"
#include "tools/zorvan/featureset.h"
#include "tools/zorvan/normals.h"
#include "tools/zorvan/virtualscanner.h"
#include "zorvan/clusterregistration/clusterpersistence.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/preregistration/crefinedpreregistration.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using bson::object;
using prereg::CClusterRegistration;
using prereg::CFPFHPointSet;
using prereg::CTrafo;
using Frozen = std::pair<std::unique_ptr<unsigned char[]>, std::uint64_t>;
using Clock = std::chrono::steady_clock;

constexpr unsigned uiViews = 24;
constexpr unsigned uiScans = 100;
constexpr double dDegreesPerRadian = 180.0 / std::numbers::pi;

struct Views
{
    std::vector<tools::SurfelScan> scans;
    std::vector<CTrafo> truth; ///< to the frame of the object
    prereg::ConfigurationFPFH config;
    std::vector<std::shared_ptr<const CFPFHPointSet>> sets;
};

std::shared_ptr<const CFPFHPointSet> computeSet(const Views& views, std::size_t view, unsigned tasks)
{
    return tools::ComputeFeatureSet(views.scans[view], tools::SettingsForSearch(views.config), tasks, 1.0);
}

/// As the program prepares scans of a small field of view.
Views makeViews()
{
    Views views;
    const tools::CVirtualScanner scanner({.uiNumViews = uiViews, .dFieldOfView = 16.0});
    std::vector<double> grids;
    for (unsigned view = 0; view < uiViews; ++view) {
        tools::VirtualScan seen = scanner.Render(view);
        tools::ComputeNormals(seen.scan, {});
        tools::SurfelScan surfels;
        surfels.points = std::move(seen.scan.points);
        surfels.normals = std::move(seen.scan.normals);
        views.scans.push_back(std::move(surfels));
        views.truth.push_back(seen.pose);
        const tools::SurfelScan& scan = views.scans.back();
        const prereg::CPointSet points(scan.points.data(), scan.normals.data(), scan.points.size());
        grids.push_back(tools::ChooseSettings(points, std::nullopt).dGrid);
    }
    views.config = tools::AllSettingsForGrid(Zorvan::Median(std::move(grids)));
    views.config.icpConfig = tools::SettingsForRefinement(views.config);
    for (std::size_t view = 0; view < uiViews; ++view) views.sets.push_back(computeSet(views, view, 1));
    return views;
}

const Views& theViews()
{
    static const Views views = makeViews();
    return views;
}

UniversalUniqueID idOf(unsigned scan) { return {"00000000-0000-4000-8000-000000000" + std::to_string(scan + 100)}; }

CClusterRegistration makeRegistration(const CClusterRegistration::Group& group)
{
    const Views& views = theViews();
    std::vector<CClusterRegistration::EntityTuple> entities;
    for (unsigned scan = 0; scan < uiScans; ++scan)
        entities.emplace_back(idOf(scan), views.truth[scan % uiViews], CTrafo::Invalid(), views.sets[scan % uiViews]);
    CClusterRegistration registration(views.config, nullptr, group);
    registration.CreateCluster(idOf(0), idOf(0), CTrafo::Invalid(), entities);
    registration.SetPrimaryClusterID(idOf(0));
    return registration;
}

CClusterRegistration load(const Frozen& saved, const CClusterRegistration::Group& group)
{
    return CClusterRegistration::FromObject(object::unfreeze(saved.first.get(), saved.second), group);
}

bool isSame(const CClusterRegistration& a, const CClusterRegistration& b)
{
    constexpr float fMaxTurn = 1e-5F; // a saved pose has single precision
    for (unsigned scan = 0; scan < uiScans; ++scan) {
        const CTrafo ours = a.GetTrafo(idOf(scan));
        const CTrafo theirs = b.GetTrafo(idOf(scan));
        if (!(ours.GetRotationDistance(theirs) < fMaxTurn) || !(ours.GetTranslation() == theirs.GetTranslation()))
            return false;
    }
    return a.GetStatusString(36) == b.GetStatusString(36) &&
           a.GetPrimaryClusterPointSet().Size() == b.GetPrimaryClusterPointSet().Size();
}

/// A scheduler and what was saved, compared with what it is read as.
struct Session
{
    Zorvan::CJobScheduler scheduler;
    CClusterRegistration::Group group;
    CClusterRegistration registration;
    Frozen saved;
    bool isGood;

    explicit Session(unsigned threads)
        : scheduler(threads),
          group(scheduler.CreateJobGroup({}, {})),
          registration(makeRegistration(group)),
          saved(registration.ToObject().freeze()),
          isGood(isSame(registration, load(saved, group)))
    {
    }

    void Report(benchmark::State& state) const
    {
        const CFPFHPointSet model = registration.GetPrimaryClusterPointSet();
        state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(saved.second));
        state.counters["scan_points"] = static_cast<double>(theViews().sets[0]->Size());
        state.counters["scan_features"] = static_cast<double>(theViews().sets[0]->SizeFeatures());
        state.counters["model_points"] = static_cast<double>(model.Size());
        state.counters["model_features"] = static_cast<double>(model.SizeFeatures());
        if (!isGood) state.SkipWithError("what was read is not what was saved");
    }
};

unsigned threadsOf(const benchmark::State& state) { return static_cast<unsigned>(state.range(0)); }

void BM_SaveSession(benchmark::State& state)
{
    const Session session(threadsOf(state));
    for (auto _ : state) benchmark::DoNotOptimize(session.registration.ToObject().freeze());
    session.Report(state);
}

/// The model is made behind the caller's back; `isModelNeeded` tells whether the time until it is there counts. Neither
/// the end of that work nor of the registration does.
void timeLoad(benchmark::State& state, bool isModelNeeded)
{
    const Session session(threadsOf(state));
    for (auto _ : state) {
        const auto start = Clock::now();
        const CClusterRegistration registration = load(session.saved, session.group);
        if (isModelNeeded) benchmark::DoNotOptimize(registration.GetPrimaryClusterPointSet());
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        session.group->Wait();
    }
    session.Report(state);
}

void BM_LoadSession(benchmark::State& state) { timeLoad(state, false); }

void BM_LoadSessionWithModel(benchmark::State& state) { timeLoad(state, true); }

void BM_RegisterTwo(benchmark::State& state)
{
    const Views& views = theViews();
    const auto fixView = static_cast<std::size_t>(state.range(1));
    const CTrafo truth = views.truth[fixView].GetInverse(true) * views.truth[fixView + 1];
    prereg::ICPResult found;
    for (auto _ : state) {
        const auto fix = computeSet(views, fixView, threadsOf(state));
        const auto flt = computeSet(views, fixView + 1, threadsOf(state));
        prereg::CRefinedPreRegistration search(fix, flt, tools::SettingsForSearch(views.config),
                                               tools::SettingsForMerging(views.config, std::nullopt));
        search.Compute({});
        found = search.GetNextResult();
    }
    const auto centre = views.sets[fixView + 1]->GetEllipsoid().center;
    const auto degrees = dDegreesPerRadian * static_cast<double>(found.GetTrafo().GetRotationDistance(truth));
    const auto mm = static_cast<double>((found.GetTrafo() * centre - truth * centre).Length());
    state.counters["degrees"] = degrees;
    state.counters["mm"] = mm;
    if (!(degrees < 0.5 && mm < 0.1)) state.SkipWithError("wrong pose");
}

BENCHMARK(BM_SaveSession)->ArgName("threads")->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LoadSession)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_LoadSessionWithModel)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_RegisterTwo)
    ->ArgNames({"threads", "first_view"})
    ->ArgsProduct({{1, 2}, {0, 5, 11, 17}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
