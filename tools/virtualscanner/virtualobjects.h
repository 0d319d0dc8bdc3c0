// SPDX-License-Identifier: MIT
#pragma once

#include "solid.h"
#include "virtualobject.h"

#include <memory>
#include <string>
#include <vector>

namespace tools {

/// Objects about 60 mm across. The seed varies sizes, and number and places of what they have of holes, teeth, ribs,
/// bosses and limbs.

/// An angle of two plates with ribs in its corner, four equal holes, one of them blind, and openings in the wall.
[[nodiscard]] CSolid MakeBracket(unsigned uiSeed);
/// A spur gear, with or without holes, hub and keyway; without a keyway it has as many symmetries as its sectors.
[[nodiscard]] CSolid MakeGear(unsigned uiSeed);
/// An open box with bosses and ribs inside and openings through its walls.
[[nodiscard]] CSolid MakeHousing(unsigned uiSeed);
/// A thin, freely curved dome with openings.
[[nodiscard]] CSolid MakeShell(unsigned uiSeed);
/// A smooth animal whose legs look alike.
[[nodiscard]] CSolid MakeFigure(unsigned uiSeed);
/// A disc with equal holes, a hub and one small keyway.
[[nodiscard]] CSolid MakeFlange(unsigned uiSeed);
/// A flight of three to five steps: nothing but planes.
[[nodiscard]] CSolid MakeSteps(unsigned uiSeed);
/// One of the others on a table that fills every view.
[[nodiscard]] CSolid MakePartOnTable(unsigned uiSeed);

/// What `MakeObject` can make, "jaw" first.
[[nodiscard]] const std::vector<std::string>& ObjectNames();

/// The same name and seed give the same object. @throws std::invalid_argument for an unknown name
[[nodiscard]] std::shared_ptr<const AVirtualObject> MakeObject(const std::string& name, unsigned uiSeed);

} // namespace tools
