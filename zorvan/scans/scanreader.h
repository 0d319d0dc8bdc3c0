// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/normals.h"
#include "zorvan/scans/scan.h"
#include "zorvan/scans/surfacemodel.h"
#include "zorvan/scans/thinreading.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Zorvan {

/// The scans of a file: PLY, STL, OBJ, XYZ, XYZN, PCD, LAS, PTX, PTS and E57; the ending of the name decides, in any
/// case of letters. PTX and E57 can hold several, each in the frame of its sensor with the pose that the file gives it;
/// at least one comes back, none without points. Coordinates far from the origin come about a shift.
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API std::vector<Scan> ReadScans(const std::filesystem::path& file);

/// Their names, for people.
[[nodiscard]] ZORVAN_SCANS_API std::string ReadFormats();

/// The same as one scan in the frame that the scans of the file share, at the coordinates of the file: without shift
/// and pose, and rounded to single precision.
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API Scan ReadScanFile(const std::filesystem::path& file);

struct ScanOptions
{
    double dMmPerUnit = 1.0;        ///< millimetres per unit of the file
    std::optional<Position> sensor; ///< its place, in the unit of the file; without, the sensor that the file states
    bool isShifted = false;         ///< points far from the origin stay about the shift that keeps their digits
    EMesh eMesh = EMesh::Auto;
    ThinLimits thin = {}; ///< larger files are thinned while they are read
};

/// A scan that is ready for registration: millimetres, every point finite and with a unit normal, none twice.
struct ZORVAN_SCANS_API SurfelScan
{
    std::filesystem::path file;
    prereg::Vectors points;
    prereg::Vectors normals;
    ENormalSource eNormals = ENormalSource::File;
    Position shift = {};                  ///< mm: a point p stands at p + shift; zeros unless it was asked for
    std::optional<FramePose> sensor = {}; ///< as the user or the file states it: its frame in that of the points, mm
    std::size_t uiRead = 0;               ///< points in the file
    std::size_t uiNotFinite = 0;          ///< dropped: a coordinate is NaN or beyond 1e9 mm
    std::size_t uiJoined = 0;             ///< dropped: another point is at exactly the same place
    std::size_t uiNoNormal = 0;           ///< dropped: no normal could be found
    double dCell = 0.0;                   ///< mm: of a large file the first point in each such cube was kept; 0: all
    bool isResult = false;                ///< a coloured cloud that the program has written itself
    std::optional<FramePose> pose = {};   ///< mm, of one of several scans of a file in the frame that they share
    Scan model;                           ///< points and faces of what is no scan but a model of a surface; else empty

    /// One line for the user when points were dropped that should not have been there, or when this is no scan, else
    /// empty. Joined points are not worth a word.
    [[nodiscard]] std::string Warning() const;
};

/// Reads a scan and makes it ready; of several in one file, one in the frame that they share. Of a mesh that is a model
/// of a surface, the points are its corners. Normals of the file are kept, at unit length; without any, see
/// `ComputeNormals`.
/// @param hooks  hear of the bytes of a file that is thinned, and stop that
/// @throws CInputError also when fewer than 3 usable points remain, and when it was stopped
[[nodiscard]] ZORVAN_SCANS_API SurfelScan ReadScan(const std::filesystem::path& file, const ScanOptions& options = {},
                                                   const Hooks& hooks = Hooks::None());

/// The same for points that a host has, about the shift of the scan whatever the options say.
/// @param name  what messages, tables and poses call the scan
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API SurfelScan ToSurfels(Scan scan, const std::filesystem::path& name,
                                                    const ScanOptions& options = {});

/// The same of each scan of a file in its own frame. Of several, `file` ends in "#" and the number of the scan.
/// @throws CInputError when one of them has fewer than 3 usable points
[[nodiscard]] ZORVAN_SCANS_API std::vector<SurfelScan>
ReadEachScan(const std::filesystem::path& file, const ScanOptions& options = {}, const Hooks& hooks = Hooks::None());

/// The file of a scan that is named so: without the number, unless there is a file with it.
[[nodiscard]] ZORVAN_SCANS_API std::filesystem::path FileOfScan(const std::filesystem::path& scan);

/// The name of one of several scans of a file.
[[nodiscard]] ZORVAN_SCANS_API std::filesystem::path NumberedName(const std::filesystem::path& file,
                                                                  std::size_t number);

} // namespace Zorvan
