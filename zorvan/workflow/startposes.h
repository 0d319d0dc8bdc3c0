// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace prereg {

/// Rough poses of scans in one frame: those of a poses file, of its primary cluster or else of its first one, and of
/// scans that it does not know those that their files give them.
class ZORVAN_WORKFLOW_API CStartPoses
{
public:
    /// Knows only what the files of the scans say.
    CStartPoses() = default;
    /// @throws CInputError also when it has no pose of any of the scans
    CStartPoses(const std::filesystem::path& posesFile, double dMmPerUnit, const std::vector<std::string>& scans);

    struct Found
    {
        std::vector<CTrafo> poses;                    ///< one a scan, about its shift; invalid where none is known
        std::optional<Zorvan::Position> frameShift{}; ///< mm, what was taken off the frame
    };
    /// @param frameShift  of that frame when it is known already
    [[nodiscard]] Found For(std::span<const Zorvan::SurfelScan> scans,
                            const std::optional<Zorvan::Position>& frameShift = {}) const;

private:
    /// With a pose, or null.
    [[nodiscard]] const Zorvan::ScanPose* find(const std::filesystem::path& scan) const;

    Zorvan::PosesFile m_poses;
    std::size_t m_cluster = 0;
};

} // namespace prereg
