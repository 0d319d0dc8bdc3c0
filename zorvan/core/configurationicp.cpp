// SPDX-License-Identifier: MIT
#include "zorvan/core/configurationicp.h"

#include "zorvan/core/configurationicp_fields.h"

namespace prereg {

ConfigurationICP ConfigurationICP::Scale(double f) const
{
    ConfigurationICP scaled = *this;
    VisitFields(scaled, [f](const SettingInfo& info, auto& field) { ScaleSetting(info, f, field); });
    return scaled;
}

std::string WhatIsWrong(const ConfigurationICP& config)
{
    std::string why;
    VisitFields(config, [&](const SettingInfo& info, const auto& field) {
        if (!why.empty()) return;
        why = WhatIsWrong(info, field);
        if (!why.empty()) why = std::string(info.key) + " " + why;
    });
    return why;
}

} // namespace prereg
