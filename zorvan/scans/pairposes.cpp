// SPDX-License-Identifier: MIT
#include "zorvan/scans/pairposes.h"

#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/inputerror.h"

#include <string>

namespace Zorvan {

PairPoses ReadPairPoses(const std::filesystem::path& poses, const std::filesystem::path& fix,
                        const std::filesystem::path& flt, double dDefaultMmPerUnit)
{
    const PosesFile file = ReadPoses(poses, dDefaultMmPerUnit);
    const PosesFile::Found floating = file.Find(flt);
    const PosesFile::Found fixed = file.Find(fix);
    if (floating.scan == nullptr || !floating.scan->pose)
        throw CInputError(poses, "has no pose of " + flt.filename().string(), "add one under this file name");
    if (fixed.scan == nullptr) return {IdentityPose(), *floating.scan};
    if (!fixed.scan->pose)
        throw CInputError(poses, "has no pose of " + fix.filename().string(), "add one, or leave the scan out");
    if (fixed.cluster != floating.cluster)
        throw CInputError(poses, "has the two scans in different clusters", "put them into one frame");
    return {*fixed.scan, *floating.scan};
}

std::vector<prereg::CTrafo> ReadCandidatePoses(const std::filesystem::path& poses, const ShiftedFile& fix,
                                               const ShiftedFile& flt, double dDefaultMmPerUnit)
{
    const PosesFile file = ReadPoses(poses, dDefaultMmPerUnit);
    const PosesFile::Found floating = file.Find(flt.name);
    const PosesFile::Found fixed = file.Find(fix.name);
    const bool hasFix = fixed.scan != nullptr && fixed.scan->pose;
    std::vector<prereg::CTrafo> found;
    const auto add = [&](const ScanPose& from, const ScanPose& pose) {
        found.push_back(PoseAbout(from, pose, fix.shift, flt.shift));
    };
    if (floating.scan != nullptr && floating.scan->pose && (!hasFix || fixed.cluster == floating.cluster))
        add(hasFix ? *fixed.scan : IdentityPose(), *floating.scan);
    for (const ScanPose& candidate : file.candidates) {
        if (candidate.pose && std::filesystem::path(candidate.file).filename() == flt.name.filename())
            add(IdentityPose(), candidate);
    }
    if (found.empty())
        throw CInputError(poses,
                          "has no pose of " + flt.name.filename().string() + " in the frame of " +
                              fix.name.filename().string(),
                          "add one under this file name, in a cluster or in the list \"candidates\"");
    return found;
}

} // namespace Zorvan
