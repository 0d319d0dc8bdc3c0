// SPDX-License-Identifier: MIT
#include "zorvan/workflow/disputerow.h"

#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/registerresults.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

namespace prereg {

namespace {

using Json = nlohmann::ordered_json;
using Scans = std::vector<std::size_t>;

/// In the unit of the files, and in their coordinates.
std::array<double, 3> placeOf(const kdtree::Vector<3>& point, const RegistrationTable& table)
{
    std::array<double, 3> place{};
    for (unsigned k = 0; k < 3; ++k)
        place.at(k) = (static_cast<double>(point[k]) + table.shift.at(k)) / table.dMmPerUnit;
    return place;
}

std::string namesOf(const Scans& scans, const RegistrationTable& table)
{
    std::string names;
    for (const std::size_t i : scans) names += (names.empty() ? "" : ", ") + Zorvan::ToShown(table.scans[i].file);
    return names;
}

/// Three digits, or so many that a hundredth of the width shows: coordinates of a map have their digits far in front.
std::string coordinateText(double x, double width)
{
    const double steps = std::abs(x) / (0.01 * width);
    return Zorvan::ToText(x, steps > 1000.0 ? static_cast<int>(std::min(15.0, std::ceil(std::log10(steps)))) : 3);
}

/// "12.3, -4, 5.67"
std::string placeText(const kdtree::Vector<3>& point, const DisputeRow& dispute, const RegistrationTable& table)
{
    std::string text;
    for (const double x : placeOf(point, table))
        text += (text.empty() ? "" : ", ") + coordinateText(x, dispute.dWidth / table.dMmPerUnit);
    return text;
}

/// Over the scans of one side.
std::size_t sumOf(const DisputeRow& dispute, const Scans& side, std::size_t SightRow::*count)
{
    std::size_t sum = 0;
    for (const SightRow& sight : dispute.sights)
        if (std::ranges::find(side, sight.scan) != side.end()) sum += sight.*count;
    return sum;
}

/// "70 of 72 samples"
std::string samplesText(const DisputeRow& dispute, const Scans& side, std::size_t SightRow::*count)
{
    return std::to_string(sumOf(dispute, side, count)) + " of " + std::to_string(side.size() * dispute.uiSamples) +
           " samples";
}

} // namespace

std::vector<Dispute> DisputesOf(std::span<const DisputedSpot> spots, const std::vector<std::size_t>& members,
                                const std::vector<CTrafo>& poses, const std::vector<std::size_t>& leftOut)
{
    std::vector<Dispute> disputes;
    for (DisputedSpot spot : spots) {
        for (auto* const camp : {&spot.showing, &spot.lacking, &spot.unclear})
            for (std::size_t& view : *camp) view = members[view];
        for (SpotSight& sight : spot.sights) sight.view = members[sight.view];
        Dispute& dispute = disputes.emplace_back(Dispute{spot, leftOut, {}});
        for (const SpotSight& sight : spot.sights)
            dispute.inScans.push_back(poses[sight.view].GetInverse(true) * spot.middle);
    }
    return disputes;
}

DisputeRow RowOf(const Dispute& dispute, const RegistrationTable& table)
{
    const DisputedSpot& spot = dispute.spot;
    DisputeRow row{spot.showing, spot.lacking, spot.dWidth, spot.unclear, dispute.leftOut, spot.uiSamples};
    for (std::size_t i = 0; i < spot.sights.size(); ++i) {
        const SpotSight& sight = spot.sights[i];
        const kdtree::Vector<3> at = table.scans[sight.view].pose * dispute.inScans[i];
        row.sights.push_back({sight.view, sight.uiSurface, sight.uiOpen, sight.uiThrough, at});
        if (sight.view == spot.showing.front()) row.atShowing = at;
        if (sight.view == spot.lacking.front()) row.atLacking = at;
    }
    return row;
}

nlohmann::ordered_json DisputeJson(const DisputeRow& dispute, const RegistrationTable& table, bool isByName)
{
    const auto scanJson = [&](std::size_t scan) { return isByName ? Json(table.scans[scan].file) : Json(scan); };
    const auto scansJson = [&](const Scans& scans) {
        Json all = Json::array();
        for (const std::size_t scan : scans) all.push_back(scanJson(scan));
        return all;
    };
    const auto placeJson = [&](const kdtree::Vector<3>& point) {
        const int digits = table.shift == Zorvan::Position{} ? 9 : 15; // a float has nine, what a shift adds to it more
        Json place = Json::array();
        for (const double x : placeOf(point, table)) place.push_back(Zorvan::JsonNumber(x, digits));
        return place;
    };
    Json sights = Json::array();
    for (const SightRow& sight : dispute.sights)
        sights.push_back({{"scan", scanJson(sight.scan)},
                          {"surface", sight.uiSurface},
                          {"open", sight.uiOpen},
                          {"through", sight.uiThrough}});
    return {{"showing", scansJson(dispute.showing)},
            {"lacking", scansJson(dispute.lacking)},
            {"unclear", scansJson(dispute.unclear)},
            {"left_out", scansJson(dispute.leftOut)},
            {"width", Zorvan::JsonNumber(dispute.dWidth / table.dMmPerUnit, 6)},
            {"at", {{"showing", placeJson(dispute.atShowing)}, {"lacking", placeJson(dispute.atLacking)}}},
            {"samples", dispute.uiSamples},
            {"sights", std::move(sights)}};
}

std::string ToText(const DisputeRow& dispute, const RegistrationTable& table)
{
    const std::string unit = Zorvan::UnitName(table.dMmPerUnit);
    return namesOf(dispute.lacking, table) + " show a hole about " +
           Zorvan::ToText(dispute.dWidth / table.dMmPerUnit, 2) + " " + unit + " wide where " +
           namesOf(dispute.showing, table) + " show surface: they are of objects that differ, and were put apart" +
           (dispute.leftOut.empty() ? "" : ", and what may be of either was left out") + ". It is at " +
           placeText(dispute.atShowing, dispute, table) + " " + unit + " in the frame of the latter, which show " +
           samplesText(dispute, dispute.showing, &SightRow::uiSurface) + " of it; to the former " +
           samplesText(dispute, dispute.lacking, &SightRow::uiOpen) + " are open, " +
           std::to_string(sumOf(dispute, dispute.lacking, &SightRow::uiThrough)) + " of them looked through";
}

} // namespace prereg
