// SPDX-License-Identifier: MIT
#include "zorvan/workflow/fileinfo.h"

#include "zorvan/workflow/filewalk.h"

#include "zorvan/core/tkdtree.h"
#include "zorvan/scans/joinpoints.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace prereg {

namespace {

using Json = nlohmann::ordered_json;
using Zorvan::Position;
using Zorvan::Vector3;

bool isFinite(const Vector3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

Position toFile(const Position& p, const Position& shift)
{
    return {p[0] + shift[0], p[1] + shift[1], p[2] + shift[2]};
}

std::string triple(const Position& p, int digits)
{
    return Zorvan::ToText(p[0], digits) + " " + Zorvan::ToText(p[1], digits) + " " + Zorvan::ToText(p[2], digits);
}

std::vector<std::string> fieldsOf(const Zorvan::Scan& scan)
{
    std::vector<std::string> fields;
    if (!scan.normals.empty()) fields.emplace_back("normals");
    if (!scan.colours.empty()) fields.emplace_back("colours");
    if (!scan.intensities.empty()) fields.emplace_back("intensities");
    return fields;
}

void setExtent(ScanInfo& info, const Vectors& points, const Position& shift)
{
    if (points.empty()) return;
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const Vector3& p : points) box = {kdtree::Min(box.low, p), kdtree::Max(box.high, p)};
    const auto place = [&](const Vector3& p) {
        return toFile({static_cast<double>(p.x), static_cast<double>(p.y), static_cast<double>(p.z)}, shift);
    };
    info.low = place(box.low);
    info.high = place(box.high);
}

std::size_t countOddNormals(const Vectors& normals)
{
    constexpr float fTolerance = 0.01F;
    return static_cast<std::size_t>(
        std::ranges::count_if(normals, [](const Vector3& n) { return !(std::abs(n.Length() - 1.0F) <= fTolerance); }));
}

std::string toText(const ScanInfo& info)
{
    std::string text;
    if (!info.name.empty()) text.append(" ").append(Zorvan::ToShown(info.name));
    text += ": " + std::to_string(info.points) + " points";
    if (info.faces > 0) text += ", " + std::to_string(info.faces) + " faces";
    for (const std::string& field : info.fields) text.append(", ").append(field);
    const Position size{info.high[0] - info.low[0], info.high[1] - info.low[1], info.high[2] - info.low[2]};
    text += "\n  extent  " + triple(size, 5) + ", from " + triple(info.low, 9) + "\n  spacing " +
            Zorvan::ToText(info.sampling.dSpacing) + ", noise " + Zorvan::ToText(info.sampling.dNoise) + '\n';
    if (info.sensor) text += "  sensor  at " + triple(*info.sensor, 9) + '\n';
    if (info.pose) text += "  pose    in the file, origin at " + triple(info.pose->position, 9) + '\n';
    for (const std::string& oddity : info.oddities) text += "  note    " + oddity + '\n';
    return text;
}

Json list(const Position& p)
{
    Json numbers = Json::array();
    for (const double c : p) numbers.push_back(Zorvan::JsonNumber(c, 12));
    return numbers;
}

Json rowsOf(const Zorvan::FramePose& pose)
{
    const auto rotation = Zorvan::RotationRows(pose);
    Json rows = Json::array();
    for (std::size_t row = 0; row < 3; ++row) {
        Json numbers = list(rotation[row]);
        numbers.push_back(Zorvan::JsonNumber(pose.position[row], 12));
        rows.push_back(numbers);
    }
    rows.push_back({0, 0, 0, 1});
    return rows;
}

Json toJson(const FileInfo& file)
{
    Json json{{"file", file.file.string()}, {"bytes", file.uiBytes}, {"scans", Json::array()}};
    for (const ScanInfo& info : file.scans) {
        json["scans"].push_back({{"name", info.name},
                                 {"points", info.points},
                                 {"faces", info.faces},
                                 {"fields", info.fields},
                                 {"low", list(info.low)},
                                 {"high", list(info.high)},
                                 {"spacing", Zorvan::JsonNumber(info.sampling.dSpacing)},
                                 {"noise", Zorvan::JsonNumber(info.sampling.dNoise)},
                                 {"sensor", info.sensor ? list(*info.sensor) : Json()},
                                 {"pose", info.pose ? rowsOf(*info.pose) : Json()},
                                 {"notes", info.oddities}});
    }
    return json;
}

} // namespace

ScanInfo DescribeScan(const Zorvan::Scan& scan)
{
    ScanInfo info;
    info.name = scan.name;
    info.points = scan.points.size();
    info.faces = scan.faces.size();
    info.fields = fieldsOf(scan);
    info.pose = scan.pose;
    if (scan.sensor) info.sensor = toFile(scan.sensor->position, scan.shift);

    Zorvan::Scan usable;
    std::ranges::copy_if(scan.points, std::back_inserter(usable.points), isFinite);
    setExtent(info, usable.points, scan.shift);
    const std::size_t notFinite = info.points - usable.points.size();
    const std::size_t joined = Zorvan::JoinEqualPoints(usable);
    info.sampling = MeasureSampling(usable.points, Zorvan::TKdTree<3, 48>(usable.points.data(), usable.points.size()));

    const auto odd = [&](std::size_t count, const std::string& what) {
        if (count > 0) info.oddities.push_back(std::to_string(count) + what);
    };
    odd(notFinite, " points are not finite");
    odd(joined, " points stand where another one does");
    odd(countOddNormals(scan.normals), " normals are not of unit length");
    if (scan.shift != Position{}) info.oddities.push_back("far from the origin: read about " + triple(scan.shift, 12));
    return info;
}

FileInfo DescribeFile(const std::filesystem::path& file, const Zorvan::ThinLimits& limits)
{
    FileInfo info{file, 0, DescribeWalking(file, limits)};
    if (info.scans.empty()) {
        for (const Zorvan::Scan& scan : Zorvan::ReadScans(file)) info.scans.push_back(DescribeScan(scan));
    }
    if (Zorvan::IsColouredResult(file))
        info.scans[0].oddities.emplace_back("a result that zorvan has written, not a scan");
    info.uiBytes = std::filesystem::file_size(file);
    return info;
}

std::string ToText(const FileInfo& file)
{
    std::string text = Zorvan::ToShown(file.file.string()) + ": " + std::to_string(file.uiBytes) + " bytes, " +
                       std::to_string(file.scans.size()) + (file.scans.size() == 1 ? " scan\n" : " scans\n");
    for (std::size_t i = 0; i < file.scans.size(); ++i) text += "scan " + std::to_string(i + 1) + toText(file.scans[i]);
    return text;
}

std::string ToJson(std::span<const FileInfo> files)
{
    Json all = Json::array();
    for (const FileInfo& file : files) all.push_back(toJson(file));
    return all.dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace prereg
