// SPDX-License-Identifier: MIT
#include "zorvan/workflow/exportscans.h"

#include "zorvan/scans/e57writer.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/joinscans.h"
#include "zorvan/scans/laswriter.h"
#include "zorvan/scans/pcdwriter.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/workflow/moves.h"

#include <string>
#include <utility>
#include <vector>

namespace prereg {

namespace {

std::vector<Zorvan::Scan> placedScans(const std::filesystem::path& file, const Zorvan::PosesFile& poses)
{
    std::vector<Zorvan::Scan> placed;
    const std::size_t common = CommonCluster(poses);
    const auto ofFile = PlaceInCluster(poses, common, file);
    for (Zorvan::Scan& scan : Zorvan::ReadScans(file)) {
        if (ofFile) // which was registered as a whole
            scan.pose = scan.pose ? Compose(*ofFile, *scan.pose) : *ofFile;
        else
            scan.pose = PlaceInCluster(poses, common, Zorvan::NumberedName(file, scan.number));
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
