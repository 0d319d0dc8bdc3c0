// SPDX-License-Identifier: MIT
#include "zorvan/scans/scanreader.h"

#include "zorvan/scans/e57reader.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/joinpoints.h"
#include "zorvan/scans/joinscans.h"
#include "zorvan/scans/lasreader.h"
#include "zorvan/scans/meshreader.h"
#include "zorvan/scans/objreader.h"
#include "zorvan/scans/pcdreader.h"
#include "zorvan/scans/plyreader.h"
#include "zorvan/scans/ptsreader.h"
#include "zorvan/scans/ptxreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/thinnedscans.h"
#include "zorvan/scans/thinreading.h"
#include "zorvan/scans/xyzreader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

constexpr float fLargestCoordinate = 1e9F; // mm; the fourth power of a distance must stay a float
constexpr std::size_t uiFewestPoints = 3;
constexpr std::size_t uiMostPoints = 2147483647; // indices are 31 bits wide in the search tree
constexpr std::size_t uiNotable = 100;           // one in so many
constexpr std::uint32_t uiGone = std::numeric_limits<std::uint32_t>::max();

using Scans = std::vector<Scan>;

/// A format that holds one scan a file.
template <Scan (*Read)(std::string_view, const std::filesystem::path&)>
Scans readOne(std::string_view bytes, const std::filesystem::path& file)
{
    Scans scans;
    scans.push_back(Read(bytes, file));
    return scans;
}

struct Format
{
    std::string_view ending;
    Scans (*read)(std::string_view bytes, const std::filesystem::path& file);
};

constexpr std::array<Format, 11> formats{{{".ply", readOne<ReadPly>},
                                          {".stl", readOne<ReadStl>},
                                          {".obj", readOne<ReadObj>},
                                          {".pcd", readOne<ReadPcd>},
                                          {".las", readOne<ReadLas>},
                                          {".laz", readOne<ReadLas>},
                                          {".e57", ReadE57},
                                          {".ptx", ReadPtx},
                                          {".pts", readOne<ReadPts>},
                                          {".xyz", readOne<ReadXyz>},
                                          {".xyzn", readOne<ReadXyz>}}};

Scan joined(const std::filesystem::path& file)
{
    std::vector<Scan> scans = ReadScans(file);
    std::size_t total = 0;
    for (const Scan& scan : scans) total += scan.points.size();
    if (total > uiMostPoints)
        throw CInputError(file, "holds " + std::to_string(total) + " points in all", "split it into its scans");
    return JoinScans(std::move(scans));
}

void scaleScan(Scan& scan, double factor)
{
    const auto scaled = [factor](float v) { return ToFloat(static_cast<double>(v) * factor); };
    for (Vector3& p : scan.points) p = {scaled(p.x), scaled(p.y), scaled(p.z)};
    for (double& c : scan.shift) c *= factor;
    if (!scan.sensor) return;
    for (double& c : scan.sensor->position) c *= factor;
}

bool isUsable(const Vector3& p)
{
    return std::abs(p.x) <= fLargestCoordinate && std::abs(p.y) <= fLargestCoordinate &&
           std::abs(p.z) <= fLargestCoordinate; // false for NaN
}

void dropFaces(std::vector<Face>& faces, const std::vector<std::uint32_t>& newIndex)
{
    for (Face& face : faces) face = {newIndex[face[0]], newIndex[face[1]], newIndex[face[2]]};
    std::erase_if(faces, [](const Face& f) { return f[0] == uiGone || f[1] == uiGone || f[2] == uiGone; });
}

/// Keeps the points that `keep(i)` holds for, with their normals and the faces between them.
template <typename Keep>
std::size_t dropPoints(Scan& scan, const Keep& keep)
{
    std::vector<std::uint32_t> newIndex(scan.points.size(), uiGone);
    std::uint32_t next = 0;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        if (!keep(i)) continue;
        scan.points[next] = scan.points[i];
        if (!scan.normals.empty()) scan.normals[next] = scan.normals[i];
        newIndex[i] = next++;
    }
    const std::size_t dropped = scan.points.size() - next;
    scan.points.resize(next);
    if (!scan.normals.empty()) scan.normals.resize(next);
    if (dropped > 0) dropFaces(scan.faces, newIndex);
    return dropped;
}

/// What the user says of the sensor goes before what the file does.
void setSensor(Scan& scan, const ScanOptions& options)
{
    if (!options.sensor) return;
    scan.sensor = FramePose{*options.sensor};
    for (std::size_t k = 0; k < 3; ++k)
        scan.sensor->position[k] = scan.sensor->position[k] * options.dMmPerUnit - scan.shift[k];
}

Sensor placeOf(const std::optional<FramePose>& sensor)
{
    if (!sensor) return std::nullopt;
    const Position& place = sensor->position;
    return Vector3(ToFloat(place[0]), ToFloat(place[1]), ToFloat(place[2]));
}

/// Faces and corners of a model, looking outward; nothing of a scan.
Scan modelOf(const Scan& scan, EMesh eMesh, const std::filesystem::path& file)
{
    if (scan.faces.empty() && eMesh == EMesh::Model)
        throw CInputError(file, "has no faces, so it is no model of a surface", "take it for a scan");
    if (scan.faces.empty() || eMesh == EMesh::Scan || (eMesh == EMesh::Auto && !IsSurfaceModel(scan))) return {};
    Scan model{scan.points, {}, scan.faces};
    TurnOutward(model);
    return model;
}

void requirePoints(const SurfelScan& surfels, const Scan& scan, const std::string& what)
{
    if (scan.points.size() >= uiFewestPoints) return;
    if (surfels.uiRead < uiFewestPoints)
        throw CInputError(surfels.file,
                          "holds " + std::to_string(surfels.uiRead) + (surfels.uiRead == 1 ? " point" : " points") +
                              ", and no surface has fewer than " + std::to_string(uiFewestPoints),
                          "give a scan of a surface");
    throw CInputError(surfels.file,
                      "only " + std::to_string(scan.points.size()) + " of " + std::to_string(surfels.uiRead) +
                          " points " + what,
                      "give a scan of a surface");
}

/// @param name  of the scan: its file, or that with a number behind it
SurfelScan thinnedSurfels(ThinnedScan thinned, const std::filesystem::path& name, const ScanOptions& options)
{
    std::optional<FramePose> pose = thinned.scan.pose;
    for (std::size_t k = 0; pose && k < 3; ++k) pose->position[k] *= options.dMmPerUnit;
    if (!options.isShifted) SetShift(thinned.scan, {});
    SurfelScan surfels = ToSurfels(std::move(thinned.scan), name, options);
    surfels.uiRead = thinned.uiRead;
    surfels.uiNotFinite += thinned.uiNotFinite;
    surfels.dCell = thinned.dCell * options.dMmPerUnit;
    surfels.pose = pose;
    return surfels;
}

/// Each scan of a file, thinned where the file is large.
std::vector<ThinnedScan> readEach(const std::filesystem::path& file, const ScanOptions& options, const Hooks& hooks)
{
    if (IsReadThinned(file, options.thin)) return ReadEachThinned(file, options.thin, hooks);
    std::vector<ThinnedScan> all;
    for (Scan& scan : ReadScans(file)) {
        const std::size_t points = scan.points.size();
        all.push_back({std::move(scan), points});
    }
    return all;
}

} // namespace

std::vector<Scan> ReadScans(const std::filesystem::path& file)
{
    const std::string bytes = ReadFileBytes(file);
    const std::string ending = EndingOf(file);
    for (const Format& format : formats) {
        if (ending == format.ending) return format.read(bytes, file);
    }
    throw CInputError(file, "unknown kind of file", ReadFormats() + " are read");
}

std::string ReadFormats() { return "PLY, STL, OBJ, PCD, LAS, E57, PTX, PTS, XYZ and XYZN"; }

Scan ReadScanFile(const std::filesystem::path& file)
{
    Scan scan = joined(file);
    SetShift(scan, {});
    return scan;
}

std::string SurfelScan::Warning() const
{
    std::string text;
    if (isResult) text = "a merged or coloured cloud that zorvan has written is taken for a scan";
    if (uiNotFinite > 0 || uiNoNormal * uiNotable >= uiRead) {
        text += (text.empty() ? "of " : "; of ") + std::to_string(uiRead) + " points, dropped ";
        if (uiNotFinite > 0) text += std::to_string(uiNotFinite) + " that are not finite or beyond 1e9 mm";
        if (uiNotFinite > 0 && uiNoNormal > 0) text += " and ";
        if (uiNoNormal > 0) text += std::to_string(uiNoNormal) + " without a normal";
    }
    if (dCell > 0.0)
        text += (text.empty() ? "of " : "; of ") + std::to_string(uiRead) + " points, the first in each cube of " +
                ToText(dCell, 3) + " mm was kept, since the file is large";
    return text.empty() ? text : ToShown(file.string()) + ": " + text;
}

SurfelScan ReadScan(const std::filesystem::path& file, const ScanOptions& options, const Hooks& hooks)
{
    ThinnedScan read;
    if (IsReadThinned(file, options.thin)) {
        read = ReadThinned(file, options.thin, hooks);
    } else {
        read.scan = joined(file);
        read.uiRead = read.scan.points.size();
    }
    SurfelScan surfels = thinnedSurfels(std::move(read), file, options);
    surfels.isResult = IsColouredResult(file);
    return surfels;
}

SurfelScan ToSurfels(Scan scan, const std::filesystem::path& name, const ScanOptions& options)
{
    scan.colours.clear();
    scan.intensities.clear();
    SurfelScan surfels;
    surfels.file = name;
    surfels.uiRead = scan.points.size();
    scaleScan(scan, options.dMmPerUnit);
    surfels.shift = scan.shift;
    setSensor(scan, options);
    surfels.uiNotFinite = dropPoints(scan, [&](std::size_t i) { return isUsable(scan.points[i]); });
    requirePoints(surfels, scan, "have finite coordinates below 1e9 mm");
    surfels.uiJoined = JoinEqualPoints(scan);
    requirePoints(surfels, scan, "are at places of their own");

    surfels.model = modelOf(scan, options.eMesh, name);
    if (scan.normals.empty()) surfels.eNormals = ComputeNormals(scan, placeOf(scan.sensor));
    surfels.sensor = scan.sensor;
    for (Vector3& n : scan.normals) n = Normalized(n);
    surfels.uiNoNormal = dropPoints(scan, [&](std::size_t i) { return scan.normals[i].LengthSq() > 0.0F; });
    requirePoints(surfels, scan, "have a normal");
    surfels.points = std::move(scan.points);
    surfels.normals = std::move(scan.normals);
    return surfels;
}

std::filesystem::path NumberedName(const std::filesystem::path& file, std::size_t number)
{
    return file.string() + "#" + std::to_string(number);
}

std::filesystem::path FileOfScan(const std::filesystem::path& scan)
{
    const std::string name = scan.string();
    const std::size_t mark = name.rfind('#');
    const bool isNumber = mark != std::string::npos && ParseInteger(std::string_view(name).substr(mark + 1));
    std::error_code error;
    if (!isNumber || std::filesystem::exists(scan, error)) return scan;
    return name.substr(0, mark);
}

std::vector<SurfelScan> ReadEachScan(const std::filesystem::path& file, const ScanOptions& options, const Hooks& hooks)
{
    std::vector<ThinnedScan> scans = readEach(file, options, hooks);
    const bool isOne = scans.size() == 1;
    if (isOne) PutInFileFrame(scans.front().scan);
    std::vector<SurfelScan> all;
    for (ThinnedScan& scan : scans) {
        const std::filesystem::path name = isOne ? file : NumberedName(file, scan.scan.number);
        all.push_back(thinnedSurfels(std::move(scan), name, options));
    }
    if (isOne) all.front().isResult = IsColouredResult(file);
    return all;
}

} // namespace Zorvan
