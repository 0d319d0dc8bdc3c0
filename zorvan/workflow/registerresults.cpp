// SPDX-License-Identifier: MIT
#include "zorvan/workflow/registerresults.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/exportscans.h"
#include "zorvan/workflow/report.h"
#include "zorvan/workflow/scancolours.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

namespace prereg {

namespace {

constexpr int iFound = 0;    // success
constexpr int iNoPlace = -1; // the numbers of outcomes have none for "fits nowhere"

/// Members by cluster, the main one first.
std::vector<std::vector<std::size_t>> membersByCluster(const RegistrationTable& table)
{
    std::map<std::string, std::vector<std::size_t>> clusters;
    for (std::size_t i = 0; i < table.scans.size(); ++i) clusters[table.scans[i].cluster].push_back(i);
    std::vector<std::vector<std::size_t>> sorted;
    sorted.reserve(clusters.size());
    for (auto& [id, members] : clusters) sorted.push_back(std::move(members));
    const auto views = [&](const auto& members) {
        return std::ranges::count_if(members, [&](std::size_t i) { return !table.scans[i].copyOf; });
    };
    std::stable_sort(sorted.begin(), sorted.end(), [&](const auto& a, const auto& b) {
        if (views(a) != views(b)) return views(a) > views(b);
        if (table.scans[a.front()].isPrimary != table.scans[b.front()].isPrimary)
            return table.scans[a.front()].isPrimary;
        return a.front() < b.front();
    });
    return sorted;
}

/// Of clusters and scans, the first that is not zero.
Zorvan::Position sharedShift(const RegistrationTable& table)
{
    std::vector<Zorvan::Position> shifts{table.shift};
    for (const ScanRow& scan : table.scans) shifts.push_back(scan.shift);
    return Zorvan::CommonShift(shifts);
}

void writeMerged(const std::filesystem::path& file, const CSession& session, const RegistrationTable& table)
{
    const std::string cluster = MainCluster(table);
    Zorvan::Scan merged;
    merged.shift = table.shift;
    std::vector<Zorvan::Rgb> colours;
    for (std::size_t i = 0; i < table.scans.size(); ++i) {
        if (table.scans[i].cluster != cluster) continue;
        const auto set = session.GetRegistration().GetPointSetAndTransform(session.GetFiles()[i].id).first;
        for (std::size_t k = 0; k < set->Size(); ++k) {
            const auto [point, normal] = table.scans[i].pose.Transform(set->GetPoint(k), set->GetNormal(k));
            merged.points.push_back(point);
            merged.normals.push_back(normal);
            colours.push_back(ScanColour(i));
        }
    }
    Zorvan::WritePly(file, merged, 1.0 / table.dMmPerUnit, colours);
}

/// Those that the session knows the files of; several scans of a file come with it.
ExportOutcome exportOriginals(const std::filesystem::path& to, const CSession& session, const RegistrationTable& table)
{
    ExportOutcome outcome;
    std::vector<std::filesystem::path> files;
    for (const CSession::ScanFile& scan : session.GetFiles()) {
        const auto isKnown = [&](const auto& list) { return std::ranges::find(list, scan.file) != list.end(); };
        if (scan.file.empty() || isKnown(files) || isKnown(outcome.missing)) continue;
        (std::filesystem::exists(scan.file) ? files : outcome.missing).push_back(scan.file);
    }
    outcome.uiScans = ExportScans(to, files, ToPoses(table));
    return outcome;
}

std::string lengthText(double mm, double mmPerUnit)
{
    return std::isfinite(mm) ? Zorvan::ToText(mm / mmPerUnit, 3) : "-";
}

/// Those of scans that found their place, without any that is alone with its copies.
std::size_t countClusters(const RegistrationTable& table)
{
    std::set<std::string> clusters;
    for (const ScanRow& scan : table.scans)
        if (scan.isPlaced) clusters.insert(scan.cluster);
    return clusters.size();
}

/// "; 3 ambiguous, 1 alone"
std::string unplacedWords(const RegistrationTable& table)
{
    std::map<std::optional<EPlace>, std::size_t> counts;
    for (const ScanRow& scan : table.scans)
        if (!scan.isPlaced) ++counts[scan.ePlace];
    std::string words;
    for (const auto& [place, name] : {std::pair{std::optional(EPlace::Ambiguous), "ambiguous"},
                                      {std::optional(EPlace::Contradicted), "contradicted"},
                                      {std::optional(EPlace::Alone), "alone"},
                                      {std::optional<EPlace>(), "found no place"}}) {
        const std::size_t count = counts[place];
        if (count > 0) words += (words.empty() ? "; " : ", ") + std::to_string(count) + " " + name;
    }
    return words;
}

std::string divisionWords(const RegistrationTable& table)
{
    if (table.disputes.empty()) return {};
    return std::string("; scans of objects that differ in ") + (table.disputes.size() == 1 ? "a hole" : "holes") +
           " were put apart";
}

} // namespace

Zorvan::PosesFile ToPoses(const RegistrationTable& table)
{
    Zorvan::PosesFile poses{table.dMmPerUnit, {}};
    poses.shift = sharedShift(table);
    for (const auto& members : membersByCluster(table)) {
        const ScanRow& first = table.scans[members.front()];
        Zorvan::PoseCluster cluster{first.cluster, first.isPrimary, {}};
        for (const std::size_t i : members) {
            const ScanRow& scan = table.scans[i];
            const Zorvan::RegistrationSummary result{scan.isPlaced ? iFound : iNoPlace, scan.verdict, scan.dRmse,
                                                     scan.dOverlap, scan.dSlip};
            cluster.scans.push_back({scan.file, scan.id, {}, result});
            SetPoseAbout(cluster.scans.back(), scan.pose, scan.shift, table.shift);
        }
        poses.clusters.push_back(std::move(cluster));
    }
    return poses;
}

std::string MainCluster(const RegistrationTable& table)
{
    const auto clusters = membersByCluster(table);
    return clusters.empty() ? std::string() : table.scans[clusters.front().front()].cluster;
}

std::vector<std::string> ResultNames(const std::string& exported)
{
    std::vector<std::string> names(resultFiles.begin(), resultFiles.end());
    names.emplace_back(sRunRecordFile);
    if (!exported.empty()) names.push_back(ExportName(exported));
    return names;
}

void PrepareResults(const std::filesystem::path& folder)
{
    Zorvan::MakeFolder(folder);
    Zorvan::RequireWritable(folder / resultFiles.back());
    for (const std::string& name : ResultNames()) Zorvan::RequireReplaceable(folder / name);
}

std::string ExportName(const std::string& ending) { return "scans." + ending; }

ExportOutcome WriteRegistration(const std::filesystem::path& folder, const CSession& session,
                                const RegistrationTable& table, const MoreResults& more)
{
    std::vector<SurfelSpan> surfaces;
    for (const CSession::ScanFile& file : session.GetFiles()) {
        const auto set = session.GetRegistration().GetPointSetAndTransform(file.id).first;
        surfaces.push_back({set->GetPoints(), set->GetNormals()});
    }
    Zorvan::CStagingFolder staging(folder);
    Zorvan::WritePoses(staging / "poses.json", ToPoses(table));
    writeMerged(staging / "merged.ply", session, table);
    WriteReport(staging / "report.html", table, surfaces);
    session.Save(staging / "session.zdoc");
    ExportOutcome outcome;
    if (!more.exported.empty()) outcome = exportOriginals(staging / ExportName(more.exported), session, table);
    if (more.runRecord) Zorvan::WriteFileAtomically(staging / sRunRecordFile, more.runRecord());
    staging.Publish();
    return outcome;
}

bool IsWhole(const RegistrationTable& table)
{
    const auto isPlaced = [](const ScanRow& scan) { return scan.isPlaced; };
    return std::ranges::all_of(table.scans, isPlaced) && countClusters(table) == 1 && table.leftOut.empty() &&
           !table.isStopped;
}

std::string OutcomeWords(const RegistrationTable& table)
{
    const std::string rest = table.leftOut.empty() ? "" : "; others could not be used";
    const std::string all = std::to_string(table.scans.size());
    const auto copies = std::ranges::count_if(table.scans, [](const ScanRow& scan) { return scan.copyOf.has_value(); });
    if (table.scans.empty()) return "no scans" + rest;
    if (table.scans.size() == 1) return "1 scan, nothing to register it with" + rest;
    if (static_cast<std::size_t>(copies) + 1 == table.scans.size())
        return all + " copies of one scan, nothing to register it with" + rest;
    const auto placed = std::ranges::count_if(table.scans, [](const ScanRow& scan) { return scan.isPlaced; });
    const std::size_t clusters = countClusters(table);
    return (table.isStopped ? "stopped; so far " : "") + std::to_string(placed) + " of " + all + " scans registered" +
           (clusters == 0 ? "" : ", in " + std::to_string(clusters) + (clusters == 1 ? " cluster" : " clusters")) +
           unplacedWords(table) + divisionWords(table) + rest;
}

std::vector<std::string> OutcomeNotes(const RegistrationTable& table)
{
    std::vector<std::string> notes;
    if (table.isStopped) notes.emplace_back(sStoppedWords);
    for (const std::string& why : table.leftOut) notes.push_back("left out: " + Zorvan::ToShown(why));
    return notes;
}

std::string ToText(const RegistrationTable& table)
{
    const std::string unit = Zorvan::UnitName(table.dMmPerUnit);
    std::size_t width = 4;
    for (const ScanRow& scan : table.scans) width = std::max(width, Zorvan::ToShown(scan.file).size());
    std::ostringstream out;
    const auto line = [&](const std::string& scan, const std::string& cluster, const std::string& overlap,
                          const std::string& rmse, const std::string& slip, const std::string& verdict) {
        out << std::left << std::setw(static_cast<int>(width)) << scan << std::right << "  " << std::setw(7) << cluster
            << "  " << std::setw(7) << overlap << "  " << std::setw(9) << rmse << "  " << std::setw(9) << slip << "  "
            << verdict << '\n';
    };
    line("scan", "cluster", "overlap", "RMSE/" + unit, "slip/" + unit, "");
    std::size_t number = 0;
    for (const auto& members : membersByCluster(table)) {
        ++number;
        for (const std::size_t i : members) {
            const ScanRow& scan = table.scans[i];
            line(Zorvan::ToShown(scan.file), std::to_string(number),
                 std::isfinite(scan.dOverlap) ? Zorvan::ToText(scan.dOverlap, 2) : "-",
                 lengthText(scan.dRmse, table.dMmPerUnit), lengthText(scan.dSlip, table.dMmPerUnit), scan.verdict);
        }
    }
    for (const DisputeRow& dispute : table.disputes) out << ToText(dispute, table) << '\n';
    out << OutcomeWords(table) << '\n';
    return out.str();
}

} // namespace prereg
