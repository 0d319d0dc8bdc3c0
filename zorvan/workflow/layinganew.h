// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/workflow/placing.h"

namespace prereg {

/// Lays the scans of each group of three and more anew where they slide.
///
/// A fit of surfaces leaves plane faces wherever they have come to lie in their planes, a millimetre off and each
/// beside the others, and no scan by itself finds back, as all others hold it where it is. So one scan after another is
/// laid beside those that have been before, that which matches them most, to where hardly anything contradicts it (see
/// SettleAmong), and each once more beside all. The poses stay as they are unless fewer contradictions are left by a
/// margin: a scan that its surfaces hold lies better than counts can say.
/// @param placing  after an optimisation, which would let the scans slide again
/// @return         whether poses have changed
/// Same pairs, same placing. A stop leaves the group it comes in as it is.
[[nodiscard]] ZORVAN_WORKFLOW_API bool LayAnew(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks);

} // namespace prereg
