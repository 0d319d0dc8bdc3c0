// SPDX-License-Identifier: MIT
#include "zorvan/workflow/runrecord.h"

#include "zorvan/preregistration/settingsserialization.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/movestream.h"
#include "zorvan/util/csha1.h"
#include "zorvan/workflow/disputerow.h"
#include "zorvan/workflow/registerresults.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace prereg {

namespace {

using Json = nlohmann::ordered_json;

/// As other tools write it: our own text has the two digits of each byte the other way round.
std::string commonText(const Zorvan::CSHA1& hash)
{
    std::string text = hash.ToString();
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) std::swap(text[i], text[i + 1]);
    return text;
}

Json settingsJson(const ConfigurationFPFH& config)
{
    const std::string text = bson::to_object(config).to_json();
    Json json = Json::parse(text, nullptr, false);
    return json.is_discarded() ? Json(text) : json;
}

Json scanJson(const ScanRow& scan, double mmPerUnit)
{
    return {{"file", scan.file},
            {"cluster", scan.cluster},
            {"placed", scan.isPlaced},
            {"verdict", scan.verdict},
            {"overlap", Zorvan::JsonNumber(scan.dOverlap)},
            {"rmse", Zorvan::JsonNumber(scan.dRmse / mmPerUnit)},
            {"slip", Zorvan::JsonNumber(scan.dSlip / mmPerUnit)}};
}

/// Lengths in the unit of the files, as in the poses: a rotation vector (radians) about `centre`, then a shift.
Json uncertaintyJson(const PoseUncertainty& uncertainty, const RegistrationTable& table)
{
    Json rows = Json::array();
    for (std::size_t r = 0; r < 6; ++r) {
        Json row = Json::array();
        for (std::size_t c = 0; c < 6; ++c) {
            const double unit = (r < 3 ? 1.0 : table.dMmPerUnit) * (c < 3 ? 1.0 : table.dMmPerUnit);
            row.push_back(Zorvan::JsonNumber(uncertainty.covariance[r][c] / unit));
        }
        rows.push_back(std::move(row));
    }
    Json centre = Json::array();
    for (unsigned k = 0; k < 3; ++k) {
        const double mm = static_cast<double>(uncertainty.centre[k]) + table.shift[k];
        centre.push_back(Zorvan::JsonNumber(mm / table.dMmPerUnit));
    }
    return {{"scan", table.scans[uncertainty.scan].file}, {"centre", centre}, {"covariance", rows}};
}

Json pairJson(const WeighedRow& pair, const RegistrationTable& table)
{
    return {{"a", table.scans[pair.a].file},
            {"b", table.scans[pair.b].file},
            {"search", pair.search.empty() ? Json() : Json(pair.search)},
            {"places", pair.uiPlaces},
            {"standing", pair.standing},
            {"matched", pair.uiMatched},
            {"contradictions", pair.uiContradictions},
            {"through", pair.uiThrough},
            {"missing", pair.uiMissing},
            {"opposed", pair.uiOpposed},
            {"why", pair.why}};
}

} // namespace

RunInput DescribeInput(const std::filesystem::path& file)
{
    RunInput input{file.filename().string(), 0, {}};
    try {
        Zorvan::CMoveStream stream(file, nullptr, Zorvan::Hooks::None());
        input.uiBytes = stream.Size();
        constexpr std::size_t uiPart = std::size_t{1} << 20U;
        input.sha1 = commonText(
            Zorvan::CSHA1::Compute([&] { return stream.Take(std::min<std::uint64_t>(uiPart, stream.BytesLeft())); }));
    } catch (const Zorvan::CInputError&) {
        input.sha1.clear(); // who reads it for good says why not
    }
    return input;
}

std::string RunRecordText(const RunRecord& record, const RegistrationTable& table)
{
    Json json = {{"command", record.command}, {"version", record.version}, {"options", Json::object()}};
    for (const auto& [name, value] : record.options) json["options"][name] = value;
    json["inputs"] = Json::array();
    for (const RunInput& input : record.inputs)
        json["inputs"].push_back({{"file", input.file}, {"bytes", input.uiBytes}, {"sha1", input.sha1}});
    json["settings"] = settingsJson(record.config);
    json["outcome"] = OutcomeWords(table);
    json["notes"] = OutcomeNotes(table);
    json["scans"] = Json::array();
    for (const ScanRow& scan : table.scans) json["scans"].push_back(scanJson(scan, table.dMmPerUnit));
    json["covariances"] = Json::array();
    for (const PoseUncertainty& uncertainty : record.uncertainties)
        json["covariances"].push_back(uncertaintyJson(uncertainty, table));
    json["pairs"] = Json::array();
    for (const WeighedRow& pair : table.weighed) json["pairs"].push_back(pairJson(pair, table));
    json["loops"] = table.uiLoops;
    json["disputes"] = Json::array();
    for (const DisputeRow& dispute : table.disputes) json["disputes"].push_back(DisputeJson(dispute, table, true));
    json["times"] = record.times;
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace prereg
