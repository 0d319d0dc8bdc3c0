// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/scan.h"
#include "zorvan/workflow/export.h"

#include <cstddef>

namespace prereg {

/// The colour of scan `i` wherever several are shown together. Neighbours in the row are far apart, and of the first
/// twenty no two are closer than 0.07 in Oklab (a just noticeable step is 0.02); lightness stays in a middle range, so
/// that all of them stand out on white and on black. Any `i` has one; late ones come near earlier ones.
[[nodiscard]] ZORVAN_WORKFLOW_API Zorvan::Rgb ScanColour(std::size_t i);

} // namespace prereg
