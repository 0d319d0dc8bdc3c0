// SPDX-License-Identifier: MIT
// How often the right pose is among the proposals, by set, overlap and proposer, and what a pair costs.
//
//   ZORVAN_DATA=... proposals [SET...] [--only PROPOSER...] [--tasks 2] [--verbose]
//
// SETs are folders of ZORVAN_DATA with scans, a truth.json and an overlap.csv; pairs are classed by the smaller of
// their two overlaps. Right means within 5 degrees, and 2 % of the object at the middle of the scan; a turn that nearly
// maps a part onto itself is wrong. Times are processor times, without reading, features and views. "strangers" in the
// place of a SET takes 30 pairs of scans of different sets, where there is nothing to find, and gives the times alone.

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/featureset.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/preregistration/cvotepreregistration.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Poses = std::vector<prereg::CTrafo>;

constexpr double dSmallestOverlap = 0.1;
constexpr double dGoodOverlap = 0.3;
constexpr std::array<std::size_t, 3> ranks = {10, 50, 200};
const std::vector<std::string> allSets = {"bunny", "cow", "homer", "spot", "cheburashka", "bracket", "flange", "steps"};

struct Scan
{
    std::string name;
    prereg::VotingScan voting;
    prereg::CTrafo truth;
    kdtree::Vector<3> middle;
};

struct Set
{
    std::string name;
    std::vector<Scan> scans;
    double dSize = 0.0; ///< largest edge of the box around all scans, where they truly are
    prereg::ConfigurationFPFH config;
    std::vector<std::vector<double>> overlap;
};

std::vector<std::vector<double>> readOverlap(const std::filesystem::path& file)
{
    std::vector<std::vector<double>> rows;
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        std::istringstream cells(line);
        std::string cell;
        std::getline(cells, cell, ',');
        rows.emplace_back();
        while (std::getline(cells, cell, ',')) rows.back().push_back(std::stod(cell));
    }
    return rows;
}

kdtree::Vector<3> middleOf(const prereg::Vectors& points)
{
    kdtree::Vector<3> sum;
    for (const auto& p : points) sum = sum + p;
    return (1.0F / static_cast<float>(points.size())) * sum;
}

Set load(const std::filesystem::path& folder)
{
    Set set;
    set.name = folder.filename();
    const double mmPerUnit = set.name == "bunny" ? 1000.0 : 1.0;
    set.overlap = readOverlap(folder / "overlap.csv");
    const Zorvan::PosesFile truth = Zorvan::ReadPoses(folder / "truth.json", mmPerUnit);
    std::vector<Zorvan::SurfelScan> files;
    std::vector<double> grids;
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const Zorvan::ScanPose& scan : truth.clusters.at(0).scans) {
        files.push_back(Zorvan::ReadScan(folder / scan.file, {mmPerUnit, {}}));
        const auto& points = files.back().points;
        for (const auto& p : points) {
            box.low = kdtree::Min(box.low, scan.pose * p);
            box.high = kdtree::Max(box.high, scan.pose * p);
        }
        const prereg::CPointSet measured(points.data(), files.back().normals.data(), points.size());
        grids.push_back(prereg::ChooseSettings(measured, std::nullopt).dGrid);
        set.scans.push_back({std::filesystem::path(scan.file).stem(), {}, scan.pose, middleOf(points)});
    }
    const auto extent = box.high - box.low;
    set.dSize = static_cast<double>(std::max({extent.x, extent.y, extent.z}));
    set.config = prereg::AllSettingsForGrid(Zorvan::Median(grids));
    for (std::size_t i = 0; i < files.size(); ++i) {
        auto& [points, view] = set.scans[i].voting;
        points = prereg::ComputeFeatureSet(files[i], prereg::SettingsForSearch(set.config), 1, mmPerUnit);
        view = std::make_shared<const prereg::CScanView>(*points);
    }
    return set;
}

struct Proposer
{
    std::string name;
    std::function<Poses(const Set&, const Scan&, const Scan&)> propose;
};

Poses byPolygons(const Set& set, const Scan& fix, const Scan& flt)
{
    prereg::CRefinedPreRegistration search(fix.voting.set, flt.voting.set, prereg::SettingsForSearch(set.config),
                                           prereg::SettingsForRefinement(set.config));
    search.SetEffort(std::numeric_limits<std::size_t>::max(), true);
    search.Compute({});
    Poses poses;
    for (const auto& candidate : search.GetCandidates()) poses.push_back(candidate.refined.GetTrafo());
    return poses;
}

Poses byVote(const Scan& fix, const Scan& flt, const prereg::ConfigurationVote& config)
{
    prereg::CVotePreRegistration vote(fix.voting, flt.voting, config);
    vote.Compute({});
    Poses poses;
    for (const auto& candidate : vote.GetCandidates()) poses.push_back(candidate.pose);
    return poses;
}

std::vector<Proposer> proposers(unsigned numTasks)
{
    prereg::ConfigurationVote both;
    both.uiNumTasks = numTasks;
    prereg::ConfigurationVote even = both;
    even.uiNumDirectedRotations = 0;
    prereg::ConfigurationVote directed = both;
    directed.uiNumRotations = 0;
    return {{"polygons", byPolygons},
            {"even", [=](const Set&, const Scan& a, const Scan& b) { return byVote(a, b, even); }},
            {"directions", [=](const Set&, const Scan& a, const Scan& b) { return byVote(a, b, directed); }},
            {"vote", [=](const Set&, const Scan& a, const Scan& b) { return byVote(a, b, both); }}};
}

constexpr std::size_t notFound = std::numeric_limits<std::size_t>::max();

/// How many poses come before the first right one.
std::size_t placeOf(const Set& set, const Scan& fix, const Scan& flt, const Poses& poses)
{
    const prereg::CTrafo truth = fix.truth.GetInverse(true) * flt.truth;
    for (std::size_t i = 0; i < poses.size(); ++i) {
        const double degrees = static_cast<double>(poses[i].GetRotationDistance(truth)) * 57.29578;
        const double mm = static_cast<double>((poses[i] * flt.middle - truth * flt.middle).Length());
        if (degrees < 5.0 && mm < 0.02 * set.dSize) return i;
    }
    return notFound;
}

struct Tally
{
    std::size_t uiPairs = 0;
    std::array<std::size_t, ranks.size()> within{};
    std::vector<double> ms;

    void Add(std::size_t place, double milliseconds)
    {
        ++uiPairs;
        ms.push_back(milliseconds);
        for (std::size_t r = 0; r < ranks.size(); ++r) within[r] += place < ranks[r];
    }
};

/// Poses and what they cost in processor time.
std::pair<Poses, double> timed(const Proposer& proposer, const Set& set, const Scan& fix, const Scan& flt)
{
    const std::clock_t start = std::clock();
    Poses poses = proposer.propose(set, fix, flt);
    return {std::move(poses), 1e3 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC};
}

void run(const Set& set, const std::vector<Proposer>& all, bool isVerbose)
{
    std::map<std::pair<bool, std::string>, Tally> tallies;
    for (std::size_t i = 0; i < set.scans.size(); ++i) {
        for (std::size_t k = i + 1; k < set.scans.size(); ++k) {
            const double overlap = std::min(set.overlap[i][k], set.overlap[k][i]);
            if (overlap <= dSmallestOverlap) continue;
            const Scan& fix = set.scans[i];
            const Scan& flt = set.scans[k];
            std::size_t best = notFound;
            double sum = 0.0;
            for (const Proposer& proposer : all) {
                const auto [poses, ms] = timed(proposer, set, fix, flt);
                const std::size_t place = placeOf(set, fix, flt, poses);
                tallies[{overlap > dGoodOverlap, proposer.name}].Add(place, ms);
                if (proposer.name == "polygons" || proposer.name == "vote") {
                    best = std::min(best, place);
                    sum += ms;
                }
                if (isVerbose)
                    std::printf("%s on %s, overlap %.2f, %s: %s of %zu, %.0f ms\n", flt.name.c_str(), fix.name.c_str(),
                                overlap, proposer.name.c_str(),
                                place == notFound ? "none" : std::to_string(place + 1).c_str(), poses.size(), ms);
            }
            if (all.size() > 1) tallies[{overlap > dGoodOverlap, "together"}].Add(best, sum);
        }
    }
    for (const auto& [key, tally] : tallies) {
        std::printf("%-11s %-10s %-10s %3zu pairs, right among the best 10 / 50 / 200: %3zu / %3zu / %3zu, median %.0f "
                    "ms, at most %.0f\n",
                    set.name.c_str(), key.first ? "over 0.3" : "0.1 to 0.3", key.second.c_str(), tally.uiPairs,
                    tally.within[0], tally.within[1], tally.within[2], Zorvan::Median(tally.ms),
                    *std::max_element(tally.ms.begin(), tally.ms.end()));
    }
    std::fflush(stdout);
}

void runStrangers(const std::filesystem::path& data, const std::vector<Proposer>& all)
{
    std::vector<Set> sets;
    for (const std::string& name : allSets) sets.push_back(load(data / name));
    std::map<std::string, Tally> tallies;
    for (std::size_t pair = 0; pair < 30; ++pair) {
        const Set& a = sets[pair % sets.size()];
        const Set& b = sets[(pair + 1 + pair / sets.size()) % sets.size()];
        for (const Proposer& proposer : all) {
            const auto [poses, ms] = timed(proposer, a, a.scans[pair % a.scans.size()], b.scans[pair % b.scans.size()]);
            tallies[proposer.name].Add(notFound, ms);
        }
    }
    for (const auto& [name, tally] : tallies)
        std::printf("strangers   %-10s %3zu pairs, median %.0f ms, at most %.0f\n", name.c_str(), tally.uiPairs,
                    Zorvan::Median(tally.ms), *std::max_element(tally.ms.begin(), tally.ms.end()));
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> names = allSets;
    std::vector<std::string> only;
    unsigned numTasks = 1;
    bool isVerbose = false;
    CLI::App app("How often the right pose is among the proposals");
    app.add_option("SET", names, "Folders in ZORVAN_DATA, or \"strangers\"");
    app.add_option("--only", only, "Of polygons, even, directions, vote");
    app.add_option("--tasks", numTasks, "Side by side");
    app.add_flag("--verbose", isVerbose, "A line for each pair and proposer");
    CLI11_PARSE(app, argc, argv);
    Logging::SetLogLevel(Logging::ELogLevel::Error);
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) {
        std::puts("skipped: ZORVAN_DATA does not name the folder of the scans");
        return 0;
    }
    auto all = proposers(numTasks);
    const auto isLeftOut = [&](const Proposer& p) { return std::find(only.begin(), only.end(), p.name) == only.end(); };
    if (!only.empty()) std::erase_if(all, isLeftOut);
    try {
        for (const std::string& name : names) {
            if (name == "strangers")
                runStrangers(data, all);
            else
                run(load(std::filesystem::path(data) / name), all, isVerbose);
        }
    } catch (const Zorvan::CInputError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    return 0;
}
