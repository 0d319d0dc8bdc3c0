// SPDX-License-Identifier: MIT
#include "zorvan/workflow/settingsfile.h"

#include "zorvan/features/configurationfpfh_fields.h"
#include "zorvan/preregistration/settingsserialization.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/documenttext.h"
#include "zorvan/workflow/settingwords.h"

#include <algorithm>
#include <map>
#include <utility>

namespace prereg {

namespace {

using bson::element;
using bson::object;

constexpr const char* sIcp = "icpConfig";

/// @param setting  of the type that the setting has
std::string whatIsWrongWith(const element& setting)
{
    for (const SettingInfo& info : AllSettings()) {
        if (info.key != setting.name_string()) continue;
        return setting.type() == element::eUInt32 ? WhatIsWrong(info, setting.as_uint32())
                                                  : WhatIsWrong(info, setting.as_double());
    }
    return {};
}

/// Compares a text with the settings there are, name by name.
class CSettingsReader
{
public:
    /// @param text  without places when nobody wrote it by hand
    CSettingsReader(DocumentText text, const std::string& source)
        : m_source(source),
          m_text(std::move(text)),
          m_all(bson::to_object(ConfigurationFPFH())),
          m_icp(m_all.child(sIcp).as_object())
    {
    }

    object Read()
    {
        readTop();
        if (m_icpSettings) m_settings += element(sIcp, m_icpSettings);
        return m_settings;
    }

private:
    void readTop()
    {
        for (const element& e : m_text.document) {
            const TextPlace place = nextPlace(e);
            if (e.name_string() == sIcp)
                readIcp(e, place);
            else if (const element setting = find(m_all, e))
                m_settings += checked(setting, e, place);
            else
                addIcp(e, place);
        }
    }

    void readIcp(const element& e, TextPlace place)
    {
        if (e.type() != element::eObject) refuse(place, e, "needs { and the settings of the ICP in it");
        for (const element& inner : e.as_object()) addIcp(inner, nextPlace(inner));
    }

    void addIcp(const element& e, TextPlace place)
    {
        const element setting = find(m_icp, e);
        if (!setting) refuseUnknown(e, place);
        m_icpSettings += checked(setting, e, place);
    }

    // Not `child`, which also looks into nested documents.
    [[nodiscard]] static element find(const object& settings, const element& e)
    {
        const auto* const found = std::find_if(settings.begin(), settings.end(),
                                               [&](const element& s) { return s.name_string() == e.name_string(); });
        return found == settings.end() ? element() : *found;
    }

    TextPlace nextPlace(const element& e)
    {
        const TextPlace place = m_text.names.empty() ? TextPlace() : m_text.names.at(m_next++);
        const auto [first, isNew] = m_firstPlaces.emplace(e.name_string(), place);
        const int iFirst = first->second.iLine;
        if (!isNew)
            refuse(place, e, "is set a second time" + (iFirst > 0 ? ", after line " + std::to_string(iFirst) : ""));
        return place;
    }

    [[nodiscard]] element checked(const element& setting, const element& e, TextPlace place) const
    {
        const bool isWhole = e.type() == element::eInt32;
        if (setting.type() == element::eDouble && !isWhole && e.type() != element::eDouble)
            refuse(place, e, "needs a number");
        if (setting.type() == element::eUInt32 && !isWhole) refuse(place, e, "needs a whole number");
        element coerced = setting.coerce(e, nullptr); // a negative count becomes a huge one
        if (const std::string why = whatIsWrongWith(coerced); !why.empty()) refuse(place, e, why);
        return coerced;
    }

    [[noreturn]] void refuse(TextPlace place, const element& e, const std::string& why) const
    {
        RefuseAt(m_source, place, e.name_string() + " " + why, "zorvan settings shows the settings and their values");
    }

    [[noreturn]] void refuseUnknown(const element& e, TextPlace place) const
    {
        const std::string near = NearestSettingName(e.name_string());
        if (near == e.name()) refuse(place, e, "is no setting of the ICP and stands outside of icpConfig");
        RefuseAt(m_source, place, "no setting has the name " + Zorvan::Quoted(e.name()),
                 (near.empty() ? "" : "perhaps " + near + " is meant; ") + std::string("zorvan settings lists all"));
    }

    std::string m_source;
    DocumentText m_text;
    object m_all;
    object m_icp;
    object m_settings;
    object m_icpSettings;
    std::size_t m_next = 0;
    std::map<std::string, TextPlace> m_firstPlaces;
};

std::string valueText(const element& e)
{
    if (e.type() == element::eUInt32) return std::to_string(e.as_uint32());
    return Zorvan::ToExactText(e.as_double());
}

std::string lines(const object& settings, std::size_t indent);

/// The value behind a name; the words about all values start in one column.
std::string line(const element& e, const std::string& comma, std::size_t indent)
{
    constexpr std::size_t uiWordsColumn = 54;
    const std::string blanks(indent, ' ');
    std::string text = blanks + "\"" + e.name() + "\" : ";
    if (e.type() == element::eObject) {
        text.append("{\n").append(lines(e.as_object(), indent + 2));
        return text.append(blanks).append("}").append(comma).append("\n");
    }
    text.append(valueText(e)).append(comma);
    text.resize(std::max(text.size() + 1, uiWordsColumn), ' ');
    return text.append("# ").append(WordsForSetting(e.name())).append("\n");
}

std::string lines(const object& settings, std::size_t indent)
{
    std::string text;
    for (const element& e : settings) text += line(e, &e + 1 == settings.end() ? "" : ",", indent);
    return text;
}

} // namespace

object ReadSettingsText(const std::string& text, const std::string& source)
{
    return CSettingsReader(ReadDocumentText(text, source), source).Read();
}

object CheckSettings(const object& settings, const std::string& source)
{
    return CSettingsReader({settings, {}}, source).Read();
}

object ReadSettingsFile(const std::filesystem::path& file)
{
    return ReadSettingsText(Zorvan::ReadFileBytes(file), file.string());
}

ConfigurationFPFH WithSettings(const ConfigurationFPFH& base, const object& settings)
{
    return settings ? OverrideSettings(settings, base) : base;
}

std::string WriteSettingsText(const ConfigurationFPFH& config, const std::string& heading)
{
    constexpr const char* sAdvice =
        "# Read back with --settings FILE. Keep only the lines that you change: what a file does not name\n"
        "# is still chosen for the scans at hand. Lengths are mm, angles radians, whatever the scans are in.\n";
    return "# " + heading + "\n" + sAdvice + "{\n" + lines(bson::to_object(config), 2) + "}\n";
}

std::string SettingsText(std::optional<double> dGrid, const std::filesystem::path& changes)
{
    std::string heading = "The library's own settings, for an intraoral scanner with points some 0.1 mm apart.";
    ConfigurationFPFH config;
    if (dGrid) {
        heading = "What the commands choose for a grid of " + Zorvan::ToText(*dGrid) + " mm.";
        config = AllSettingsForGrid(*dGrid);
    }
    if (!changes.empty()) {
        heading += " Changed by " + changes.string() + ".";
        config = WithSettings(config, ReadSettingsFile(changes));
    }
    return WriteSettingsText(config, Zorvan::ToShown(heading));
}

} // namespace prereg
