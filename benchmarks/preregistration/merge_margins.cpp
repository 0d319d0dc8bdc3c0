// SPDX-License-Identifier: MIT
// How far right and wrong poses lie from the limits that decide on a merge. For random pairs of scans with known poses,
// or of a scan and a cluster of neighbouring ones, every candidate of a search is refined; those that pass the limits
// for a given start pose are counted as right or wrong, and again under those for a pair without one and for a merge.
//
//   merge_margins FOLDER... [--scale 1000] [--pairs 200] [--cluster 5] [--seed 1]
//
// Each FOLDER has scans of one object and a truth.json; between scans of two folders there is nothing to find.

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/featureset.h"

#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/preregistration/crefinedpreregistration.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using SetPtr = std::shared_ptr<const prereg::CFPFHPointSet>;

constexpr double dMaxDegrees = 3.0; // of a right pose
constexpr double dMaxGrids = 6.0;
constexpr double dSmallOverlap = 0.1;

struct Scans
{
    std::vector<SetPtr> sets;
    std::vector<prereg::CTrafo> truth;
    std::vector<std::size_t> folders; ///< of each scan
    double dGrid = 0.0;
    prereg::ConfigurationFPFH config;
    prereg::ConfigurationFPFH search;
};

Scans load(const std::vector<std::filesystem::path>& folders, double mmPerUnit)
{
    Scans scans;
    std::vector<Zorvan::SurfelScan> files;
    std::vector<double> grids;
    for (std::size_t k = 0; k < folders.size(); ++k) {
        const Zorvan::PosesFile truth = Zorvan::ReadPoses(folders[k] / "truth.json", mmPerUnit);
        for (const Zorvan::ScanPose& scan : truth.clusters.at(0).scans) {
            files.push_back(Zorvan::ReadScan(folders[k] / scan.file, {mmPerUnit, {}}));
            const auto& points = files.back().points;
            const prereg::CPointSet set(points.data(), files.back().normals.data(), points.size());
            grids.push_back(prereg::ChooseSettings(set, std::nullopt).dGrid);
            scans.truth.push_back(scan.pose);
            scans.folders.push_back(k);
        }
    }
    scans.dGrid = Zorvan::Median(grids);
    scans.config = prereg::AllSettingsForGrid(scans.dGrid);
    scans.search = prereg::SettingsForSearch(scans.config);
    for (const auto& file : files) scans.sets.push_back(prereg::ComputeFeatureSet(file, scans.search, 1, mmPerUnit));
    return scans;
}

/// The union of some scans where they truly are.
SetPtr merged(const Scans& scans, const std::vector<std::size_t>& members)
{
    std::vector<std::pair<const prereg::CFPFHPointSet*, prereg::CTrafo>> surfaces;
    for (const std::size_t i : members) surfaces.emplace_back(scans.sets[i].get(), scans.truth[i]);
    prereg::CFPFHDataSource source(scans.search, 1, nullptr);
    source.Load(surfaces);
    return std::make_shared<const prereg::CFPFHPointSet>(source);
}

double overlapOf(const prereg::CFPFHPointSet& flt, const prereg::CFPFHPointSet& fix, double distance)
{
    std::size_t near = 0;
    for (const auto& point : flt.GetPoints()) {
        Zorvan::NearestQuery query{point, -1, static_cast<float>(distance * distance)};
        fix.GetKdTree().FindNearest(query);
        if (query.index >= 0) ++near;
    }
    return static_cast<double>(near) / static_cast<double>(flt.Size());
}

/// Both sets are where they truly are, so the right pose is none.
bool isRight(const prereg::CTrafo& pose, const prereg::CFPFHPointSet& flt, double grid)
{
    const auto [low, high] = flt.GetAABB();
    const auto middle = 0.5F * (low + high);
    const double degrees = static_cast<double>(pose.GetRotationDistance({})) * 57.29578;
    return degrees < dMaxDegrees && static_cast<double>((pose * middle - middle).Length()) < dMaxGrids * grid;
}

bool passes(const prereg::ICPResult& result, const prereg::ConfigurationICP& limits)
{
    return result && result.GetError() <= limits.dMaxRMSE && result.GetStdDev() <= limits.dMaxStdDev &&
           result.fStop_SmallBigRatio >= limits.dMinSmallBigRatio &&
           result.GetOverlapRatio() >= limits.dMinOverlapRatio;
}

struct Tally
{
    const char* name;
    std::vector<prereg::ICPResult> results;

    void Print(const Scans& scans, std::optional<double> typical) const
    {
        const auto count = [&](const prereg::ConfigurationICP& limits) {
            return std::count_if(results.begin(), results.end(), [&](const auto& r) { return passes(r, limits); });
        };
        double slip[2] = {std::numeric_limits<double>::infinity(), 0.0};
        double rmse[2] = {std::numeric_limits<double>::infinity(), 0.0};
        double ratio[2] = {1.0, 0.0};
        const auto widen = [](double(&range)[2], double value) {
            range[0] = std::min(range[0], value);
            range[1] = std::max(range[1], value);
        };
        for (const prereg::ICPResult& r : results) {
            widen(slip, static_cast<double>(r.GetStdDev()) / scans.dGrid);
            widen(rmse, static_cast<double>(r.GetError()) / scans.dGrid);
            widen(ratio, static_cast<double>(r.fStop_SmallBigRatio));
        }
        std::printf("%-24s %4zu pass from a given start, %4td for a pair, %4td for a first merge, %4td for a later one",
                    name, results.size(), count(prereg::SettingsForRefinement(scans.config)),
                    count(prereg::SettingsForMerging(scans.config, std::nullopt)),
                    count(prereg::SettingsForMerging(scans.config, typical)));
        if (!results.empty())
            std::printf("; slip %.3f to %.3f, RMSE %.3f to %.3f grids, small/big ratio %.2f to %.2f", slip[0], slip[1],
                        rmse[0], rmse[1], ratio[0], ratio[1]);
        std::printf("\n");
    }
};

/// Neighbours of one object.
std::vector<std::size_t> drawCluster(std::mt19937& rng, const Scans& scans, std::size_t size)
{
    const std::size_t first = rng() % scans.sets.size();
    std::vector<std::size_t> members;
    for (std::size_t i = first; i < scans.sets.size() && members.size() < size; ++i) {
        if (scans.folders[i] == scans.folders[first]) members.push_back(i);
    }
    return members;
}

void run(const Scans& scans, std::size_t numPairs, std::size_t clusterSize, unsigned seed)
{
    Tally right{"right, overlap above 0.1", {}};
    Tally small{"right, overlap below", {}};
    Tally wrong{"wrong", {}};
    std::size_t numMeeting = 0;
    prereg::ConfigurationICP loose = scans.config.icpConfig;
    loose.dInitialQueryRadiusScaling = prereg::SettingsForRefinement(scans.config).dInitialQueryRadiusScaling;
    std::mt19937 rng(seed);
    for (std::size_t pair = 0; pair < numPairs; ++pair) {
        const auto members = drawCluster(rng, scans, clusterSize);
        std::size_t other = rng() % scans.sets.size();
        while (std::find(members.begin(), members.end(), other) != members.end())
            other = (other + 1) % scans.sets.size();
        const SetPtr fix = merged(scans, members);
        const SetPtr flt = merged(scans, {other});
        const bool isOneObject = scans.folders[members.front()] == scans.folders[other];
        const double overlap = isOneObject ? overlapOf(*flt, *fix, 3 * scans.dGrid) : 0.0;
        if (overlap > dSmallOverlap) ++numMeeting;
        prereg::CRefinedPreRegistration search(fix, flt, scans.search, loose);
        search.SetEffort(std::numeric_limits<std::size_t>::max(), true);
        search.Compute({});
        bool isFound = false;
        for (const auto& [found, refined] : search.GetCandidates()) {
            if (!refined) continue;
            if (!isOneObject || !isRight(refined.GetTrafo(), *flt, scans.dGrid)) {
                wrong.results.push_back(refined);
            } else if (!isFound) {
                isFound = true;
                (overlap > dSmallOverlap ? right : small).results.push_back(refined);
            }
        }
    }
    std::vector<double> errors;
    for (const auto& r : right.results) errors.push_back(static_cast<double>(r.GetError()));
    std::optional<double> typical;
    if (!errors.empty()) typical = Zorvan::Median(errors);
    std::printf("%zu pairs of a scan with %zu other%s; %zu share more than 0.1\n", numPairs, clusterSize,
                clusterSize > 1 ? "s" : "", numMeeting);
    for (const Tally* tally : {&right, &small, &wrong}) tally->Print(scans, typical);
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> folders;
    double mmPerUnit = 1.0;
    std::size_t numPairs = 200;
    std::size_t clusterSize = 1;
    unsigned seed = 1;
    CLI::App app("Margins of the limits that decide on a merge");
    app.add_option("FOLDER", folders, "Scans with truth.json")->required();
    app.add_option("--scale", mmPerUnit, "Millimetres per unit of the files");
    app.add_option("--pairs", numPairs, "Random pairs to try");
    app.add_option("--cluster", clusterSize, "Scans on one side of a pair")->check(CLI::Range(1, 1000));
    app.add_option("--seed", seed, "Of the pairs");
    CLI11_PARSE(app, argc, argv);
    Logging::SetLogLevel(Logging::ELogLevel::Error);
    try {
        run(load(folders, mmPerUnit), numPairs, clusterSize, seed);
    } catch (const Zorvan::CInputError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    return 0;
}
