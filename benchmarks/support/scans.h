// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"

#include <string>

namespace benchmarks {

/// Two overlapping scans (mm) with their true relative pose.
struct ScanPair
{
    std::string name;
    prereg::Vectors fixPoints;
    prereg::Vectors fixNormals;
    prereg::Vectors fltPoints;
    prereg::Vectors fltNormals;
    prereg::CTrafo truth; ///< floating into fixed coordinates
    double dSpacing;      ///< median distance of neighbours in the fixed scan
};

/// bun000 and bun045 of the folder that the environment variable ZORVAN_DATA names; without it, and with a word on
/// standard error, a simulated pair of 40,000 points instead. Read once.
const ScanPair& RealPair();

/// Two neighbouring views of the virtual scanner with about that many points each. Made once for each size.
const ScanPair& SimulatedPair(std::size_t points);

/// Points moved by a pose, in their order or in a fixed random one.
prereg::Vectors Queries(const ScanPair& pair, bool isShuffled);

} // namespace benchmarks
