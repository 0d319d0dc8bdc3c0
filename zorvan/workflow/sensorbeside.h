// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"

#include <optional>

namespace prereg {

/// Where the sensor of a scan stood (mm, about its shift), as the user, the file or the rings of the points say, when
/// that is beside what it saw. Nothing for one within: it looked along no one ray.
[[nodiscard]] ZORVAN_WORKFLOW_API std::optional<kdtree::Vector<3>> SensorBeside(const Zorvan::SurfelScan& scan);

} // namespace prereg
