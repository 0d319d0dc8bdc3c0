// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/normals.h"
#include "zorvan/scans/scan.h"
#include "zorvan/scans/surfacemodel.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace Zorvan {

/// What the file holds: PLY, STL, OBJ, XYZ and XYZN; the ending of the name decides, in any case of letters.
/// @throws CInputError
[[nodiscard]] ZORVAN_SCANS_API Scan ReadScanFile(const std::filesystem::path& file);

struct ScanOptions
{
    double dMmPerUnit = 1.0; ///< millimetres per unit of the file
    Sensor sensor;           ///< in the unit of the file
    EMesh eMesh = EMesh::Auto;
};

/// A scan that is ready for registration: millimetres, every point finite and with a unit normal, none twice.
struct ZORVAN_SCANS_API SurfelScan
{
    std::filesystem::path file;
    prereg::Vectors points;
    prereg::Vectors normals;
    ENormalSource eNormals = ENormalSource::File;
    std::size_t uiRead = 0;      ///< points in the file
    std::size_t uiNotFinite = 0; ///< dropped: a coordinate is NaN or beyond 1e9 mm
    std::size_t uiJoined = 0;    ///< dropped: another point is at exactly the same place
    std::size_t uiNoNormal = 0;  ///< dropped: no normal could be found
    bool isResult = false;       ///< a coloured cloud that the program has written itself
    Scan model;                  ///< points and faces of what is no scan but a model of a surface; else empty

    /// One line for the user when points were dropped that should not have been there, or when this is no scan, else
    /// empty. Joined points are not worth a word.
    [[nodiscard]] std::string Warning() const;
};

/// Reads a scan and makes it ready. Of a mesh that is a model of a surface, the points are its corners. Normals of the
/// file are kept, at unit length; without any, see `ComputeNormals`.
/// @throws CInputError also when fewer than 3 usable points remain
[[nodiscard]] ZORVAN_SCANS_API SurfelScan ReadScan(const std::filesystem::path& file, const ScanOptions& options = {});

} // namespace Zorvan
