// SPDX-License-Identifier: MIT
#include "zorvan/workflow/session.h"

#include "zorvan/clusterregistration/clusterpersistence.h"
#include "zorvan/documents/bson.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/util/csha1.h"
#include "zorvan/verdict/scansampling.h"
#include "zorvan/verdict/viewingray.h"
#include "zorvan/workflow/documentfile.h"
#include "zorvan/workflow/sessioncheck.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace prereg {

namespace {

constexpr const char* sUnit = "mm_per_unit";
constexpr const char* sFiles = "files";
constexpr const char* sRay = "ray";
constexpr const char* sShift = "shift";
constexpr double dLargestShift = 1e30; // mm; its square must be finite

/// The registration goes through clusters in descending order of the texts of their identifiers, so the first scan gets
/// the highest one. The other digits tell scans of the same number apart; version and variant are those of RFC 9562 for
/// identifiers of one's own making.
UniversalUniqueID makeID(std::size_t number, const std::string& name, const Vectors& points)
{
    const std::string bytes = name + Zorvan::CSHA1::Compute(points.data(), points.size() * sizeof points[0]).ToString();
    const std::string hash = Zorvan::CSHA1::Compute(bytes.data(), bytes.size()).ToString();
    char first[5];
    std::snprintf(first, sizeof first, "%04x", static_cast<unsigned>(0xFFFFU - number % 0x10000U));
    return UniversalUniqueID(first + hash.substr(0, 4) + "-" + hash.substr(4, 4) + "-8" + hash.substr(8, 3) + "-8" +
                             hash.substr(11, 3) + "-" + hash.substr(14, 12));
}

/// All points are needed for that: those of the set have been thinned.
std::optional<kdtree::Vector<3>> rayOf(const Zorvan::SurfelScan& scan)
{
    const CPointSet set(scan.points.data(), scan.normals.data(), scan.points.size());
    const double spacing = MeasureSampling(set.GetPoints(), set.GetKdTree()).dSpacing;
    const ViewingRay ray = FindViewingRay(set.GetPoints(), set.GetNormals(), set.GetKdTree(), spacing);
    if (ray.eKind != ERay::Found) return {};
    return ray.direction;
}

bson::object toObject(const kdtree::Vector<3>& v)
{
    return {bson::element("x", static_cast<double>(v.x)), bson::element("y", static_cast<double>(v.y)),
            bson::element("z", static_cast<double>(v.z))};
}

bson::object toObject(const Zorvan::Position& p)
{
    return {bson::element("x", p[0]), bson::element("y", p[1]), bson::element("z", p[2])};
}

/// Zeros where there is none: near the origin, and in sessions of earlier versions.
Zorvan::Position readShift(const bson::object& from)
{
    for (const bson::element& e : from) {
        if (e.name() != std::string_view(sShift)) continue;
        const bson::object shift = e.as_object();
        const auto read = [&](const char* axis) {
            const double value = shift.child(axis).as_double();
            if (!(std::abs(value) <= dLargestShift)) throw std::invalid_argument("no shift");
            return value;
        };
        return {read("x"), read("y"), read("z")};
    }
    return {};
}

/// Nothing in sessions of earlier versions, and for a scan that does not show it.
std::optional<kdtree::Vector<3>> readRay(const bson::object& file)
{
    for (const bson::element& e : file) {
        if (e.name() != std::string_view(sRay)) continue;
        const bson::object ray = e.as_object();
        const auto read = [&](const char* axis) { return static_cast<float>(ray.child(axis).as_double()); };
        const kdtree::Vector<3> direction(read("x"), read("y"), read("z"));
        if (!direction.IsFinite() || !(direction.LengthSq() > 0.0F)) throw std::invalid_argument("no direction");
        return direction;
    }
    return {};
}

std::vector<CSession::ScanFile> readFiles(const bson::object& document)
{
    std::vector<CSession::ScanFile> files;
    for (const bson::element& e : document) {
        const bson::object file = e.as_object();
        files.push_back({UniversalUniqueID::Load(file.child("entity_id").as_uuid()), file.child("name").as_string(),
                         readRay(file), readShift(file)});
    }
    return files;
}

} // namespace

CSession::CSession(const ConfigurationFPFH& config, double dMmPerUnit, const Group& group)
    : CSession(CClusterRegistration(config, nullptr, group), dMmPerUnit, {})
{
}

CSession::CSession(CClusterRegistration registration, double dMmPerUnit, std::vector<ScanFile> files)
    : m_registration(std::move(registration)), m_mmPerUnit(dMmPerUnit), m_files(std::move(files))
{
}

CSession CSession::Load(const std::filesystem::path& file, const Group& group)
{
    const bson::object document = ReadDocumentFile(file);
    const auto refuse = [&](const std::string& why) {
        throw Zorvan::CInputError(file, why, "give a session.zdoc that zorvan register has written");
    };
    try {
        auto registration = CClusterRegistration::FromObject(document, group);
        std::vector<ScanFile> files = readFiles(document.child(sFiles).as_object());
        const double mmPerUnit = document.child(sUnit).as_double();
        if (!(mmPerUnit > 0.0) || !std::isfinite(mmPerUnit)) refuse("damaged: its unit of length is no length");
        if (const std::string why = WhatIsWrongWith(registration, files); !why.empty()) refuse("damaged: " + why);
        CSession session(std::move(registration), mmPerUnit, std::move(files));
        session.m_shift = readShift(document);
        return session;
    } catch (const Zorvan::CInputError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        refuse("a saved document, but no session, or a damaged one");
        throw;
    }
}

void CSession::Save(const std::filesystem::path& file) const
{
    bson::object files;
    for (const ScanFile& scan : m_files) {
        bson::object entry{bson::element::make_uuid("entity_id", &scan.id), bson::element("name", scan.name)};
        if (scan.ray) entry += bson::element(sRay, toObject(*scan.ray));
        if (scan.shift != Zorvan::Position{}) entry += bson::element(sShift, toObject(scan.shift));
        files += bson::element("file", entry);
    }
    bson::object document = m_registration.ToObject();
    document += bson::element(sUnit, m_mmPerUnit);
    if (m_shift != Zorvan::Position{}) document += bson::element(sShift, toObject(m_shift));
    document += bson::element(sFiles, files);
    WriteDocumentFile(file, document);
}

bool CSession::Add(const Zorvan::SurfelScan& scan, const std::shared_ptr<const CFPFHPointSet>& set,
                   const CTrafo& preTrafo, bool isRayKept)
{
    const std::string name = scan.file.filename().string();
    const UniversalUniqueID id = makeID(m_files.size(), name, scan.points);
    if (!m_registration.AddPointSet(id, set, &preTrafo)) return false;
    m_files.push_back({id, name, isRayKept ? rayOf(scan) : std::nullopt, scan.shift});
    return true;
}

Zorvan::Position CSession::GetSharedShift() const
{
    std::vector<Zorvan::Position> shifts{m_shift};
    for (const ScanFile& file : m_files) shifts.push_back(file.shift);
    return Zorvan::CommonShift(shifts);
}

bool CSession::Contains(const std::string& name) const
{
    return std::any_of(m_files.begin(), m_files.end(), [&](const ScanFile& scan) { return scan.name == name; });
}

} // namespace prereg
