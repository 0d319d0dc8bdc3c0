// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/core/tkdtree.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/joinpoints.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/verdict/scansampling.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

using Json = nlohmann::ordered_json;
using Zorvan::Position;
using Zorvan::Vector3;

struct InfoOptions
{
    std::vector<std::string> files;
    bool isJson = false;
    GeneralOptions general;
};

/// What is worth knowing of a scan. Lengths and places in the unit and the frame of the file.
struct ScanInfo
{
    std::string name;
    std::size_t points = 0;
    std::size_t faces = 0;
    std::vector<std::string> fields;
    Position low{};
    Position high{};
    prereg::ScanSampling sampling;
    std::optional<Position> sensor;
    std::optional<Zorvan::FramePose> pose;
    std::vector<std::string> oddities;
};

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

void setExtent(ScanInfo& info, const prereg::Vectors& points, const Position& shift)
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

std::size_t countOddNormals(const prereg::Vectors& normals)
{
    constexpr float fTolerance = 0.01F;
    return static_cast<std::size_t>(
        std::ranges::count_if(normals, [](const Vector3& n) { return !(std::abs(n.Length() - 1.0F) <= fTolerance); }));
}

ScanInfo describe(const Zorvan::Scan& scan)
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
    info.sampling =
        prereg::MeasureSampling(usable.points, Zorvan::TKdTree<3, 48>(usable.points.data(), usable.points.size()));

    const auto odd = [&](std::size_t count, const std::string& what) {
        if (count > 0) info.oddities.push_back(std::to_string(count) + what);
    };
    odd(notFinite, " points are not finite");
    odd(joined, " points stand where another one does");
    odd(countOddNormals(scan.normals), " normals are not of unit length");
    if (scan.shift != Position{}) info.oddities.push_back("far from the origin: read about " + triple(scan.shift, 12));
    return info;
}

void print(const std::filesystem::path& file, const std::vector<ScanInfo>& scans)
{
    std::cout << Zorvan::ToShown(file.string()) << ": " << std::filesystem::file_size(file) << " bytes, "
              << scans.size() << (scans.size() == 1 ? " scan\n" : " scans\n");
    for (std::size_t i = 0; i < scans.size(); ++i) {
        const ScanInfo& info = scans[i];
        std::cout << "scan " << i + 1;
        if (!info.name.empty()) std::cout << ' ' << Zorvan::ToShown(info.name);
        std::cout << ": " << info.points << " points";
        if (info.faces > 0) std::cout << ", " << info.faces << " faces";
        for (const std::string& field : info.fields) std::cout << ", " << field;
        const Position size{info.high[0] - info.low[0], info.high[1] - info.low[1], info.high[2] - info.low[2]};
        std::cout << "\n  extent  " << triple(size, 5) << ", from " << triple(info.low, 9) << "\n  spacing "
                  << Zorvan::ToText(info.sampling.dSpacing) << ", noise " << Zorvan::ToText(info.sampling.dNoise)
                  << '\n';
        if (info.sensor) std::cout << "  sensor  at " << triple(*info.sensor, 9) << '\n';
        if (info.pose) std::cout << "  pose    in the file, origin at " << triple(info.pose->position, 9) << '\n';
        for (const std::string& oddity : info.oddities) std::cout << "  note    " << oddity << '\n';
    }
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

Json toJson(const std::filesystem::path& file, const std::vector<ScanInfo>& scans)
{
    Json json{{"file", file.string()}, {"bytes", std::filesystem::file_size(file)}, {"scans", Json::array()}};
    for (const ScanInfo& info : scans) {
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

int info(const InfoOptions& options)
{
    options.general.Apply();
    Json all = Json::array();
    int exitCode = Done;
    for (const std::string& file : options.files) {
        try {
            std::vector<ScanInfo> scans;
            for (const Zorvan::Scan& scan : Zorvan::ReadScans(file)) scans.push_back(describe(scan));
            if (Zorvan::IsColouredResult(file))
                scans[0].oddities.emplace_back("a result that zorvan has written, not a scan");
            if (options.isJson)
                all.push_back(toJson(file, scans));
            else
                print(file, scans);
        } catch (const Zorvan::CInputError& error) {
            std::cerr << Zorvan::ToMessage(std::string("zorvan: ") + error.what()) << '\n';
            exitCode = WrongInput;
        }
    }
    if (options.isJson) std::cout << all.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    return exitCode;
}

} // namespace

void AddInfo(CCommand app)
{
    const auto options = std::make_shared<InfoOptions>();
    CCommand command = app.AddCommand("info", "What is in files of scans");
    command.AddOption("FILE", options->files, "Scans of any kind that is read").Required();
    command.AddFlag("--json", options->isJson, "Print a list with an entry a file");
    options->general.AddTo(command, "No effect");
    command.SetFooter(
        "Lengths and places are in the unit and the frame of the file. Spacing is the median distance of a\n"
        "point to its nearest neighbour, noise the standard deviation about curved patches.\n"
        "Exit code 2: a file cannot be read; the others are described all the same.\n\n"
        "Examples:\n"
        "  zorvan info scans/*.ply\n"
        "  zorvan info site.ptx --json");
    command.SetAction([options] { return info(*options); });
}

} // namespace tools
