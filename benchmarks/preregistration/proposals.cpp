// How often the right pose is among the proposals, by set, overlap and proposer, and what a pair costs.
//
//   ZORVAN_DATA=... proposals [SET...] [--tasks 2] [--verbose]
//
// SETs are folders of ZORVAN_DATA with scans, a truth.json and an overlap.csv; bunny comes in metres. Right means within
// 5 degrees and 2 % of the object, at the middle of the scan.

#include "tools/zorvan/autosettings.h"
#include "tools/zorvan/featureset.h"
#include "tools/zorvan/inputerror.h"
#include "tools/zorvan/posesfile.h"
#include "tools/zorvan/scanreader.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/preregistration/cvotepreregistration.h"
#include "zorvan/preregistration/surfelthinning.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace prereg { extern CTrafo debugTruth; }
namespace {

using Clock = std::chrono::steady_clock;
using Poses = std::vector<prereg::CTrafo>;

struct Scan
{
    std::string name;
    tools::SurfelScan file;
    prereg::CTrafo truth;
    prereg::VotingScan voting;
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

Set load(const std::filesystem::path& folder)
{
    Set set;
    set.name = folder.filename();
    const double mmPerUnit = set.name == "bunny" ? 1000.0 : 1.0;
    const tools::PosesFile truth = tools::ReadPoses(folder / "truth.json", mmPerUnit);
    set.overlap = readOverlap(folder / "overlap.csv");
    std::vector<double> grids;
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const tools::ScanPose& pose : truth.clusters.at(0).scans) {
        Scan scan{std::filesystem::path(pose.file).stem(), tools::LoadScan(folder / pose.file, {mmPerUnit, {}}), pose.pose, {}};
        for (const auto& p : scan.file.points) {
            box.low = kdtree::Min(box.low, pose.pose * p);
            box.high = kdtree::Max(box.high, pose.pose * p);
        }
        const prereg::CPointSet points(scan.file.points.data(), scan.file.normals.data(), scan.file.points.size());
        grids.push_back(tools::ChooseSettings(points, std::nullopt).dGrid);
        set.scans.push_back(std::move(scan));
    }
    const auto extent = box.high - box.low;
    set.dSize = static_cast<double>(std::max({extent.x, extent.y, extent.z}));
    const double grid = Zorvan::Median(grids);
    set.config = tools::AllSettingsForGrid(grid);
    for (Scan& scan : set.scans) {
        scan.voting.set = tools::ComputeFeatureSet(scan.file, tools::SettingsForSearch(set.config), 2, mmPerUnit);
        scan.voting.view = std::make_shared<const prereg::CScanView>(*scan.voting.set);
    }
    if (std::getenv("VOTE_TALK")) for (const Scan& scan : set.scans) std::printf("%s %.3f\n", set.name.c_str(), static_cast<double>(prereg::EstimateSize(scan.voting.set->GetPoints()))/set.dSize);
    return set;
}

constexpr std::array<std::size_t, 3> ranks = {10, 50, 200};

struct Tally
{
    std::size_t uiPairs = 0;
    std::array<std::size_t, 3> within{};
    std::vector<double> ms;
};

/// Place of the first right pose, from 0; max when there is none.
std::size_t placeOf(const Set& set, const Scan& fix, const Scan& flt, const Poses& poses)
{
    const prereg::CTrafo truth = fix.truth.GetInverse(true) * flt.truth;
    kdtree::Vector<3> middle;
    for (const auto& p : flt.file.points) middle = middle + p;
    middle = (1.0F / static_cast<float>(flt.file.points.size())) * middle;
    for (std::size_t i = 0; i < poses.size(); ++i) {
        const double degrees = static_cast<double>(poses[i].GetRotationDistance(truth)) * 57.29578;
        if (degrees < 5.0 && static_cast<double>((poses[i] * middle - truth * middle).Length()) < 0.02 * set.dSize) return i;
    }
    return std::numeric_limits<std::size_t>::max();
}

Poses byPolygons(const Set& set, const Scan& fix, const Scan& flt)
{
    const auto search = tools::SettingsForSearch(set.config);
    prereg::CRefinedPreRegistration made(fix.voting.set, flt.voting.set, search, tools::SettingsForRefinement(set.config));
    made.SetEffort(std::numeric_limits<std::size_t>::max(), true);
    made.Compute({});
    Poses poses;
    for (const auto& candidate : made.GetCandidates()) {
        poses.push_back(candidate.refined.GetTrafo());
        poses.push_back(candidate.found.GetTrafo());
    }
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

struct Proposer
{
    std::string name;
    std::function<Poses(const Set&, const Scan&, const Scan&)> propose;
};

std::vector<Proposer> proposers(unsigned tasks)
{
    prereg::ConfigurationVote both;
    both.uiNumTasks = tasks;
    prereg::ConfigurationVote even = both;
    even.uiNumDirectedRotations = 0;
    prereg::ConfigurationVote directed = both;
    directed.uiNumRotations = 0;
    return {{"polygons", byPolygons},
            {"even", [=](const Set&, const Scan& a, const Scan& b) { return byVote(a, b, even); }},
            {"directions", [=](const Set&, const Scan& a, const Scan& b) { return byVote(a, b, directed); }},
            {"vote", [=](const Set&, const Scan& a, const Scan& b) { return byVote(a, b, both); }}};
}

void run(const Set& set, const std::vector<Proposer>& all, bool isVerbose)
{
    std::map<std::pair<bool, std::string>, Tally> tallies;
    for (std::size_t i = 0; i < set.scans.size(); ++i) {
        for (std::size_t k = i + 1; k < set.scans.size(); ++k) {
            const double overlap = std::min(set.overlap[i][k], set.overlap[k][i]);
            if (overlap < 0.1) continue;
            bool isAny = false;
            prereg::debugTruth = set.scans[i].truth.GetInverse(true) * set.scans[k].truth;
            for (const Proposer& proposer : all) {
                const auto start = Clock::now();
                const Poses poses = proposer.propose(set, set.scans[i], set.scans[k]);
                const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
                const std::size_t place = placeOf(set, set.scans[i], set.scans[k], poses);
                Tally& tally = tallies[{overlap > 0.3, proposer.name}];
                ++tally.uiPairs;
                tally.ms.push_back(ms);
                for (std::size_t r = 0; r < ranks.size(); ++r)
                    if (place < ranks[r]) ++tally.within[r];
                if (proposer.name == "polygons" || proposer.name == "vote") isAny = isAny || place < 200;
                if (isVerbose)
                    std::printf("%s %s %s overlap %.2f: %s %s of %zu, %.0f ms\n", set.name.c_str(), set.scans[i].name.c_str(), set.scans[k].name.c_str(), overlap, proposer.name.c_str(),
                                place > 100000 ? "none" : std::to_string(place).c_str(), poses.size(), ms);
            }
            Tally& any = tallies[{overlap > 0.3, "zz any"}];
            ++any.uiPairs;
            if (isAny) ++any.within[2];
            any.ms.push_back(0);
        }
    }
    for (const auto& [key, tally] : tallies) {
        std::printf("%-12s %-10s %-12s %3zu pairs: %3zu / %3zu / %3zu   median %.0f ms, most %.0f ms\n", set.name.c_str(), key.first ? "over 0.3" : "0.1 to 0.3", key.second.c_str(), tally.uiPairs,
                    tally.within[0], tally.within[1], tally.within[2], Zorvan::Median(tally.ms), *std::max_element(tally.ms.begin(), tally.ms.end()));
    }
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> names = {"bunny", "cow", "homer", "spot", "cheburashka", "bracket", "flange", "steps"};
    std::vector<std::string> only;
    unsigned tasks = 1;
    bool isVerbose = false;
    CLI::App app("How often the right pose is among the proposals");
    app.add_option("SET", names, "Folders in ZORVAN_DATA");
    app.add_option("--tasks", tasks, "Computed side by side");
    app.add_option("--only", only, "Proposers: polygons even directions vote");
    app.add_flag("--verbose", isVerbose, "A line for each pair");
    CLI11_PARSE(app, argc, argv);
    Logging::SetLogLevel(Logging::ELogLevel::Error);
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) {
        std::puts("skipped: ZORVAN_DATA does not name the folder of the scans");
        return 0;
    }
    auto all = proposers(tasks);
    if (!only.empty())
        std::erase_if(all, [&](const Proposer& p) { return std::find(only.begin(), only.end(), p.name) == only.end(); });
    try {
        for (const std::string& name : names) run(load(std::filesystem::path(data) / name), all, isVerbose);
    } catch (const tools::CInputError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    return 0;
}
