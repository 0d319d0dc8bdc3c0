// SPDX-License-Identifier: MIT
#include "zorvan/workflow/lookatposes.h"

#include "zorvan/core/groupwork.h"
#include "zorvan/core/icpregistration.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/core/orientedbox.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/scancopies.h"

#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <tuple>
#include <utility>

namespace prereg {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr unsigned uiSeed = 47110815; // the same poses always look the same

/// A scan where it is.
struct Placed
{
    CClusterRegistration::PointSet set;
    CTrafo pose;
};

/// Samples of `flt` that have a point of `fix` near, as a share, and how far they lie from its planes.
std::pair<double, double> residual(const ConfigurationICP& config, const Placed& fix, const Placed& flt)
{
    if (flt.set->GetKdTree().Empty()) return {0.0, nan};
    std::mt19937 rng(uiSeed);
    std::uniform_int_distribution<int> draw(0, static_cast<int>(flt.set->GetKdTree().Size()) - 1);
    const auto radius = static_cast<float>(config.dMinQueryRadius);
    const CTrafo toFix = fix.pose.GetInverse(true) * flt.pose;
    std::vector<PairWithError> pairs;
    SamplePairs(
        config, radius * radius, fix.set->GetPoints().data(), fix.set->GetNormals().data(), fix.set->GetKdTree(),
        flt.set->GetPoints().data(), flt.set->GetNormals().data(), flt.set->GetKdTree(), toFix,
        [&] { return draw(rng); }, &pairs, nullptr, true);
    const auto [inliers, rmse] = ComputeNumberOfInliers(pairs, config.dInlierScaling);
    if (inliers == 0) return {0.0, nan};
    return {static_cast<double>(pairs.size()) / config.uiNumSamples, static_cast<double>(rmse)};
}

/// Boxes that meet where points of the scans may be near each other.
std::vector<OrientedBox> boxesOf(const ConfigurationICP& config, const std::vector<Placed>& placed)
{
    constexpr double dPlay = 1.01; // roundings
    const auto reach = static_cast<float>(dPlay * config.dMinQueryRadius / 2.0);
    std::vector<OrientedBox> boxes;
    for (const Placed& scan : placed) {
        boxes.push_back(OrientedBox::FromCorners(scan.set->GetAABB()).Moved(scan.pose));
        boxes.back().halfExtent = boxes.back().halfExtent + kdtree::Vector<3>(reach, reach, reach);
    }
    return boxes;
}

/// Pairs of one cluster that may overlap, by their second scan.
std::vector<PairRow> pairsToLookAt(const ConfigurationICP& config, const std::vector<Placed>& placed,
                                   const RegistrationTable& table)
{
    const std::vector<OrientedBox> boxes = boxesOf(config, placed);
    std::vector<PairRow> pairs;
    for (std::size_t b = 1; b < placed.size(); ++b) {
        for (std::size_t a = 0; a < b; ++a) {
            if (table.scans[a].cluster != table.scans[b].cluster) continue;
            if (table.scans[a].copyOf || table.scans[b].copyOf) continue;
            if (Overlap(boxes[a], boxes[b])) pairs.push_back({a, b, 0.0, nan});
        }
    }
    return pairs;
}

void lookAtPairs(const ConfigurationICP& config, const std::vector<Placed>& placed, const CSession::Group& group,
                 RegistrationTable& table)
{
    table.pairs = pairsToLookAt(config, placed, table);
    ForEachIndex(group, table.pairs.size(), [&](std::size_t i) {
        PairRow& pair = table.pairs[i];
        const Placed& a = placed[pair.a];
        const Placed& b = placed[pair.b];
        // A small scan lies on a large one, and not the large one on it.
        std::tie(pair.dOverlap, pair.dRmse) = std::max(residual(config, a, b), residual(config, b, a));
    });
    std::erase_if(table.pairs, [&](const PairRow& pair) { return pair.dOverlap < config.dMinOverlapRatio; });
}

void summarizePairs(RegistrationTable& table)
{
    std::vector<std::vector<double>> overlaps(table.scans.size());
    std::vector<std::vector<double>> errors(table.scans.size());
    for (const PairRow& pair : table.pairs) {
        for (const std::size_t scan : {pair.a, pair.b}) {
            overlaps[scan].push_back(pair.dOverlap);
            errors[scan].push_back(pair.dRmse);
        }
    }
    const auto median = [](const std::vector<double>& values) { return values.empty() ? nan : Zorvan::Median(values); };
    for (std::size_t i = 0; i < table.scans.size(); ++i) {
        table.scans[i].dOverlap = median(overlaps[i]);
        table.scans[i].dRmse = median(errors[i]);
    }
}

/// Where a scan lies on another one with the same points. What is said of one holds for the other.
void markCopies(const std::vector<Placed>& placed, RegistrationTable& table)
{
    std::vector<ScanToCompare> sets;
    for (std::size_t i = 0; i < placed.size(); ++i)
        sets.push_back({placed[i].set->GetPoints(), placed[i].set->GetNormals(), table.scans[i].shift});
    const auto originals = FindCopies(sets);
    for (std::size_t i = 0; i < placed.size(); ++i) {
        if (!originals[i] || table.scans[*originals[i]].cluster != table.scans[i].cluster) continue;
        if (placed[*originals[i]].pose == placed[i].pose) table.scans[i].copyOf = originals[i];
    }
}

/// A scan that has none but its copies beside it has found no place.
void sayWhoIsPlaced(RegistrationTable& table)
{
    std::map<std::string, std::size_t> views;
    for (const ScanRow& scan : table.scans)
        if (!scan.copyOf) ++views[scan.cluster];
    for (ScanRow& scan : table.scans) {
        scan.isPlaced = views[scan.cluster] > 1;
        scan.verdict = scan.isPlaced ? "registered" : "found no place";
    }
}

void fillInCopies(RegistrationTable& table)
{
    for (ScanRow& row : table.scans) {
        if (!row.copyOf) continue;
        const ScanRow& original = table.scans[*row.copyOf];
        row.ePlace = original.ePlace;
        row.verdict = original.verdict;
        row.dOverlap = original.dOverlap;
        row.dRmse = original.dRmse;
        row.dSlip = original.dSlip;
    }
}

/// The members of one cluster, its primary entity first: the others' slips are against it.
void lookAtSlips(const ConfigurationICP& config, const std::vector<std::size_t>& members,
                 const std::vector<Placed>& placed, const CSession::Group& group, RegistrationTable& table)
{
    if (members.size() < 2) return;
    // One pass at the poses as they are, and only over points that lie near each other.
    ConfigurationICP look = config;
    look.uiMaxNumIterations = 0;
    look.dInitialQueryRadiusScaling = 1.0;
    ICPPointSetsWithPoses sets;
    for (const std::size_t i : members)
        sets.emplace_back(std::make_shared<const ICPPointSet>(placed[i].set), placed[i].pose);
    std::mt19937 rng(uiSeed);
    const double anyZScore = std::numeric_limits<double>::infinity();
    const auto [results, classes] =
        ComputeICPRegistration(look, rng, sets, group, anyZScore, true, Zorvan::Hooks::None(), EDraws::Shared);
    for (std::size_t k = 0; k < members.size(); ++k) {
        const double slip = static_cast<double>(results[k].GetStdDev());
        if (std::isfinite(slip) && results[k].vStop_StdDev.x >= 0.0F) table.scans[members[k]].dSlip = slip;
    }
}

ScanRow describe(const CSession::ScanFile& file, const CClusterRegistration& registration, const Placed& placed)
{
    const UniversalUniqueID cluster = registration.GetClusterID(file.id);
    ScanRow row;
    row.file = file.name;
    row.id = file.id;
    row.cluster = cluster;
    row.isPrimary = cluster == registration.GetPrimaryClusterID(); // of clusters of one size, see markPrimary
    row.pose = placed.pose;
    row.shift = file.shift;
    row.uiPoints = placed.set->Size();
    row.dOverlap = row.dRmse = row.dSlip = nan;
    return row;
}

/// The main cluster is what all results show, whichever the registration began with: one of a stray first scan would
/// leave all others out.
void markPrimary(RegistrationTable& table)
{
    const std::string main = MainCluster(table);
    for (ScanRow& scan : table.scans) scan.isPrimary = scan.cluster == main;
}

/// What the placing says of each scan.
void sayWhy(const Placing& placing, RegistrationTable& table)
{
    for (std::size_t i = 0; i < table.scans.size(); ++i) {
        // An optimisation may have taken a scan out afterwards: it did not agree with the others.
        ScanPlace place = placing.places[i];
        if (table.scans[i].isPlaced)
            place.ePlace = EPlace::Placed;
        else if (place.ePlace == EPlace::Placed)
            place.ePlace = EPlace::Alone;
        table.scans[i].ePlace = place.ePlace;
        table.scans[i].verdict = PlaceWords(place, table.scans[place.uiRefuter].file);
    }
}

const char* standingWord(const PairStanding& pair)
{
    if (!pair.isTogether) {
        if (!pair.finding || pair.finding->places.empty()) return "apart";
        return pair.finding->IsAligned() ? "refuted" : "undecided";
    }
    switch (pair.evidence.eEvidence) {
    case EEvidence::Supports:
        return "supports";
    case EEvidence::Refutes:
        return "refutes";
    case EEvidence::Silent:
        return "says nothing";
    }
    return "";
}

/// Of the two the one that was taken out, and by whom.
std::string whyRefuted(const PairStanding& pair, const RegistrationTable& table)
{
    for (const std::size_t i : {pair.pair.second, pair.pair.first}) {
        const ScanRow& scan = table.scans[i];
        if (scan.ePlace == EPlace::Contradicted) return scan.file + ": " + scan.verdict;
    }
    return {};
}

WeighedRow describe(const PairStanding& pair, const RegistrationTable& table)
{
    const bool hasPlace = pair.finding && !pair.finding->places.empty();
    const PoseCounts counts = pair.isTogether || !hasPlace ? pair.evidence.counts : pair.finding->places.front().counts;
    const std::string standing = standingWord(pair);
    return {pair.pair.first,
            pair.pair.second,
            pair.finding ? VerdictName(pair.finding->eVerdict) : "",
            pair.finding ? pair.finding->places.size() : 0,
            standing,
            counts.uiMatched,
            counts.Contradictions(),
            counts.uiInFront,
            counts.uiMissing,
            counts.uiOpposed,
            standing == "refuted" ? whyRefuted(pair, table) : ""};
}

} // namespace

RegistrationTable LookAtPoses(const CSession& session, const Placing* placing, const CSession::Group& group)
{
    const CClusterRegistration& registration = session.GetRegistration();
    RegistrationTable table{session.GetMmPerUnit(), {}, {}, {}, session.GetShift()};
    std::vector<Placed> placed;
    std::map<std::string, std::vector<std::size_t>> clusters;
    for (const CSession::ScanFile& file : session.GetFiles()) {
        const auto [set, pose] = registration.GetPointSetAndTransform(file.id);
        placed.push_back({set, pose});
        table.scans.push_back(describe(file, registration, placed.back()));
        auto& members = clusters[table.scans.back().cluster];
        const bool isFirst = registration.GetClusterPrimaryID(registration.GetClusterID(file.id)) == file.id;
        members.insert(isFirst ? members.begin() : members.end(), placed.size() - 1);
    }
    markCopies(placed, table);
    markPrimary(table);
    sayWhoIsPlaced(table);
    if (placing) sayWhy(*placing, table);
    const ConfigurationICP config = registration.GetRegistrationConfig().icpConfig;
    lookAtPairs(config, placed, group, table);
    summarizePairs(table);
    for (auto& [id, members] : clusters) {
        std::erase_if(members, [&](std::size_t i) { return table.scans[i].copyOf.has_value(); });
        lookAtSlips(config, members, placed, group, table);
    }
    fillInCopies(table);
    return table;
}

void AddPairs(std::span<const PairStanding> pairs, RegistrationTable& table)
{
    for (const PairStanding& pair : pairs) table.weighed.push_back(describe(pair, table));
    table.uiLoops = CountLoops(pairs, table.scans.size());
}

} // namespace prereg
