// SPDX-License-Identifier: MIT
// How often the judge keeps a wrong pose and loses a right one. For every pair of the scans of an object it weighs all
// candidates of a search, wrong starts refined by ICP, and the refined truth; between scans of different objects, every
// candidate is wrong.
//
//   verdict_rates bunny cow ... [--starts 20] [--jobs 2] [--csv FILE] [--from FILE]
//
// Sets are folders below the one that ZORVAN_DATA names, with truth.json and overlap.csv. --csv writes every pose with
// its counts, --from weighs the poses of such a file again, without a search.

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/featureset.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/cscanview.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using SetPtr = std::shared_ptr<const prereg::CFPFHPointSet>;
using Vector3 = kdtree::Vector<3>;

enum class ESource
{
    Search,
    Start,
    Truth,
    Stranger
};

struct Row
{
    std::string set;
    std::string fix;
    std::string flt;
    double dOverlap = 0.0;
    ESource eSource = ESource::Search;
    prereg::CTrafo pose;
    double dDegrees = 180.0;
    double dSize = 1.0;      ///< how far off, in sizes of the object
    bool isAccepted = false; ///< by the limits of the ICP alone
    prereg::PoseCounts counts;
    int slide = std::numeric_limits<int>::max(); ///< where the counts pass
    prereg::EFinding eFinding = prereg::EFinding::Invalid;
    double dHold = 0.0;
    double dMs = 0.0;

    [[nodiscard]] bool IsRight() const { return dDegrees < 2.0 && dSize < 0.01; }
    [[nodiscard]] bool IsWrong() const { return dDegrees > 5.0 || dSize > 0.02; }
};

struct View
{
    Zorvan::SurfelScan file;
    std::shared_ptr<const prereg::CPointSet> points;
    std::shared_ptr<const prereg::CScanView> view;
    SetPtr features;
    prereg::CTrafo truth;
};

struct Object
{
    std::string name;
    double dSize = 0.0; ///< mm
    std::vector<View> views;
    prereg::ConfigurationFPFH config;
    std::map<std::pair<std::string, std::string>, double> overlap;

    [[nodiscard]] double Overlap(const View& a, const View& b) const
    {
        const std::string one = a.file.file.stem();
        const std::string other = b.file.file.stem();
        return std::min(overlap.at({one, other}), overlap.at({other, one}));
    }
};

SetPtr featuresOf(const View& view, const prereg::ConfigurationFPFH& config)
{
    return prereg::ComputeFeatureSet(view.file, prereg::SettingsForSearch(config), 1, 1.0);
}

void readOverlap(const std::filesystem::path& file, Object& object)
{
    std::ifstream in(file);
    std::vector<std::string> names;
    for (std::string line; std::getline(in, line);) {
        std::istringstream cells(line);
        std::vector<std::string> row;
        for (std::string cell; std::getline(cells, cell, ',');) row.push_back(cell);
        if (names.empty())
            names = row;
        else
            for (std::size_t i = 1; i < row.size(); ++i) object.overlap[{row[0], names[i]}] = std::atof(row[i].c_str());
    }
}

Object load(const std::filesystem::path& folder)
{
    Object object;
    object.name = folder.filename();
    readOverlap(folder / "overlap.csv", object);
    const Zorvan::PosesFile truth = Zorvan::ReadPoses(folder / "truth.json");
    std::vector<double> grids;
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const Zorvan::ScanPose& scan : truth.clusters.at(0).scans) {
        View view;
        view.file = Zorvan::ReadScan(folder / scan.file, {truth.dMmPerUnit, {}});
        view.truth = scan.pose;
        const auto& file = view.file;
        view.points =
            std::make_shared<const prereg::CPointSet>(file.points.data(), file.normals.data(), file.points.size());
        view.view = std::make_shared<const prereg::CScanView>(*view.points);
        grids.push_back(prereg::ChooseSettings(*view.points, std::nullopt).dGrid);
        for (const Vector3& p : file.points) {
            box.low = Min(box.low, view.truth * p);
            box.high = Max(box.high, view.truth * p);
        }
        object.views.push_back(std::move(view));
    }
    const Vector3 extent = box.high - box.low;
    object.dSize = static_cast<double>(std::max({extent.x, extent.y, extent.z}));
    object.config = prereg::AllSettingsForGrid(Zorvan::Median(grids));
    return object;
}

/// What belongs to one pair.
struct Pair
{
    const Object* object;
    const View* fix;
    const View* flt;
    bool isStranger = false;
};

Row rowFor(const Pair& pair, ESource source, const prereg::ICPResult& result)
{
    Row row;
    row.set = pair.object->name;
    row.fix = pair.fix->file.file.parent_path().filename() / pair.fix->file.file.stem();
    row.flt = pair.flt->file.file.parent_path().filename() / pair.flt->file.file.stem();
    row.eSource = source;
    row.pose = result.GetTrafo();
    row.isAccepted = static_cast<bool>(result);
    if (pair.isStranger) return row;
    row.dOverlap = pair.object->Overlap(*pair.fix, *pair.flt);
    const prereg::CTrafo truth = pair.fix->truth.GetInverse(true) * pair.flt->truth;
    const Vector3 middle = pair.flt->view->GetMiddle();
    row.dDegrees = static_cast<double>(truth.GetRotationDistance(row.pose)) * 57.29577951308232;
    row.dSize = static_cast<double>((truth * middle - row.pose * middle).Length()) / pair.object->dSize;
    return row;
}

prereg::ICPResult refine(const Pair& pair, const prereg::ConfigurationICP& icp, const prereg::CTrafo& start)
{
    std::mt19937 rng(47110815);
    return pair.fix->points->ComputeICPRegistration(icp, rng, *pair.flt->points, start, nullptr, false);
}

prereg::CTrafo wrongStart(const Pair& pair, std::mt19937& rng)
{
    std::normal_distribution<double> component;
    const double w = component(rng);
    const double x = component(rng);
    const double y = component(rng);
    const prereg::CTrafo turn(prereg::Quaternion(w, x, y, component(rng)).GetNormalized(), Vector3());
    std::uniform_real_distribution<float> shift(-0.5F, 0.5F);
    const auto radius = static_cast<float>(pair.fix->view->GetRadius());
    const Vector3 to = pair.fix->view->GetMiddle() + Vector3(shift(rng), shift(rng), shift(rng)) * radius;
    return turn.Translate(to - turn * pair.flt->view->GetMiddle());
}

std::vector<Row> candidatesOf(const Pair& pair, unsigned numStarts, unsigned seed)
{
    std::vector<Row> rows;
    const auto& config = pair.object->config;
    const prereg::ConfigurationICP icp = prereg::SettingsForRefinement(config);
    const SetPtr flt = pair.isStranger ? featuresOf(*pair.flt, config) : pair.flt->features;
    prereg::CRefinedPreRegistration search(pair.fix->features, flt, prereg::SettingsForSearch(config), icp);
    search.SetEffort(std::numeric_limits<std::size_t>::max(), true);
    search.Compute({});
    for (const auto& [found, refined] : search.GetCandidates()) {
        if (!refined.GetTrafo()) continue;
        rows.push_back(rowFor(pair, pair.isStranger ? ESource::Stranger : ESource::Search, refined));
    }
    if (pair.isStranger) return rows;
    std::mt19937 rng(seed);
    for (unsigned i = 0; i < numStarts; ++i) {
        const prereg::ICPResult result = refine(pair, config.icpConfig, wrongStart(pair, rng));
        if (result.GetTrafo()) rows.push_back(rowFor(pair, ESource::Start, result));
    }
    prereg::ConfigurationICP exact = config.icpConfig;
    exact.dInitialQueryRadiusScaling = std::min(exact.dInitialQueryRadiusScaling, 2.0);
    const prereg::CTrafo truth = pair.fix->truth.GetInverse(true) * pair.flt->truth;
    prereg::ICPResult result = refine(pair, exact, truth);
    if (!result.GetTrafo() || !rowFor(pair, ESource::Truth, result).IsRight()) result = prereg::ICPResult(truth);
    rows.push_back(rowFor(pair, ESource::Truth, result));
    return rows;
}

void weigh(const Pair& pair, std::vector<Row>& rows)
{
    const prereg::CPoseJudge judge(*pair.fix->view, *pair.flt->view);
    for (Row& row : rows) {
        const auto start = std::chrono::steady_clock::now();
        row.eFinding = judge.Judge(row.pose).eFinding;
        row.dMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        row.counts = judge.Count(row.pose);
        if (judge.Weigh(row.counts) != prereg::EFinding::Consistent) continue;
        row.slide = judge.SlideGrowth(row.pose, row.counts);
        row.dHold = judge.HoldRatio(row.pose);
    }
}

std::vector<Pair> pairsOf(const std::vector<Object>& objects)
{
    std::vector<Pair> pairs;
    for (std::size_t k = 0; k < objects.size(); ++k) {
        const auto& views = objects[k].views;
        for (std::size_t i = 0; i < views.size(); ++i)
            for (std::size_t j = i + 1; j < views.size(); ++j) pairs.push_back({&objects[k], &views[i], &views[j]});
        const auto& others = objects[(k + 1) % objects.size()].views;
        if (objects.size() < 2) continue;
        for (std::size_t i = 0; i < std::min(views.size(), others.size()); ++i)
            pairs.push_back({&objects[k], &views[i], &others[i], true});
    }
    return pairs;
}

void write(std::ostream& out, const Row& row)
{
    out << row.set << ',' << row.fix << ',' << row.flt << ',' << row.dOverlap << ',' << static_cast<int>(row.eSource);
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 4; ++j) out << ',' << row.pose(i, j);
    const auto& c = row.counts;
    out << ',' << row.isAccepted << ',' << row.dDegrees << ',' << row.dSize << ',' << c.uiSamples << ',' << c.uiMatched
        << ',' << c.uiInFront << ',' << c.uiMissing << ',' << c.uiOpposed << ',' << c.uiTail << ',' << c.uiShallow
        << ',' << c.matchedOf[0] << ',' << c.matchedOf[1] << ',' << row.slide << ',' << static_cast<int>(row.eFinding)
        << ',' << row.dMs << ',' << row.dHold << '\n';
}

std::map<std::pair<std::string, std::string>, std::vector<Row>> readPoses(const std::string& file)
{
    std::map<std::pair<std::string, std::string>, std::vector<Row>> rows;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        std::istringstream cells(line);
        std::vector<std::string> cell;
        for (std::string text; std::getline(cells, text, ',');) cell.push_back(text);
        const auto number = [&](std::size_t i) { return static_cast<float>(std::atof(cell.at(i).c_str())); };
        Row row;
        row.eSource = static_cast<ESource>(std::atoi(cell.at(4).c_str()));
        const auto axis = [&](std::size_t i) { return Vector3(number(i), number(i + 1), number(i + 2)); };
        row.pose = {axis(5), axis(9), axis(13), Vector3(number(8), number(12), number(16))};
        row.isAccepted = std::atoi(cell.at(17).c_str()) != 0;
        rows[{cell.at(1), cell.at(2)}].push_back(row);
    }
    return rows;
}

std::vector<Row> restored(const Pair& pair, const std::map<std::pair<std::string, std::string>, std::vector<Row>>& read)
{
    std::vector<Row> rows;
    const Row key = rowFor(pair, ESource::Truth, prereg::ICPResult(prereg::CTrafo()));
    const auto found = read.find({key.fix, key.flt});
    if (found == read.end()) return rows;
    for (const Row& old : found->second) {
        prereg::ICPResult result(old.pose);
        if (!old.isAccepted) result.eICPResult = prereg::ICP_RMSETooLarge;
        rows.push_back(rowFor(pair, old.eSource, result));
    }
    return rows;
}

struct Tally
{
    unsigned uiAll = 0;
    unsigned uiKept = 0;

    void Add(bool isKept)
    {
        ++uiAll;
        uiKept += isKept;
    }
    [[nodiscard]] std::string Text() const { return std::to_string(uiKept) + "/" + std::to_string(uiAll); }
};

void report(const std::vector<Row>& rows, const std::vector<Object>& objects)
{
    constexpr double dClasses[] = {0.0, 0.1, 0.2, 0.4, 2.0};
    std::printf("%-12s %11s %11s %11s %11s | %12s %12s %12s | %10s\n", "set", "right < 0.1", "to 0.2", "to 0.4",
                "above", "wrong search", "wrong starts", "strangers", "accepted");
    double ms = 0.0;
    for (const Object& object : objects) {
        Tally right[4];
        Tally wrong[4];
        Tally accepted; // of the wrong ones that the limits of the ICP let pass
        for (const Row& row : rows) {
            if (row.set != object.name) continue;
            const bool isKept = row.eFinding == prereg::EFinding::Consistent;
            ms += row.dMs;
            if (row.eSource != ESource::Stranger && row.IsRight()) {
                for (int k = 0; k < 4; ++k)
                    if (row.eSource == ESource::Truth && row.dOverlap >= dClasses[k] && row.dOverlap < dClasses[k + 1])
                        right[k].Add(isKept);
            } else if (row.eSource == ESource::Stranger || row.IsWrong()) {
                wrong[static_cast<int>(row.eSource)].Add(isKept);
                if (row.isAccepted) accepted.Add(isKept);
            }
        }
        std::printf("%-12s %11s %11s %11s %11s | %12s %12s %12s | %10s\n", object.name.c_str(), right[0].Text().c_str(),
                    right[1].Text().c_str(), right[2].Text().c_str(), right[3].Text().c_str(), wrong[0].Text().c_str(),
                    wrong[1].Text().c_str(), wrong[3].Text().c_str(), accepted.Text().c_str());
    }
    std::printf("%zu poses, %.2f ms each in the mean\n", rows.size(),
                ms / static_cast<double>(std::max<std::size_t>(1, rows.size())));
}

struct Options
{
    std::vector<std::string> sets;
    unsigned uiStarts = 20;
    unsigned uiJobs = 1;
    std::string csv;
    std::string from;
};

int run(const Options& options)
{
    const char* data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) {
        std::puts("skipped: ZORVAN_DATA does not name the folder of the scans");
        return 0;
    }
    std::vector<Object> objects;
    for (const std::string& set : options.sets) objects.push_back(load(std::filesystem::path(data) / set));
    const auto read = readPoses(options.from);
    if (options.from.empty())
        for (Object& object : objects)
            for (View& view : object.views) view.features = featuresOf(view, object.config);
    const std::vector<Pair> pairs = pairsOf(objects);
    std::vector<std::vector<Row>> results(pairs.size());
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i = next++; i < pairs.size(); i = next++) {
            results[i] = options.from.empty() ? candidatesOf(pairs[i], options.uiStarts, static_cast<unsigned>(i))
                                              : restored(pairs[i], read);
            weigh(pairs[i], results[i]);
        }
    };
    std::vector<std::jthread> workers(options.uiJobs);
    for (std::jthread& worker : workers) worker = std::jthread(work);
    workers.clear();
    std::vector<Row> rows;
    for (const auto& result : results) rows.insert(rows.end(), result.begin(), result.end());
    if (!options.csv.empty()) {
        std::ofstream out(options.csv);
        out.precision(9);
        for (const Row& row : rows) write(out, row);
    }
    report(rows, objects);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("What the judge keeps and loses");
    app.add_option("SET", options.sets, "Folders below ZORVAN_DATA")->required();
    app.add_option("--starts", options.uiStarts, "Wrong starts a pair");
    app.add_option("--jobs", options.uiJobs, "Threads")->check(CLI::Range(1, 256));
    app.add_option("--csv", options.csv, "Every pose with its counts");
    app.add_option("--from", options.from, "Weigh the poses of such a file again");
    CLI11_PARSE(app, argc, argv);
    Logging::SetLogLevel(Logging::ELogLevel::Error);
    try {
        return run(options);
    } catch (const Zorvan::CInputError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
