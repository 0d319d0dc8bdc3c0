// SPDX-License-Identifier: MIT
#include "zorvan/features/configurationfpfh.h"

#include "zorvan/features/configurationfpfh_fields.h"

#include <charconv>
#include <iterator>

namespace prereg {

namespace {

constexpr double smallestSize = 1e-6; // mm; far below, and above the largest, a float has no squares
constexpr double largestSize = 1e9;

std::string inMillimetres(const char* key, double mm)
{
    char digits[32] = {}; // not printf: the host's locale has no say
    std::to_chars(std::begin(digits), std::end(digits), mm, std::chars_format::general, 6);
    return std::string(key) + " (" + digits + " mm)";
}

void scale(const SettingInfo& info, double factor, auto& field) { ScaleSetting(info, factor, field); }
void scale(const SettingInfo& /*info*/, double factor, ConfigurationICP& config) { config = config.Scale(factor); }

std::string judge(const SettingInfo& info, const auto& field)
{
    const std::string why = WhatIsWrong(info, field);
    return why.empty() ? why : std::string(info.key) + " " + why;
}
std::string judge(const SettingInfo& /*info*/, const ConfigurationICP& config) { return WhatIsWrong(config); }

} // namespace

ConfigurationFPFH ConfigurationFPFH::Scale(double factor) const
{
    ConfigurationFPFH scaled = *this;
    VisitFields(scaled, [factor](const SettingInfo& info, auto& field) { scale(info, factor, field); });
    return scaled;
}

std::string WhatIsWrongWithFields(const ConfigurationFPFH& config)
{
    std::string why;
    VisitFields(config, [&](const SettingInfo& info, const auto& field) {
        if (why.empty()) why = judge(info, field);
    });
    return why;
}

std::string WhatIsWrong(const ConfigurationFPFH& config)
{
    const std::string why = WhatIsWrongWithFields(config);
    return why.empty() ? WhatIsWrongWithSizes(config, inMillimetres) : why;
}

std::string WhatIsWrongWithSizes(const ConfigurationFPFH& config,
                                 const std::function<std::string(const char* key, double mm)>& named)
{
    const auto radius = [&] { return named("dFeatureRadius", config.dFeatureRadius); };
    const auto featureGrid = [&] { return named("dFeatureGridSize", config.dFeatureGridSize); };
    const auto isTiny = [](double size) { return size > 0.0 && size < smallestSize; };
    if (!(config.dFeatureRadius >= smallestSize && config.dFeatureRadius <= largestSize))
        return radius() + " is not between 1e-6 and 1e9 mm";
    if (isTiny(config.dGridSize) || isTiny(config.dFeatureGridSize)) return "the grid is finer than 1e-6 mm";
    if (config.dFeatureGridSize > config.dFeatureRadius) return featureGrid() + " is larger than " + radius();
    if (config.dGridSize > config.dFeatureGridSize)
        return named("dGridSize", config.dGridSize) + " is larger than " + featureGrid();
    return {};
}

std::vector<SettingInfo> AllSettings()
{
    std::vector<SettingInfo> all;
    const auto add = [&](const SettingInfo& info, const auto& /*field*/) { all.push_back(info); };
    const ConfigurationFPFH config;
    VisitFields(config, add);
    all.pop_back();
    VisitFields(config.icpConfig, add);
    return all;
}

} // namespace prereg
