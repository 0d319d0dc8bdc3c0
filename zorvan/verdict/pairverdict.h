// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/cposejudge.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace prereg {

/// What can be said of two scans after all poses that were proposed have been weighed.
enum class EPairVerdict
{
    Aligned,    ///< one pose explains both scans, and no other does as well
    Ambiguous,  ///< several do, or one that may slide
    NotAligned, ///< every pose is contradicted
    TooLittle   ///< no pose lets the scans share enough surface to say anything
};

/// The verdict on a list of poses. Indices are those of the list.
struct PairVerdict
{
    EPairVerdict eVerdict = EPairVerdict::TooLittle;
    std::vector<PoseVerdict> poses;        ///< of each pose in the list
    std::vector<std::size_t> explanations; ///< poses that nothing contradicts, best first, each a place of its own
    std::size_t uiNearest = 0;             ///< without an explanation: the pose that came nearest to one
    bool isOutdone = false;                ///< a pose that fell scores or matches more: hence not more than ambiguous
    bool isCoarse = false;                 ///< a scan shows too little detail to be sure: hence not more than ambiguous
    bool isRayUnknown = false;             ///< no scan can tell that surface is missing: hence not more than ambiguous

    [[nodiscard]] explicit operator bool() const { return eVerdict == EPairVerdict::Aligned; }
    /// In a sentence or two: what speaks for the verdict, what came nearest, what a further scan would have to show.
    [[nodiscard]] ZORVAN_API std::string Reason() const;
    /// The verdict with its reason.
    [[nodiscard]] ZORVAN_API std::string ToString() const;

private:
    [[nodiscard]] std::string reasonOfRivals() const;
};

/// A word for a verdict: "aligned", "ambiguous", "not aligned", "too little to go on".
[[nodiscard]] ZORVAN_API const char* VerdictName(EPairVerdict eVerdict);

/// Weighs each pose, and the poses against one another: "aligned" takes that no other place of the floating scan
/// explains about as much. So the list should hold rivals too: all that a search has found, refined.
/// @param uiNumTasks  side by side; the result does not depend on it
[[nodiscard]] ZORVAN_API PairVerdict JudgePoses(const CPoseJudge& judge, std::span<const CTrafo> poses,
                                                unsigned uiNumTasks = 1);
/// The same for poses that have been weighed already. @param verdicts  one a pose
[[nodiscard]] ZORVAN_API PairVerdict DecideOnPoses(const CPoseJudge& judge, std::span<const CTrafo> poses,
                                                   std::vector<PoseVerdict> verdicts);

} // namespace prereg
