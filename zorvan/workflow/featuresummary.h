// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/cpointfeaturehistogram.h"
#include "zorvan/workflow/export.h"

#include <span>
#include <string>

namespace prereg {

/// What features say about the shape of a surface, in some dozen lines of text: how far they are from that of a plane,
/// and their mean histogram. UTF-8, lines up to 100 characters.
/// @param features  at least one, all valid
/// @param fFlat     distance from the plane's feature up to which a feature counts as flat
[[nodiscard]] ZORVAN_WORKFLOW_API std::string DescribeFeatures(std::span<const CPointFeatureHistogram> features,
                                                               float fFlat);

} // namespace prereg
