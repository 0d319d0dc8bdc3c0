// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zorvan {

/// How a registration ended, in numbers. Lengths in mm; what is not finite becomes null in the file.
struct RegistrationSummary
{
    int iKind = -1; ///< a prereg::EICPResult
    std::string text;
    double dRmse = 0.0;
    double dOverlap = 0.0;
    double dSlip = 0.0;
};

/// What speaks for and against a pose, in words and numbers.
struct VerdictSummary
{
    std::string name;
    std::string text;
    std::string proposer; ///< who came up with the pose
    double dContradiction = 0.0;
    std::vector<std::pair<std::string, unsigned>> counts; ///< of samples, by what they say
};

/// How far off a pose may be: a small turn (a rotation vector, radians) about `centre`, then a shift (mm), both in
/// cluster coordinates and done after the pose.
struct PoseUncertainty
{
    std::array<std::array<double, 6>, 6> covariance{}; ///< turn about x, y, z, then shift along x, y, z
    std::array<double, 3> centre{};                    ///< mm
    std::string text;                                  ///< what is not held, in words
};

/// The upper three rows of a pose in double precision, translation in mm.
using PoseRows = std::array<std::array<double, 4>, 3>;

struct ScanPose
{
    std::string file;
    std::string id;
    prereg::CTrafo pose = prereg::CTrafo::Invalid(); ///< scan to cluster coordinates, mm; invalid: it has none
    std::optional<RegistrationSummary> result;       ///< written, not read
    std::optional<VerdictSummary> verdict = {};      ///< written, not read
    std::optional<PoseUncertainty> uncertainty = {}; ///< written, not read
    std::optional<PoseRows> exact = {};              ///< `pose` with all digits: see exactpose.h
};

struct PoseCluster
{
    std::string id;
    bool isPrimary = false;
    std::vector<ScanPose> scans;
};

/// What POSES.json and truth.json hold. Everything in memory is in millimetres; `dMmPerUnit` is the unit in the file.
struct ZORVAN_SCANS_API PosesFile
{
    double dMmPerUnit = 1.0;
    std::vector<PoseCluster> clusters;
    std::vector<ScanPose> candidates = {}; ///< other places of the scan, best first
    Position shift = {}; ///< mm, was taken off far coordinates while poses were found; when not zero, all digits of the
                         ///< poses are written

    /// A scan with the number of its cluster; null when no scan has the name.
    struct Found
    {
        const ScanPose* scan = nullptr;
        std::size_t cluster = 0;
    };
    /// Folders in `file` and in the stored names do not count.
    [[nodiscard]] Found Find(const std::filesystem::path& file) const;
};

/// The number of the cluster whose frame is meant where there is one: the primary one, or else the first.
[[nodiscard]] ZORVAN_SCANS_API std::size_t CommonCluster(const PosesFile& poses);

/// Short name of a unit: "mm", "cm", "m", or "unit" for any other length.
[[nodiscard]] ZORVAN_SCANS_API std::string UnitName(double dMmPerUnit);

/// @param dDefaultMmPerUnit  for a file that states neither "mm_per_unit" nor "unit"
/// @throws CInputError: no JSON, not this form, a pose that is no rotation within 1e-3, a file name that appears twice
[[nodiscard]] ZORVAN_SCANS_API PosesFile ReadPoses(const std::filesystem::path& file, double dDefaultMmPerUnit = 1.0);
/// The same for a text. @param file  what messages name
[[nodiscard]] ZORVAN_SCANS_API PosesFile ReadPosesText(std::string_view text, const std::filesystem::path& file,
                                                       double dDefaultMmPerUnit = 1.0);

/// Numbers have nine digits, which is all that a float has; at far coordinates all that a double has.
[[nodiscard]] ZORVAN_SCANS_API std::string WritePosesText(const PosesFile& poses);
/// The same to a file, whole or not at all. @throws CInputError
ZORVAN_SCANS_API void WritePoses(const std::filesystem::path& file, const PosesFile& poses);
/// One pose of them, with the same digits: four lines of four numbers.
[[nodiscard]] ZORVAN_SCANS_API std::string PoseText(const ScanPose& scan, const PosesFile& poses);

} // namespace Zorvan
