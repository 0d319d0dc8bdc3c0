// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"

#include <gmock/gmock.h>

#include <numbers>

namespace support {

/// The pose lies within these limits of the true one; a failure prints both errors.
MATCHER_P3(IsNearPose, truth, maxMm, maxDegrees, "")
{
    const double degrees = arg.GetRotationDistance(truth) * 180.0 / std::numbers::pi;
    const double mm = static_cast<double>((arg.GetTranslation() - truth.GetTranslation()).Length());
    *result_listener << "off by " << mm << " mm and " << degrees << " degrees";
    return mm <= maxMm && degrees <= maxDegrees;
}

} // namespace support
