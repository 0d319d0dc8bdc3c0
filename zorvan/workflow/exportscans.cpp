// SPDX-License-Identifier: MIT
#include "zorvan/workflow/exportscans.h"

#include "zorvan/scans/e57writer.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/joinscans.h"
#include "zorvan/scans/laswriter.h"
#include "zorvan/scans/pcdwriter.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace prereg {

namespace {

/// In the frame of the main cluster, in the unit of the poses.
std::optional<Zorvan::FramePose> placeOf(const std::filesystem::path& name, const Zorvan::PosesFile& poses)
{
    const auto [scan, cluster] = poses.Find(name);
    if (scan == nullptr || cluster != 0 || !scan->pose) return std::nullopt;
    Zorvan::FramePose pose = Zorvan::ExactPoseOf(*scan);
    for (double& c : pose.position) c /= poses.dMmPerUnit;
    return pose;
}

std::vector<Zorvan::Scan> placedScans(const std::filesystem::path& file, const Zorvan::PosesFile& poses)
{
    std::vector<Zorvan::Scan> placed;
    const auto ofFile = placeOf(file, poses);
    for (Zorvan::Scan& scan : Zorvan::ReadScans(file)) {
        if (ofFile) // which was registered as a whole
            scan.pose = scan.pose ? Compose(*ofFile, *scan.pose) : *ofFile;
        else
            scan.pose = placeOf(Zorvan::NumberedName(file, scan.number), poses);
        if (!scan.pose) continue;
        if (scan.name.empty()) scan.name = file.stem().string();
        placed.push_back(std::move(scan));
    }
    return placed;
}

} // namespace

std::size_t ExportScans(const std::filesystem::path& to, std::span<const std::filesystem::path> files,
                        const Zorvan::PosesFile& poses)
{
    std::vector<Zorvan::Scan> scans;
    for (const std::filesystem::path& file : files) {
        for (Zorvan::Scan& scan : placedScans(file, poses)) scans.push_back(std::move(scan));
    }
    const std::size_t count = scans.size();
    if (count == 0) return 0;
    const std::filesystem::path ending = to.extension();
    if (ending == ".e57")
        Zorvan::WriteE57(to, scans);
    else if (ending == ".ply")
        Zorvan::WritePly(to, Zorvan::JoinScans(std::move(scans)));
    else if (ending == ".pcd")
        Zorvan::WritePcd(to, Zorvan::JoinScans(std::move(scans)));
    else if (ending == ".las")
        Zorvan::WriteLas(to, Zorvan::JoinScans(std::move(scans)));
    else
        throw Zorvan::CInputError(to, "unknown kind of file", "E57, PLY, PCD and LAS are written");
    return count;
}

} // namespace prereg
