// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "progress.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/movescan.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tools {

namespace {

struct ApplyOptions
{
    std::string poses;
    std::vector<std::string> scans;
    std::string folder;
    double dMmPerUnit = 0.0; ///< not positive: that of the poses
    GeneralOptions general;
};

std::string nameOf(const std::string& file) { return std::filesystem::path(file).filename().string(); }

std::filesystem::path outputOf(const ApplyOptions& options, const std::string& scan)
{
    return std::filesystem::path(options.folder) / nameOf(scan);
}

/// Nothing that is read is replaced, and no result by another.
void checkCall(const ApplyOptions& options)
{
    std::set<std::string> names;
    std::vector<std::string> inputs = options.scans;
    inputs.push_back(options.poses);
    for (const std::string& scan : options.scans) {
        if (!names.insert(nameOf(scan)).second)
            throw Zorvan::CInputError("two scans are named " + nameOf(scan) +
                                      ", and poses are matched by file name; rename one of them");
        Zorvan::RequireApart(outputOf(options, scan), inputs);
    }
}

/// The frame that is written: that of the primary cluster, or else of the first.
std::size_t clusterOf(const Zorvan::PosesFile& poses)
{
    const auto primary =
        std::ranges::find_if(poses.clusters, [](const Zorvan::PoseCluster& cluster) { return cluster.isPrimary; });
    return primary == poses.clusters.end() ? 0 : static_cast<std::size_t>(primary - poses.clusters.begin());
}

/// Where the points of a file go, in its unit.
struct Move
{
    std::string file;
    std::optional<Zorvan::FramePose> pose = {};
    std::map<std::size_t, Zorvan::FramePose> ofScans = {}; ///< by number, of a file of several that were placed singly
};

/// What the poses file has of scans, in the common frame.
class CPlaces
{
public:
    CPlaces(const ApplyOptions& options, const Zorvan::PosesFile& poses)
        : m_options(options),
          m_poses(poses),
          m_common(clusterOf(poses)),
          m_mmPerUnit(options.dMmPerUnit > 0.0 ? options.dMmPerUnit : poses.dMmPerUnit)
    {
    }

    /// Nothing, and the user hears why, for a file with a scan that has no place in the common frame.
    [[nodiscard]] std::optional<Move> Of(const std::string& file) const
    {
        Move move{file};
        if (m_poses.Find(file).scan != nullptr) {
            move.pose = placeOf(file);
            return move.pose ? std::optional(move) : std::nullopt;
        }
        for (const Zorvan::PoseCluster& cluster : m_poses.clusters) {
            for (const Zorvan::ScanPose& scan : cluster.scans) {
                const auto number = numberIn(scan.file, nameOf(file));
                if (!number) continue;
                const auto pose = placeOf(scan.file);
                if (!pose) return std::nullopt;
                move.ofScans.emplace(*number, *pose);
            }
        }
        if (move.ofScans.empty())
            throw Zorvan::CInputError(m_options.poses, "has no pose of " + nameOf(file),
                                      "leave the scan out, or add a pose under this file name");
        return move;
    }

private:
    /// "site.e57#3" is the third scan of site.e57.
    static std::optional<std::size_t> numberIn(const std::string& name, const std::string& file)
    {
        if (!name.starts_with(file + "#")) return std::nullopt;
        const auto number = Zorvan::ParseInteger(std::string_view(name).substr(file.size() + 1));
        return number && *number > 0 ? std::optional(static_cast<std::size_t>(*number)) : std::nullopt;
    }

    [[nodiscard]] std::optional<Zorvan::FramePose> placeOf(const std::string& name) const
    {
        const auto [scan, cluster] = m_poses.Find(name);
        if (!scan->pose || cluster != m_common) {
            Tell("left out: " + name + (scan->pose ? " lies in the frame of another cluster" : " has no pose"), false);
            return std::nullopt;
        }
        Zorvan::FramePose pose = Zorvan::ExactPoseOf(*scan);
        for (double& c : pose.position) c /= m_mmPerUnit;
        return pose;
    }

    const ApplyOptions& m_options;
    const Zorvan::PosesFile& m_poses;
    std::size_t m_common;
    double m_mmPerUnit;
};

int apply(const ApplyOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const Zorvan::PosesFile poses = Zorvan::ReadPoses(options.poses);
    const CPlaces places(options, poses);
    std::vector<Move> moves;
    for (const std::string& scan : options.scans) {
        if (std::optional<Move> move = places.Of(scan)) moves.push_back(*std::move(move));
    }
    Zorvan::MakeFolder(options.folder);
    for (const std::string& scan : options.scans) Zorvan::RequireWritable(outputOf(options, scan));

    const Zorvan::CInterruption interruption;
    CProgress progress(options.general.isQuiet);
    const Zorvan::Hooks hooks = progress.Hooks(interruption);
    std::size_t written = 0;
    for (const Move& move : moves) {
        const std::filesystem::path output = outputOf(options, move.file);
        const Zorvan::MoveResult result = move.pose ? Zorvan::MoveScanFile(move.file, output, *move.pose, hooks)
                                                    : Zorvan::MoveScanFile(move.file, output, move.ofScans, hooks);
        if (result.isStopped) break;
        ++written;
        if (!result.words.empty()) Tell(output.string() + ": " + result.words, options.general.isQuiet);
    }
    std::cout << written << " of " << options.scans.size() << " scans written to " << Zorvan::ToShown(options.folder)
              << '\n';
    return written == options.scans.size() ? Done : NotEveryScan;
}

} // namespace

void AddApply(CCommand app)
{
    const auto options = std::make_shared<ApplyOptions>();
    CCommand command =
        app.AddCommand("apply", "Write scans, every point and attribute of them, in the frame of their poses");
    command.AddOption("POSES", options->poses, "Poses file, such as register writes").Required();
    command.AddOption("SCAN", options->scans, "The scans, found in it by file name: " + Zorvan::ReadFormats())
        .Required();
    command.AddOption("-o,--output", options->folder, "Folder for them; each keeps its name and format").Required();
    command
        .AddOption("--scale", options->dMmPerUnit,
                   "Millimetres per unit of the scan files; 1000 for metres (default: as the poses)")
        .Positive();
    options->general.AddTo(command, "Accepted for all commands; applying uses one");
    command.SetFooter(
        "Points, normals and the sensor move; all else stays: colours, faces, unknown properties, comments,\n"
        "the order of points. E57 and PTX get new poses, and keep their points. Files of any size take\n"
        "some megabytes of memory, but for PCD that is compressed. Ctrl-C ends between files.\n"
        "Exit code 0: all are written; 1: some have no pose in the common frame, or it was stopped;\n"
        "2: wrong call, unreadable input or unwritable output.\n\n"
        "Example:\n"
        "  zorvan apply out/poses.json scans/*.las -o registered");
    command.SetAction([options] { return apply(*options); });
}

} // namespace tools
