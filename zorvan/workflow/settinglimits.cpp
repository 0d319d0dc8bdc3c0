#include "zorvan/workflow/settinglimits.h"

#include "zorvan/preregistration/settingsserialization.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace prereg {

namespace {

using bson::element;

struct Limit
{
    std::string_view name;
    unsigned uiMost;
};

constexpr unsigned uiMostOfAny = 1000000; // more of anything would fill the memory or take days

// Ctrl-C is heard between polygons only. The work for one grows with the vertices and with the third power of the
// neighbors, and takes about a tenth of a second at these limits.
constexpr Limit limits[] = {{"uiNumPolygonVertices", 100}, {"uiNumNeighbors", 100}};

unsigned mostOf(std::string_view name)
{
    const auto* const found = std::ranges::find(limits, name, &Limit::name);
    return found == std::end(limits) ? uiMostOfAny : found->uiMost;
}

std::string whatIsWrongInside(const bson::object& settings)
{
    for (const element& e : settings) {
        const bool isNested = e.type() == element::eObject;
        const std::string why = isNested ? whatIsWrongInside(e.as_object()) : WhatIsWrongWith(e);
        if (!why.empty()) return isNested ? why : e.name_string() + " " + why;
    }
    return {};
}

} // namespace

std::string WhatIsWrongWith(const element& setting)
{
    const unsigned most = mostOf(setting.name());
    if (setting.type() == element::eUInt32 && setting.as_uint32() > most)
        return "needs a whole number from 0 to " + std::to_string(most);
    if (setting.type() == element::eDouble && !std::isfinite(setting.as_double())) return "needs a finite number";
    return {};
}

std::string WhatIsWrongWith(const ConfigurationFPFH& config) { return whatIsWrongInside(bson::to_object(config)); }

} // namespace prereg
