// SPDX-License-Identifier: MIT
#include "zorvan/workflow/sessiondocument.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace prereg {

namespace {

constexpr const char* sRay = "ray";
constexpr const char* sSensor = "sensor";
constexpr const char* sShift = "shift";
constexpr const char* sPath = "path";
constexpr double dLargestShift = 1e30; // mm; its square must be finite

bson::object toObject(const Zorvan::Position& p)
{
    return {bson::element("x", p[0]), bson::element("y", p[1]), bson::element("z", p[2])};
}

bson::object toObject(const kdtree::Vector<3>& v)
{
    return toObject(Zorvan::Position{static_cast<double>(v.x), static_cast<double>(v.y), static_cast<double>(v.z)});
}

Zorvan::Position readPosition(const bson::object& from)
{
    Zorvan::Position position{};
    const std::array axes{"x", "y", "z"};
    for (std::size_t k = 0; k < 3; ++k) {
        position[k] = from.child(axes[k]).as_double();
        if (!(std::abs(position[k]) <= dLargestShift)) throw std::invalid_argument("no position");
    }
    return position;
}

/// Nothing in sessions of earlier versions, and for a scan that does not show it.
std::optional<kdtree::Vector<3>> readVector(const bson::object& file, const char* name)
{
    const auto part = PartOf(file, name);
    if (!part) return {};
    const Zorvan::Position p = readPosition(*part);
    const kdtree::Vector<3> v(static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]));
    if (!v.IsFinite()) throw std::invalid_argument("no vector");
    return v;
}

/// Empty where there is none, as in sessions of earlier versions, or where it leads to another file: the name of the
/// scan is that of its file, or that with a number behind it.
std::filesystem::path readPath(const bson::object& file, const std::string& name, const std::filesystem::path& folder)
{
    for (const bson::element& e : file) {
        if (e.name() != std::string_view(sPath)) continue;
        const std::filesystem::path path = e.as_string();
        if (path.filename().empty() || !name.starts_with(path.filename().string())) return {};
        return (folder / path).lexically_normal();
    }
    return {};
}

} // namespace

std::optional<bson::object> PartOf(const bson::object& document, std::string_view name)
{
    for (const bson::element& e : document)
        if (e.name() == name) return e.as_object();
    return {};
}

Zorvan::Position ReadShift(const bson::object& from)
{
    const auto shift = PartOf(from, sShift);
    return shift ? readPosition(*shift) : Zorvan::Position{};
}

void AppendShift(bson::object& to, const Zorvan::Position& shift)
{
    if (shift != Zorvan::Position{}) to += bson::element(sShift, toObject(shift));
}

bson::object FilesToObject(const std::vector<CSession::ScanFile>& files, const std::filesystem::path& folder)
{
    bson::object document;
    for (const CSession::ScanFile& scan : files) {
        bson::object entry{bson::element::make_uuid("entity_id", &scan.id), bson::element("name", scan.name)};
        if (scan.ray) entry += bson::element(sRay, toObject(*scan.ray));
        if (scan.sensor) entry += bson::element(sSensor, toObject(*scan.sensor));
        AppendShift(entry, scan.shift);
        if (!scan.file.empty()) entry += bson::element(sPath, scan.file.lexically_proximate(folder).generic_string());
        document += bson::element("file", entry);
    }
    return document;
}

std::vector<CSession::ScanFile> ReadFiles(const bson::object& document, const std::filesystem::path& folder)
{
    std::vector<CSession::ScanFile> files;
    for (const bson::element& e : document) {
        const bson::object file = e.as_object();
        const std::string name = file.child("name").as_string();
        files.push_back({UniversalUniqueID::Load(file.child("entity_id").as_uuid()), name, readVector(file, sRay),
                         ReadShift(file), readVector(file, sSensor), readPath(file, name, folder)});
        const auto& ray = files.back().ray;
        if (ray && !(ray->LengthSq() > 0.0F)) throw std::invalid_argument("no direction");
    }
    return files;
}

} // namespace prereg
