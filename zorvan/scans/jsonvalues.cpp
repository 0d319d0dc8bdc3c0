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

} // namespace Zorvan
