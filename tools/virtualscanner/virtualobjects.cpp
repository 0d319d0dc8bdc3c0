// SPDX-License-Identifier: MIT
#include "virtualobjects.h"

#include "randomness.h"
#include "virtualjaw.h"

#include <array>
#include <functional>
#include <stdexcept>
#include <utility>

namespace tools {

namespace {

using Maker = std::shared_ptr<const AVirtualObject> (*)(unsigned);

template <CSolid (*make)(unsigned)>
std::shared_ptr<const AVirtualObject> shared(unsigned seed)
{
    return std::make_shared<CSolid>(make(seed));
}

std::shared_ptr<const AVirtualObject> sharedJaw(unsigned seed) { return std::make_shared<CVirtualJaw>(seed); }

constexpr std::array<std::pair<const char*, Maker>, 9> makers{{{"jaw", sharedJaw},
                                                               {"bracket", shared<MakeBracket>},
                                                               {"gear", shared<MakeGear>},
                                                               {"housing", shared<MakeHousing>},
                                                               {"shell", shared<MakeShell>},
                                                               {"figure", shared<MakeFigure>},
                                                               {"flange", shared<MakeFlange>},
                                                               {"steps", shared<MakeSteps>},
                                                               {"part-on-table", shared<MakePartOnTable>}}};

} // namespace

CSolid MakePartOnTable(unsigned uiSeed)
{
    std::mt19937 rng(uiSeed);
    constexpr std::array<CSolid (*)(unsigned), 6> parts{MakeBracket, MakeGear,   MakeHousing,
                                                        MakeShell,   MakeFigure, MakeSteps};
    const CSolid part = parts[UniformInteger(rng, 0, 5)](static_cast<unsigned>(rng()));
    CSolid scene;
    scene.Append(part, At({}, Point(0, 0, Uniform(rng, 0, 6.28))));
    // A gear keeps its turns on a table, but not those that turn it over.
    std::vector<prereg::CTrafo> turns;
    for (const prereg::CTrafo& symmetry : part.GetTraits().symmetries)
        if (symmetry(2, 2) > 0.0F) turns.push_back(symmetry);
    scene.SetSymmetries(turns);
    scene.PutOnTable(part.GetBox().low.z);
    return scene;
}

const std::vector<std::string>& ObjectNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        all.reserve(makers.size());
        for (const auto& [name, make] : makers) all.emplace_back(name);
        return all;
    }();
    return names;
}

std::shared_ptr<const AVirtualObject> MakeObject(const std::string& name, unsigned uiSeed)
{
    for (const auto& [known, make] : makers)
        if (name == known) return make(uiSeed);
    throw std::invalid_argument("no virtual object is called " + name);
}

} // namespace tools
