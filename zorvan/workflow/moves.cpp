// SPDX-License-Identifier: MIT
#include "zorvan/workflow/moves.h"

#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/textnumber.h"

#include <string_view>

namespace prereg {

namespace {

std::string nameOf(const std::filesystem::path& file) { return file.filename().string(); }

/// "site.e57#3" is the third scan of site.e57.
std::optional<std::size_t> numberIn(const std::string& name, const std::string& file)
{
    if (!name.starts_with(file + "#")) return std::nullopt;
    const auto number = Zorvan::ParseInteger(std::string_view(name).substr(file.size() + 1));
    return number && *number > 0 ? std::optional(static_cast<std::size_t>(*number)) : std::nullopt;
}

/// Nothing, and why in the move, for a scan without a place in the common frame.
std::optional<Zorvan::FramePose> placeOf(const Zorvan::PosesFile& poses, const std::string& name, double dMmPerUnit,
                                         FileMove& move)
{
    const auto place = PlaceInCluster(poses, CommonCluster(poses), name, dMmPerUnit);
    if (!place)
        move.why = name + (poses.Find(name).scan->pose ? " lies in the frame of another cluster" : " has no pose");
    return place;
}

} // namespace

std::optional<Zorvan::FramePose> PlaceInCluster(const Zorvan::PosesFile& poses, std::size_t cluster,
                                                const std::filesystem::path& scan, double dMmPerUnit)
{
    const auto [found, itsCluster] = poses.Find(scan);
    if (found == nullptr || !found->pose || itsCluster != cluster) return std::nullopt;
    Zorvan::FramePose pose = Zorvan::ExactPoseOf(*found);
    for (double& c : pose.position) c /= dMmPerUnit > 0.0 ? dMmPerUnit : poses.dMmPerUnit;
    return pose;
}

std::optional<FileMove> FindMove(const Zorvan::PosesFile& poses, const std::filesystem::path& file, double dMmPerUnit)
{
    FileMove move{file};
    if (poses.Find(file).scan != nullptr) {
        move.pose = placeOf(poses, nameOf(file), dMmPerUnit, move);
        return move;
    }
    for (const Zorvan::PoseCluster& cluster : poses.clusters) {
        for (const Zorvan::ScanPose& scan : cluster.scans) {
            const auto number = numberIn(scan.file, nameOf(file));
            if (!number) continue;
            const auto pose = placeOf(poses, scan.file, dMmPerUnit, move);
            if (!pose) return move;
            move.ofScans.emplace(*number, *pose);
        }
    }
    return move.ofScans.empty() ? std::nullopt : std::optional(move);
}

Zorvan::MoveResult Apply(const FileMove& move, const std::filesystem::path& to, const Zorvan::Hooks& hooks)
{
    return move.pose ? Zorvan::MoveScanFile(move.file, to, *move.pose, hooks)
                     : Zorvan::MoveScanFile(move.file, to, move.ofScans, hooks);
}

} // namespace prereg
