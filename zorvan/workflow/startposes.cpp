// SPDX-License-Identifier: MIT
#include "zorvan/workflow/startposes.h"

#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/sharedshift.h"

#include <algorithm>
#include <list>

namespace prereg {

CStartPoses::CStartPoses(const std::filesystem::path& posesFile, double dMmPerUnit,
                         const std::vector<std::string>& scans)
    : m_poses(Zorvan::ReadPoses(posesFile, dMmPerUnit)), m_cluster(Zorvan::CommonCluster(m_poses))
{
    const auto hasPose = [this](const std::string& scan) {
        const std::string name = std::filesystem::path(scan).filename().string();
        return std::ranges::any_of(m_poses.clusters[m_cluster].scans, [&](const Zorvan::ScanPose& pose) {
            const std::string posed = std::filesystem::path(pose.file).filename().string();
            return pose.pose && (posed == name || posed.starts_with(name + "#"));
        });
    };
    if (m_poses.clusters.empty() || std::ranges::none_of(scans, hasPose))
        throw Zorvan::CInputError(posesFile, "has no pose of any of the scans", "add some under their file names");
}

CStartPoses::Found CStartPoses::For(std::span<const Zorvan::SurfelScan> scans,
                                    const std::optional<Zorvan::Position>& frameShift) const
{
    std::vector<const Zorvan::ScanPose*> poses;
    std::list<Zorvan::ScanPose> ofFiles; // what the files say of scans that the user does not
    for (const Zorvan::SurfelScan& scan : scans) {
        poses.push_back(find(scan.file));
        if (poses.back() != nullptr || !scan.pose) continue;
        ofFiles.emplace_back();
        SetPose(ofFiles.back(), *scan.pose);
        poses.back() = &ofFiles.back();
    }
    const Zorvan::Position first = scans.empty() ? Zorvan::Position{} : scans.front().shift;
    Found found{{}, frameShift ? *frameShift : Zorvan::FrameShiftFor(scans, poses, first)};
    for (std::size_t i = 0; i < scans.size(); ++i)
        found.poses.push_back(poses[i] == nullptr ? CTrafo::Invalid()
                                                  : Zorvan::PoseAbout(*poses[i], scans[i].shift, *found.frameShift));
    return found;
}

const Zorvan::ScanPose* CStartPoses::find(const std::filesystem::path& scan) const
{
    const auto [found, cluster] = m_poses.Find(scan);
    return found != nullptr && cluster == m_cluster && found->pose ? found : nullptr;
}

} // namespace prereg
