// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/cvotepreregistration.h"

#include <functional>
#include <vector>

namespace prereg {

/// Poses that lay the plane which holds most of one scan on that of the other, as a table that both show, and what
/// stands on it on what stands there: for turns about the normal in steps of 5 degrees, a vote over translations in
/// which the plane itself, that agrees with itself everywhere, has no voice. Refined as those of
/// `CVotePreRegistration`. Best first; empty where a scan has no such plane, or nothing but it, and after an abort.
[[nodiscard]] ZORVAN_API std::vector<CTrafo> ProposeOnPlane(const VotingScan& fix, const VotingScan& flt,
                                                            unsigned uiNumTasks, std::function<bool()> abort);

} // namespace prereg
