// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"

#include <string>
#include <string_view>

namespace prereg {

/// Unit and meaning of a setting: "mm, largest final RMSE"; empty when there is none of this name.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string WordsForSetting(std::string_view name);

/// The setting that somebody who wrote `name` has probably meant; empty when none is near.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string NearestSettingName(std::string_view name);

} // namespace prereg
