// SPDX-License-Identifier: MIT
#include "zorvan/scans/jsonvalues.h"

#include "zorvan/scans/textnumber.h"

#include <cmath>
#include <utility>

namespace Zorvan {

using Json = nlohmann::ordered_json;

Json JsonNumber(double value, int digits)
{
    if (!std::isfinite(value)) return nullptr;
    return ParseNumber(ToText(value, digits)).value_or(value);
}

Json JsonPose(const prereg::CTrafo& pose, double dMmPerUnit)
{
    if (!pose) return nullptr;
    Json rows = Json::array();
    for (unsigned row = 0; row < 4; ++row) {
        Json values = Json::array();
        for (unsigned column = 0; column < 4; ++column) {
            const double unit = column == 3 && row < 3 ? dMmPerUnit : 1.0;
            values.push_back(JsonNumber(static_cast<double>(pose(row, column)) / unit));
        }
        rows.push_back(std::move(values));
    }
    return rows;
}

Json JsonPose(const ScanPose& scan, double dMmPerUnit, bool isFar)
{
    constexpr int iAllDigits = 17;
    constexpr int iTranslationDigits = 15;
    if (!isFar || !scan.exact) return JsonPose(scan.pose, dMmPerUnit);
    Json json = Json::array();
    for (const auto& row : *scan.exact)
        json.push_back({JsonNumber(row[0], iAllDigits), JsonNumber(row[1], iAllDigits), JsonNumber(row[2], iAllDigits),
                        JsonNumber(row[3] / dMmPerUnit, iTranslationDigits)});
    json.push_back({0.0, 0.0, 0.0, 1.0});
    return json;
}

} // namespace Zorvan
