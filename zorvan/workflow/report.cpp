// SPDX-License-Identifier: MIT
#include "zorvan/workflow/report.h"

#include "reporttemplate.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/util/base64.h"
#include "zorvan/workflow/cloudlattice.h"
#include "zorvan/workflow/disputerow.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/scancolours.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>
#include <string_view>

namespace prereg {

namespace {

using Json = nlohmann::ordered_json;

/// Scans that share coordinates: those of a cluster, or a single one that has no pose.
struct Frame
{
    std::string cluster;
    bool isPrimary = false;
    std::vector<std::size_t> scans;
    CloudLattice lattice;
};

/// Six digits say more than any plot or table shows.
Json number(double value) { return Zorvan::JsonNumber(value, 6); }

/// A scan without a pose stays where it is.
CTrafo poseOrIdentity(const ScanRow& scan) { return scan.pose ? scan.pose : CTrafo::Identity(); }

// Clusters in the order of their first scans, but the primary one at the front and scans without a pose at the end.
std::vector<Frame> framesOf(const std::vector<ScanRow>& scans)
{
    std::vector<Frame> clusters;
    std::vector<Frame> loners;
    for (std::size_t i = 0; i < scans.size(); ++i) {
        const ScanRow& scan = scans[i];
        if (!scan.pose) {
            loners.push_back({{}, false, {i}, {}});
            continue;
        }
        const auto isSame = [&](const Frame& frame) { return frame.cluster == scan.cluster; };
        auto frame = std::find_if(clusters.begin(), clusters.end(), isSame);
        if (frame == clusters.end()) frame = clusters.insert(frame, {scan.cluster, false, {}, {}});
        frame->isPrimary |= scan.isPrimary;
        frame->scans.push_back(i);
    }
    std::stable_partition(clusters.begin(), clusters.end(), [](const Frame& frame) { return frame.isPrimary; });
    clusters.insert(clusters.end(), loners.begin(), loners.end());
    return clusters;
}

CloudLattice latticeOf(const Frame& frame, const RegistrationTable& table, std::span<const SurfelSpan> surfaces)
{
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const std::size_t scan : frame.scans) {
        const CTrafo pose = poseOrIdentity(table.scans[scan]);
        for (const kdtree::Vector<3>& point : surfaces[scan].points) {
            const kdtree::Vector<3> p = pose * point;
            if (p.IsFinite()) box = {kdtree::Min(box.low, p), kdtree::Max(box.high, p)};
        }
    }
    return box.low.IsFinite() ? CloudLattice::Over(box) : CloudLattice();
}

/// Points on the lattice with their normals, in steps of 1/127.
struct PackedCloud
{
    std::vector<LatticePoint> points;
    std::vector<std::array<std::int8_t, 3>> normals;
};

PackedCloud packCloud(const SurfelSpan& surface, const CTrafo& pose, const CloudLattice& lattice)
{
    const auto toStep = [](float x) { return static_cast<std::int8_t>(std::lround(127 * std::clamp(x, -1.0F, 1.0F))); };
    PackedCloud cloud;
    for (std::size_t i = 0; i < surface.points.size(); ++i) {
        const auto [p, n] = pose.Transform(surface.points[i], surface.normals[i]);
        if (!p.IsFinite() || !n.IsFinite()) continue;
        cloud.points.push_back(lattice.Nearest(p));
        cloud.normals.push_back({toStep(n.x), toStep(n.y), toStep(n.z)});
    }
    return cloud;
}

PackedCloud thinned(const PackedCloud& cloud, std::size_t max)
{
    PackedCloud few;
    for (const std::uint32_t i : ThinEvenly(cloud.points, max)) {
        few.points.push_back(cloud.points[i]);
        few.normals.push_back(cloud.normals[i]);
    }
    return few;
}

std::string base64(std::string_view bytes) { return Zorvan::Base64::Encode(bytes.data(), bytes.size()).get(); }

/// Base64 of the coordinates as little-endian numbers of 16 bits, and of the normals as signed bytes.
Json cloudJson(const PackedCloud& cloud)
{
    std::string points;
    for (const LatticePoint& point : cloud.points) {
        for (const std::uint16_t x : point) points += {static_cast<char>(x & 0xFFU), static_cast<char>(x >> 8U)};
    }
    std::string normals;
    for (const auto& normal : cloud.normals) {
        for (const std::int8_t x : normal) normals += static_cast<char>(x);
    }
    return {{"count", cloud.points.size()}, {"points", base64(points)}, {"normals", base64(normals)}};
}

Json frameJson(const Frame& frame, double mmPerUnit)
{
    Json low = Json::array();
    for (unsigned axis = 0; axis < 3; ++axis) low.push_back(Zorvan::JsonNumber(frame.lattice.low[axis] / mmPerUnit));
    return {{"cluster", frame.cluster},
            {"primary", frame.isPrimary},
            {"scans", frame.scans},
            {"low", std::move(low)},
            {"step", Zorvan::JsonNumber(frame.lattice.dStep / mmPerUnit)}};
}

/// Between the coordinates of the files, whatever was taken off them.
Json poseJson(const ScanRow& scan, const RegistrationTable& table)
{
    Zorvan::ScanPose pose;
    SetPoseAbout(pose, scan.pose, scan.shift, table.shift);
    return Zorvan::JsonPose(pose, table.dMmPerUnit, pose.exact.has_value());
}

Json scanJson(const ScanRow& scan, const Zorvan::Rgb& colour, const RegistrationTable& table)
{
    const double mmPerUnit = table.dMmPerUnit;
    return {{"file", scan.file},
            {"id", scan.id},
            {"colour", colour},
            {"points", scan.uiPoints},
            {"overlap", number(scan.dOverlap)},
            {"rmse", number(scan.dRmse / mmPerUnit)},
            {"slip", number(scan.dSlip / mmPerUnit)},
            {"verdict", scan.verdict},
            {"placed", scan.isPlaced},
            {"pose", poseJson(scan, table)}};
}

Json pairsJson(const std::vector<PairRow>& pairs, double mmPerUnit)
{
    Json all = Json::array();
    for (const PairRow& pair : pairs)
        all.push_back({{"a", pair.a},
                       {"b", pair.b},
                       {"overlap", number(pair.dOverlap)},
                       {"rmse", number(pair.dRmse / mmPerUnit)}});
    return all;
}

Json weighedJson(const std::vector<WeighedRow>& pairs)
{
    Json all = Json::array();
    for (const WeighedRow& pair : pairs)
        all.push_back({{"a", pair.a},
                       {"b", pair.b},
                       {"search", pair.search},
                       {"places", pair.uiPlaces},
                       {"standing", pair.standing},
                       {"matched", pair.uiMatched},
                       {"contradictions", pair.uiContradictions},
                       {"through", pair.uiThrough},
                       {"missing", pair.uiMissing},
                       {"opposed", pair.uiOpposed},
                       {"why", pair.why}});
    return all;
}

/// Where a spot lies in each frame with scans that say something of it, in steps of the lattice.
Json marksJson(const DisputeRow& dispute, std::span<const Frame> frames)
{
    Json marks = Json::array();
    for (std::size_t f = 0; f < frames.size(); ++f) {
        const CloudLattice& lattice = frames[f].lattice;
        std::vector<SightRow> sights;
        std::ranges::copy_if(dispute.sights, std::back_inserter(sights), [&](const SightRow& sight) {
            return std::ranges::find(frames[f].scans, sight.scan) != frames[f].scans.end();
        });
        if (sights.empty() || !(lattice.dStep > 0.0) || !sights.front().at.IsFinite()) continue;
        Json at = Json::array();
        for (unsigned axis = 0; axis < 3; ++axis)
            at.push_back(number(static_cast<double>(sights.front().at[axis] - lattice.low[axis]) / lattice.dStep));
        Json scans = Json::array();
        for (const SightRow& sight : sights) scans.push_back(sight.scan);
        marks.push_back({{"frame", f}, {"at", std::move(at)}, {"scans", std::move(scans)}});
    }
    return marks;
}

Json disputesJson(const RegistrationTable& table, std::span<const Frame> frames)
{
    Json all = Json::array();
    for (const DisputeRow& dispute : table.disputes) {
        all.push_back(DisputeJson(dispute, table, false));
        all.back()["words"] = ToText(dispute, table);
        all.back()["marks"] = marksJson(dispute, frames);
    }
    return all;
}

/// What `scan` may show of all points.
std::size_t shareOf(std::size_t points, std::size_t all)
{
    return all <= uiMaxReportPoints ? points : points * uiMaxReportPoints / all;
}

Json reportJson(const RegistrationTable& table, std::span<const SurfelSpan> surfaces)
{
    std::size_t all = 0;
    for (const SurfelSpan& surface : surfaces) all += surface.points.size();

    std::vector<Frame> frames = framesOf(table.scans);
    Json framesJson = Json::array();
    std::vector<Json> scans(table.scans.size());
    for (Frame& frame : frames) {
        frame.lattice = latticeOf(frame, table, surfaces);
        framesJson.push_back(frameJson(frame, table.dMmPerUnit));
        for (const std::size_t i : frame.scans) {
            const PackedCloud cloud = packCloud(surfaces[i], poseOrIdentity(table.scans[i]), frame.lattice);
            scans[i] = scanJson(table.scans[i], ScanColour(i), table);
            scans[i]["cloud"] = cloudJson(thinned(cloud, shareOf(surfaces[i].points.size(), all)));
        }
    }
    return {{"unit", Zorvan::UnitName(table.dMmPerUnit)},
            {"frames", std::move(framesJson)},
            {"scans", std::move(scans)},
            {"pairs", pairsJson(table.pairs, table.dMmPerUnit)},
            {"weighed", weighedJson(table.weighed)},
            {"loops", table.uiLoops},
            {"disputes", disputesJson(table, frames)},
            {"outcome", OutcomeWords(table)},
            {"notes", OutcomeNotes(table)},
            {"whole", IsWhole(table)}};
}

// The data stands in a script element, which ends at the first "</script" and nowhere else: "<" must not appear, and
// inside the texts of JSON it may be written as its code.
std::string toScriptText(const Json& json)
{
    std::string text;
    for (const char c : json.dump(-1, ' ', false, Json::error_handler_t::replace)) {
        if (c == '<') {
            text += "\\u003c";
        } else {
            text += c;
        }
    }
    return text;
}

} // namespace

void WriteReport(const std::filesystem::path& file, const RegistrationTable& table,
                 std::span<const SurfelSpan> surfaces)
{
    constexpr std::string_view mark = "@REPORT_DATA@";
    const std::string_view page = sReportTemplate;
    const std::size_t place = page.find(mark);
    std::string text(page.substr(0, place));
    text += toScriptText(reportJson(table, surfaces));
    text += page.substr(place + mark.size());
    Zorvan::WriteFileAtomically(file, text);
}

} // namespace prereg
