// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/workflow/export.h"

#include <filesystem>
#include <optional>
#include <string>

namespace prereg {

/// Settings that a user has named: a part of the document of a ConfigurationFPFH, with the types of its settings.
/// @param text    `{ "dGridSize" : 0.2, "icpConfig" : { "dMaxRMSE" : 0.05 } }`; names inside `icpConfig` may also
///                stand beside it, since no name has two meanings
/// @param source  what messages name
/// @throws CInputError with line and column for a wrong text, a name that no setting has or that comes twice, and a
///         value that its setting cannot have
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object ReadSettingsText(const std::string& text, const std::string& source);
/// The same for settings that a host has put together: whole numbers as int32, all others as double.
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object CheckSettings(const bson::object& settings, const std::string& source);
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object ReadSettingsFile(const std::filesystem::path& file);

/// `base` with these settings; nothing is said about an empty document.
[[nodiscard]] ZORVAN_WORKFLOW_API ConfigurationFPFH WithSettings(const ConfigurationFPFH& base,
                                                                 const bson::object& settings);

/// All settings with units and a few words, in the form that ReadSettingsText reads; every number keeps all digits.
/// @param heading  one line that says where they come from
[[nodiscard]] ZORVAN_WORKFLOW_API std::string WriteSettingsText(const ConfigurationFPFH& config,
                                                                const std::string& heading);

/// The settings that the commands choose for a grid (mm), or without one the library's own, with those of a file merged
/// in where one is named; the heading says so. @throws CInputError for the file
[[nodiscard]] ZORVAN_WORKFLOW_API std::string SettingsText(std::optional<double> dGrid,
                                                           const std::filesystem::path& changes);

} // namespace prereg
