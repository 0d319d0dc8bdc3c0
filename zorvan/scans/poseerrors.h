// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/posesfile.h"

#include <string>
#include <vector>

namespace Zorvan {

/// What became of a scan of the truth.
enum class EPlace
{
    Measured,  ///< has a pose; the errors say how good it is
    Reference, ///< the scan that its cluster is measured against
    Alone,     ///< has a pose, but no other scan of the truth shares its cluster
    Missing    ///< has no pose
};

struct PoseError
{
    std::string file;
    EPlace ePlace = EPlace::Missing;
    double dDegrees = 0.0;
    double dMm = 0.0;
};

struct PoseErrors
{
    std::vector<PoseError> scans; ///< in the order of the truth
    std::size_t uiMeasured = 0;
    bool isComplete = false; ///< every scan of the truth found its place
    double dMedianDegrees = 0.0;
    double dMedianMm = 0.0; ///< medians and worst over the measured scans; 0 without any
    double dWorstDegrees = 0.0;
    double dWorstMm = 0.0;
};

/// Compares poses with the truth, scan by scan, matched by file name.
///
/// In each cluster the first scan that both files know is the reference: the pose of every other scan relative to it is
/// compared with the same relative pose of the truth. The angle is that of the rotation between the two, the shift the
/// distance between their translations, or of what comes to the shift of the poses where coordinates are far.
/// Poses of scans that the truth does not know are passed over. A scan alone in
/// its cluster found no place, unless it is alone in the truth too.
[[nodiscard]] ZORVAN_SCANS_API PoseErrors ComparePoses(const PosesFile& poses, const PosesFile& truth);

/// A line for each scan of the truth, with a heading.
[[nodiscard]] ZORVAN_SCANS_API std::string TableText(const PoseErrors& errors);
/// "5 of 6 scans have a place; median 0.01000 degrees, 0.02000 mm; worst ..."
[[nodiscard]] ZORVAN_SCANS_API std::string SummaryText(const PoseErrors& errors);

} // namespace Zorvan
