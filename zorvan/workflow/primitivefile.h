// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"
#include "zorvan/workflow/primitivefit.h"

#include <filesystem>
#include <string>

namespace prereg {

/// "sphere through 812 points, RMSE 0.01 mm", and a line for each property with one standard deviation behind +-.
/// @param dMmPerUnit  lengths are in this unit
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToText(const PrimitiveFit& fit, double dMmPerUnit);

/// Writes the fit as JSON, and beside it the scan as PLY, coloured by its residuals: from dark blue (3 RMSE inside the
/// surface) to yellow (3 RMSE outside). Both or neither. @throws CInputError
ZORVAN_WORKFLOW_API void WriteFit(const std::filesystem::path& file, const Zorvan::SurfelScan& scan,
                                  const PrimitiveFit& fit, double dMmPerUnit);
/// The name of that PLY: NAME_residuals.ply for NAME.json.
[[nodiscard]] ZORVAN_WORKFLOW_API std::filesystem::path ResidualsBeside(const std::filesystem::path& file);

} // namespace prereg
