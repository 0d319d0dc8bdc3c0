// SPDX-License-Identifier: MIT
#pragma once

#include "virtualscanner.h"

#include "zorvan/core/hooks.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace tools {

/// What is scanned and how, and what is written of it.
struct Scene
{
    std::string object = "jaw";    ///< one of SceneObjectNames()
    std::string sensor = "depth";  ///< of SensorNames(), joined by +
    std::size_t uiNumPoints = 0;   ///< a view; 0: by the pixel spacing
    std::optional<double> spacing; ///< mm; without one, that of the kind of object
    std::optional<double> noise;   ///< mm; without one, that of the kind of object and sensor
    std::optional<double> field;   ///< mm; of a jaw or a wall
    bool isRandom = false;         ///< views from anywhere, not evenly spread
    bool hasTriangles = false;     ///< also for what is seen whole
    bool hasOverlap = false;       ///< also for what is seen by patches
    bool hasMesh = false;          ///< of the object itself
    double dRoughDegrees = 5.0;    ///< by which the start poses in rough.json are turned
    double dRoughMm = 1.0;         ///< and shifted
    VirtualScannerSettings scanner;

    [[nodiscard]] bool IsJaw() const { return object == "jaw"; }
    [[nodiscard]] bool IsWall() const { return object == "wall"; }
    [[nodiscard]] bool IsLidar() const { return sensor.find("lidar") != std::string::npos; }
    /// Each view sees a patch of the object, not all of it.
    [[nodiscard]] bool IsByPatches() const { return IsWall() || (IsJaw() && !IsLidar()); }
};

/// Objects that there can be in a scene: those of MakeObject, and "wall", which is as large as its views need.
[[nodiscard]] const std::vector<std::string>& SceneObjectNames();

struct SceneCount
{
    std::size_t uiViews = 0;
    std::size_t uiPoints = 0; ///< of all views
};

/// What cannot be scanned so, in the words of the options of `zorvan simulate`; empty when all is well.
[[nodiscard]] std::string WhatIsWrong(const Scene& scene);

/// @throws std::invalid_argument for a sensor or an object that there is not
[[nodiscard]] CVirtualScanner MakeScanner(Scene scene);

/// Writes view00.ply, view01.ply, ..., their true poses (truth.json) and disturbed ones (rough.json) in the frame of
/// the first view; object.json and overlap.csv, and object.stl, as the scene says. All appear together. @throws
/// CInputError
SceneCount WriteScene(const Scene& scene, const std::filesystem::path& folder, const Zorvan::Hooks& hooks);

} // namespace tools
