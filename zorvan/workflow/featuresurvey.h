// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/documents/bson.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/featureset.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace prereg {

struct FeatureSurveyOptions
{
    std::optional<double> dGrid = {}; ///< point distance (mm) that all settings grow with; nothing: see ChooseSettings
    bson::object settings = {};       ///< replace the automatic ones; see ReadSettingsText
    unsigned uiNumTasks = 1;          ///< the features do not depend on it
    GpuContext gpu = nullptr;         ///< computes the features, unless null
    double dMmPerUnit = 1.0;          ///< unit of the lengths in words
};

/// The features of one scan: how many there are, and what they say of its surface.
struct FeatureSurvey
{
    FeatureSurveyOptions options;
    ConfigurationFPFH config; ///< all settings, as they were used
    std::string settingsWords;
    std::size_t uiRead = 0;
    std::size_t uiUsable = 0;
    CFPFHDataSource source;
    double dSourceSeconds = 0.0; ///< for points and features
    double dSetSeconds = 0.0;    ///< for the point set with its trees
    bool isTooLean = true;       ///< for a search without a start pose

    explicit operator bool() const { return source.GetNumFeatures() > 0; }
};

/// @throws CInputError when the processor cannot compute features, or the sizes make no sense for this scan
[[nodiscard]] ZORVAN_WORKFLOW_API FeatureSurvey SurveyFeatures(const Zorvan::SurfelScan& scan,
                                                               const FeatureSurveyOptions& options,
                                                               const Zorvan::Hooks& hooks = Zorvan::Hooks::None());

/// Four lines: points read, after reduction, feature points, features, with the sizes behind these.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string CountsText(const FeatureSurvey& survey);
/// Times, and what the features say of the shape; see DescribeFeatures. Of a survey with features.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ShapeText(const FeatureSurvey& survey);

/// All feature points as PLY, from dark blue (flat) to yellow (strongly curved); last, and grey, those without a
/// feature.
/// @throws CInputError
ZORVAN_WORKFLOW_API void WriteColouredFeatures(const std::filesystem::path& file, const FeatureSurvey& survey);

} // namespace prereg
