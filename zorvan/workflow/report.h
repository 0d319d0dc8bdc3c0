// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/registrationtable.h"

#include <cstddef>
#include <filesystem>
#include <span>

namespace prereg {

/// The surface of a scan in its own coordinates, mm; as many normals as points, of length 1.
struct SurfelSpan
{
    std::span<const kdtree::Vector<3>> points;
    std::span<const kdtree::Vector<3>> normals;
};

/// The most points that a report shows; a scan gets its share of them by its number of points.
inline constexpr std::size_t uiMaxReportPoints = 300'000;

/// Writes a page that shows a registration: what became of every scan, the clouds in their common frame to turn and
/// zoom, the residuals of all pairs. It is one file that opens from the disk, without a network.
/// @param surfaces  one a scan of the table, empty where there is nothing to show
/// @throws CInputError when the file cannot be written
///
/// Clusters share no frame and are shown one at a time, a scan without a pose by itself. Numbers that are not finite
/// are shown as a dash, points that are not finite not at all. Names of files may hold anything. Same input, same
/// bytes.
ZORVAN_WORKFLOW_API void WriteReport(const std::filesystem::path& file, const RegistrationTable& table,
                                     std::span<const SurfelSpan> surfaces);

} // namespace prereg
