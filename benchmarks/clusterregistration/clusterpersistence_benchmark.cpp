// SPDX-License-Identifier: MIT
// What it costs to save a registration of a hundred scans and to go on with it later, beside what it costs to register
// two of its scans: normals, features of both, and the search for their pose. A floating cluster, as registering
// without start poses makes them; 24 surfaces take turns under the hundred identifiers.

#include "tests/support/temporaryfolder.h"
#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/clusterregistration/clusterpersistence.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/documentfile.h"
#include "zorvan/workflow/featureset.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using prereg::CClusterRegistration;
using prereg::CFPFHPointSet;
using prereg::CTrafo;
using prereg::ICPResult;
using Clock = std::chrono::steady_clock;

constexpr unsigned uiViews = 24;
constexpr unsigned uiScans = 100;
constexpr double dDegreesPerRadian = 180.0 / std::numbers::pi;

/// Scans of a small field of view, made as the program makes them and written as it writes them.
struct Views
{
    Views();

    TemporaryFolder folder;
    std::vector<std::filesystem::path> files;
    std::vector<Zorvan::SurfelScan> scans;
    std::vector<CTrafo> truth; ///< to the frame of the object
    prereg::ConfigurationFPFH config;
    std::vector<std::shared_ptr<const CFPFHPointSet>> sets;
};

std::shared_ptr<const CFPFHPointSet> computeSet(const Views& views, const Zorvan::SurfelScan& scan, unsigned tasks)
{
    return prereg::ComputeFeatureSet(scan, prereg::SettingsForSearch(views.config), tasks, 1.0);
}

Views::Views()
{
    const tools::CVirtualScanner scanner({.uiNumViews = uiViews, .dFieldOfView = 16.0});
    std::vector<double> grids;
    for (unsigned view = 0; view < uiViews; ++view) {
        tools::VirtualScan seen = scanner.Render(view);
        seen.scan.normals.clear(); // readers take them from the faces
        files.push_back(folder / (std::to_string(view) + ".ply"));
        Zorvan::WritePly(files.back(), seen.scan);
        scans.push_back(Zorvan::ReadScan(files.back(), {}));
        truth.push_back(seen.pose);
        const Zorvan::SurfelScan& scan = scans.back();
        const prereg::CPointSet points(scan.points.data(), scan.normals.data(), scan.points.size());
        grids.push_back(prereg::ChooseSettings(points, std::nullopt).dGrid);
    }
    config = prereg::AllSettingsForGrid(Zorvan::Median(std::move(grids)));
    config.icpConfig = prereg::SettingsForRefinement(config);
    for (const Zorvan::SurfelScan& scan : scans) sets.push_back(computeSet(*this, scan, 1));
}

const Views& theViews()
{
    static const Views views;
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

CClusterRegistration load(const std::filesystem::path& file, const CClusterRegistration::Group& group)
{
    return CClusterRegistration::FromObject(prereg::ReadDocumentFile(file), group);
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
    std::filesystem::path file;
    bool isGood;

    explicit Session(unsigned threads)
        : scheduler(threads),
          group(scheduler.CreateJobGroup({}, {})),
          registration(makeRegistration(group)),
          file(theViews().folder / "session.zdoc")
    {
        prereg::WriteDocumentFile(file, registration.ToObject());
        isGood = isSame(registration, load(file, group));
    }

    void Report(benchmark::State& state) const
    {
        const CFPFHPointSet model = registration.GetPrimaryClusterPointSet();
        state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(file)));
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

/// From the file until the registration answers: surfaces are unpacked when they are needed. The model is made behind
/// the caller's back; `isModelNeeded` says whether the time until it is there counts. Neither the end of that work nor
/// of the registration does.
void timeLoad(benchmark::State& state, bool isModelNeeded)
{
    const Session session(threadsOf(state));
    for (auto _ : state) {
        const auto start = Clock::now();
        const CClusterRegistration registration = load(session.file, session.group);
        if (isModelNeeded) benchmark::DoNotOptimize(registration.GetPrimaryClusterPointSet());
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        session.group->Wait();
    }
    session.Report(state);
}

void BM_LoadSession(benchmark::State& state) { timeLoad(state, false); }

void BM_LoadSessionWithModel(benchmark::State& state) { timeLoad(state, true); }

ICPResult search(const std::shared_ptr<const CFPFHPointSet>& fix, const std::shared_ptr<const CFPFHPointSet>& flt)
{
    const Views& views = theViews();
    prereg::CRefinedPreRegistration search(fix, flt, prereg::SettingsForSearch(views.config),
                                           prereg::SettingsForMerging(views.config, std::nullopt));
    search.Compute({});
    return search.GetNextResult();
}

void judge(benchmark::State& state, const CTrafo& found)
{
    const Views& views = theViews();
    const auto fixView = static_cast<std::size_t>(state.range(1));
    const CTrafo truth = views.truth[fixView].GetInverse(true) * views.truth[fixView + 1];
    const auto centre = views.sets[fixView + 1]->GetEllipsoid().center;
    const auto degrees = dDegreesPerRadian * static_cast<double>(found.GetRotationDistance(truth));
    const auto mm = static_cast<double>((found * centre - truth * centre).Length());
    state.counters["degrees"] = degrees;
    state.counters["mm"] = mm;
    if (!(degrees < 0.5 && mm < 0.1)) state.SkipWithError("wrong pose");
}

/// @param scanOf  gives the scan of a view
template <class ScanOf>
void timeRegistration(benchmark::State& state, const ScanOf& scanOf)
{
    const auto view = static_cast<std::size_t>(state.range(1));
    CTrafo found;
    for (auto _ : state) {
        const auto fix = computeSet(theViews(), scanOf(view), threadsOf(state));
        const auto flt = computeSet(theViews(), scanOf(view + 1), threadsOf(state));
        found = search(fix, flt).GetTrafo();
    }
    judge(state, found);
}

/// From two files until the pose is there.
void BM_RegisterTwo(benchmark::State& state)
{
    timeRegistration(state, [](std::size_t view) { return Zorvan::ReadScan(theViews().files[view], {}); });
}

/// The same for scans that have been read and have their normals.
void BM_RegisterTwoInMemory(benchmark::State& state)
{
    timeRegistration(state, [](std::size_t view) -> const Zorvan::SurfelScan& { return theViews().scans[view]; });
}

BENCHMARK(BM_SaveSession)->ArgName("threads")->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LoadSession)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_LoadSessionWithModel)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_RegisterTwo)
    ->ArgNames({"threads", "first_view"})
    ->ArgsProduct({{1, 2}, {0, 5, 11, 17}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_RegisterTwoInMemory)
    ->ArgNames({"threads", "first_view"})
    ->ArgsProduct({{1}, {0, 5, 11, 17}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
