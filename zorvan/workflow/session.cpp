// SPDX-License-Identifier: MIT
#include "zorvan/workflow/session.h"

#include "zorvan/clusterregistration/clusterpersistence.h"
#include "zorvan/documents/bson.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/util/csha1.h"
#include "zorvan/verdict/scansampling.h"
#include "zorvan/verdict/viewingray.h"
#include "zorvan/workflow/documentfile.h"
#include "zorvan/workflow/sensorbeside.h"
#include "zorvan/workflow/sessioncheck.h"
#include "zorvan/workflow/sessiondocument.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

namespace prereg {

namespace {

constexpr const char* sUnit = "mm_per_unit";
constexpr const char* sFiles = "files";
constexpr const char* sKnownPairs = "known_pairs";
constexpr const char* sJournal = "journal";
constexpr const char* sPast = "past";
constexpr const char* sKept = "kept_point_sets";

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

std::filesystem::path folderOf(const std::filesystem::path& file)
{
    return std::filesystem::weakly_canonical(std::filesystem::absolute(file).parent_path());
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

/// Where the file of a scan lies; empty for a scan that is none. A link stays one: it may move with its folder.
std::filesystem::path placeOf(const std::filesystem::path& scan)
{
    std::error_code error;
    const std::filesystem::path file = Zorvan::FileOfScan(scan);
    if (!std::filesystem::is_regular_file(file, error)) return {};
    return folderOf(file) / file.filename();
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
        const std::filesystem::path folder = folderOf(file);
        std::vector<ScanFile> files = ReadFiles(document.child(sFiles).as_object(), folder);
        const double mmPerUnit = document.child(sUnit).as_double();
        if (!(mmPerUnit > 0.0) || !std::isfinite(mmPerUnit)) refuse("damaged: its unit of length is no length");
        if (const std::string why = WhatIsWrongWith(registration, files); !why.empty()) refuse("damaged: " + why);
        CSession session(std::move(registration), mmPerUnit, std::move(files));
        session.keepClusters(document);
        session.m_shift = ReadShift(document);
        session.readPast(document, folder);
        if (const auto pairs = PartOf(document, sKnownPairs)) session.Know(ReadKnownPairs(*pairs));
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

void CSession::Save(const std::filesystem::path& file) const { Save(file, Zorvan::Hooks::None()); }

bool CSession::Save(const std::filesystem::path& file, const Zorvan::Hooks& hooks) const
{
    const std::filesystem::path folder = folderOf(Zorvan::PublishedPath(file));
    const bson::object clusters = clustersToObject();
    bson::object document;
    for (const bson::element& e : m_registration.ToObject())
        document += e.name() == std::string_view("clustering") ? clusters.child("clustering") : e;
    document += bson::element(sUnit, m_mmPerUnit);
    AppendShift(document, m_shift);
    document += bson::element(sFiles, FilesToObject(m_files, folder));
    if (!m_knownPairs.empty()) document += bson::element(sKnownPairs, KnownPairsToObject(m_knownPairs));
    return WriteDocumentFile(file, document + pastToObject(folder), hooks);
}

bson::object CSession::pastToObject(const std::filesystem::path& folder) const
{
    bson::object past;
    for (const Step& step : m_past) {
        bson::object entry = step.clusters + bson::element(sFiles, FilesToObject(step.files, folder));
        AppendShift(entry, step.shift);
        past += bson::element("step", entry);
    }
    bson::object document;
    if (!m_journal.empty()) document += bson::element(sJournal, JournalToObject(m_journal));
    if (!m_past.empty()) document += bson::element(sPast, past);
    if (m_kept) document += bson::element(sKept, m_kept);
    return document;
}

void CSession::readPast(const bson::object& document, const std::filesystem::path& folder)
{
    if (const auto journal = PartOf(document, sJournal)) m_journal = ReadJournal(*journal);
    if (const auto kept = PartOf(document, sKept)) m_kept = *kept;
    const auto past = PartOf(document, sPast);
    for (const bson::element& e : past.value_or(bson::object())) {
        const bson::object step = e.as_object();
        m_past.push_back({step, ReadFiles(step.child(sFiles).as_object(), folder), ReadShift(step)});
        bson::object& clusters = m_past.back().clusters;
        clusters = clusters.erase(sFiles).erase("shift");
    }
}

bool CSession::Add(const Zorvan::SurfelScan& scan, const std::shared_ptr<const CFPFHPointSet>& set,
                   const CTrafo& preTrafo, bool isRayKept)
{
    const std::string name = scan.file.filename().string();
    const UniversalUniqueID id = makeID(m_files.size(), name, scan.points);
    if (!m_registration.AddPointSet(id, set, &preTrafo)) return false;
    const std::optional<kdtree::Vector<3>> sensor = SensorBeside(scan);
    m_files.push_back(
        {id, name, isRayKept && !sensor ? rayOf(scan) : std::nullopt, scan.shift, sensor, placeOf(scan.file)});
    return true;
}

bool CSession::AddAgain(const ScanFile& file, const std::shared_ptr<const CFPFHPointSet>& set, const CTrafo& preTrafo)
{
    if (!m_registration.AddPointSet(file.id, set, &preTrafo)) return false;
    m_files.push_back(file);
    return true;
}

void CSession::Hold(CClusterRegistration registration, std::vector<ScanFile> files)
{
    m_registration = std::move(registration);
    m_files = std::move(files);
}

void CSession::Know(const KnownPairs& pairs)
{
    for (const auto& [ids, pair] : pairs) m_knownPairs.insert_or_assign(ids, pair);
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

std::map<std::string, std::string> ClustersByName(const CSession& session)
{
    std::map<std::string, std::string> clusters;
    for (const CSession::ScanFile& file : session.GetFiles())
        clusters[file.name] = session.GetRegistration().GetClusterID(file.id);
    return clusters;
}

} // namespace prereg
