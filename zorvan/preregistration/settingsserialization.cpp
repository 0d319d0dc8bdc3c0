// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/settingsserialization.h"

#include "zorvan/features/configurationfpfh_fields.h"
#include "zorvan/platform/clogger.h"

#include <string_view>

namespace bson {

namespace {

element toElement(const char* key, unsigned int value) { return {key, value}; }
element toElement(const char* key, double value) { return {key, value}; }
element toElement(const char* key, const prereg::ConfigurationICP& value) { return {key, to_object(value)}; }

void read(const element& e, unsigned int& value) { value = e.as_uint32(); }
void read(const element& e, double& value) { value = e.as_double(); }
void read(const element& e, prereg::ConfigurationICP& value)
{
    value = from_object<prereg::ConfigurationICP>(e.as_object());
}

template <class Config>
object write(const Config& config)
{
    object document;
    prereg::VisitFields(
        config, [&](const prereg::SettingInfo& info, const auto& field) { document += toElement(info.key, field); });
    return document;
}

template <class Config>
Config read(const object& document)
{
    Config config;
    for (const element& e : document)
        prereg::VisitFields(config, [&](const prereg::SettingInfo& info, auto& field) {
            if (std::string_view(info.key) == e.name()) read(e, field);
        });
    return config;
}

} // namespace

object to_object(const prereg::ConfigurationICP& config) { return write(config); }

object to_object(const prereg::ConfigurationFPFH& config) { return write(config); }

template <>
prereg::ConfigurationICP from_object(const object& document)
{
    return read<prereg::ConfigurationICP>(document);
}

template <>
prereg::ConfigurationFPFH from_object(const object& document)
{
    return read<prereg::ConfigurationFPFH>(document);
}

} // namespace bson

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

template <class Config>
Config override(const bson::object& overrides, const Config& base, const wchar_t* nothing)
{
    if (overrides) return bson::from_object<Config>(bson::to_object(base).update(overrides));
    // Hosts filter their logs by this name of the function.
    logger.Warn({nothing, __FILE__, __LINE__, "prereg::OverrideSettings"});
    return base;
}

} // namespace

ConfigurationICP OverrideSettings(const bson::object& overrides, const ConfigurationICP& base)
{
    return override(overrides, base, L"OverrideConfigSettings(ICP): nothing to override");
}

ConfigurationFPFH OverrideSettings(const bson::object& overrides, const ConfigurationFPFH& base)
{
    return override(overrides, base, L"OverrideConfigSettings(FPFH): nothing to override");
}

ConfigurationFPFH WithSharedSettings(const Zorvan::CSharedFlags& flags, const ConfigurationFPFH& base)
{
    constexpr const char* name = "ConfigurationFPFH";
    if (!flags.Exists(name)) return base;
    return OverrideSettings(Zorvan::ReadObjectFlag(flags, name), base);
}

} // namespace prereg
