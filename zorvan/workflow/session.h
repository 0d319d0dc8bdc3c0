// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/core/hooks.h"
#include "zorvan/core/vector.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/util/universaluniqueid.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/knownpairs.h"
#include "zorvan/workflow/sessionjournal.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace prereg {

/// A registration together with what only the program knows of it: which file each scan came from, and the unit of the
/// files. Saved as one document: that of the registration, which every host can read, with "files" and "mm_per_unit"
/// behind it.
class ZORVAN_WORKFLOW_API CSession
{
public:
    using Group = CClusterRegistration::Group;

    struct ScanFile
    {
        UniversalUniqueID id;
        std::string name;                             ///< without folder
        std::optional<kdtree::Vector<3>> ray = {};    ///< to the sensor, in scan coordinates, where the points show it
        Zorvan::Position shift = {};                  ///< mm, was taken off the coordinates of the scan
        std::optional<kdtree::Vector<3>> sensor = {}; ///< where it stood beside what it saw, in scan coordinates
        std::filesystem::path file = {};              ///< absolute; empty for a scan that a host had in memory
    };
    /// How many changes can be taken back.
    static constexpr std::size_t uiMostSteps = 16;
    /// Where all scans were at one time.
    struct Step
    {
        bson::object clusters; ///< as the document of a registration has them, without surfaces
        std::vector<ScanFile> files;
        Zorvan::Position shift = {};
    };

    CSession(const ConfigurationFPFH& config, double dMmPerUnit, const Group& group);
    /// Of its parts; each entity of the registration is one of the files.
    CSession(CClusterRegistration registration, double dMmPerUnit, std::vector<ScanFile> files);
    /// Names of files are kept relative to the session: a folder with scans and session can be moved as a whole.
    /// @throws CInputError when the file is no whole session
    static CSession Load(const std::filesystem::path& file, const Group& group);
    /// Whole or not at all. @throws CInputError
    void Save(const std::filesystem::path& file) const;
    /// @return  false when the hooks stop it: the file is as it was
    bool Save(const std::filesystem::path& file, const Zorvan::Hooks& hooks) const;

    /// Adds a scan as a cluster of its own, under an identifier made of its number, name and points; clusters are tried
    /// in the order of identifiers, so in the order in which scans come, and neighbours meet early.
    /// @param preTrafo   scan to world coordinates (mm), or invalid
    /// @param isRayKept  finds the way to the sensor while all points are there, for those who weigh pairs later
    /// @return           false when it has too few points or features
    bool Add(const Zorvan::SurfelScan& scan, const std::shared_ptr<const CFPFHPointSet>& set, const CTrafo& preTrafo,
             bool isRayKept = false);
    /// Adds a scan that it had before, under its own identifier. @return  false when that is there already
    bool AddAgain(const ScanFile& file, const std::shared_ptr<const CFPFHPointSet>& set, const CTrafo& preTrafo);
    [[nodiscard]] bool Contains(const std::string& name) const;

    [[nodiscard]] double GetMmPerUnit() const { return m_mmPerUnit; }
    /// What was taken off the coordinates of all clusters (mm).
    [[nodiscard]] const Zorvan::Position& GetShift() const { return m_shift; }
    void SetShift(const Zorvan::Position& shift) { m_shift = shift; }
    /// Of scans and clusters, the first that is not zero.
    [[nodiscard]] Zorvan::Position GetSharedShift() const;
    /// In the order in which they came.
    [[nodiscard]] const std::vector<ScanFile>& GetFiles() const { return m_files; }
    [[nodiscard]] CClusterRegistration& GetRegistration() { return m_registration; }
    [[nodiscard]] const CClusterRegistration& GetRegistration() const { return m_registration; }

    /// What searches have found for pairs of its scans, and of scans that a change to take back had.
    [[nodiscard]] const KnownPairs& GetKnownPairs() const { return m_knownPairs; }
    /// Adds what a run has found; what was known of the same pairs goes.
    void Know(const KnownPairs& pairs);

    /// What was done to it, oldest first.
    [[nodiscard]] const SessionJournal& GetJournal() const { return m_journal; }
    void Note(const JournalEntry& entry) { m_journal.push_back(entry); }
    /// Where the scans are now, to be added once they have moved.
    [[nodiscard]] Step GetStep() const;
    /// The next change to take back ends there. The oldest of too many is forgotten.
    void AddStep(Step step);
    /// Takes over shift, known pairs, journal and steps of the session that this one was made from, whose state becomes
    /// the next to go back to; surfaces of scans that have gone stay for that.
    void GoOnFrom(const CSession& before, const JournalEntry& entry);
    /// Takes these clusters and scans in place of its own; shift, journal and steps stay.
    void Hold(CClusterRegistration registration, std::vector<ScanFile> files);
    /// Before its last change; that itself can be taken back too, and so on. Scans that came with the change are gone.
    /// @throws std::invalid_argument when there is no change to take back, or what is kept of it is damaged
    [[nodiscard]] CSession Undone(const Group& group, const JournalStamp& stamp = {}) const;

private:
    /// Takes the clusters of the document that the registration was read from for those that are there.
    void keepClusters(const bson::object& stored);
    /// Poses and clusters, as a document of the registration holds them, but without surfaces.
    [[nodiscard]] bson::object clustersToObject() const;
    /// What neither the session nor a step to go back to needs.
    void forgetUnused();
    [[nodiscard]] bson::object pastToObject(const std::filesystem::path& folder) const;
    void readPast(const bson::object& document, const std::filesystem::path& folder);

    CClusterRegistration m_registration;
    double m_mmPerUnit;
    Zorvan::Position m_shift = {};
    std::vector<ScanFile> m_files;
    KnownPairs m_knownPairs;
    SessionJournal m_journal;
    std::vector<Step> m_past; ///< before the changes, oldest first
    bson::object m_kept;      ///< surfaces that only the past has
    // A pose is stored as a quaternion in single precision, which is another one in its last digit after it was read
    // and written. So what was read is written again as it was, for as long as nothing moves.
    bson::object m_storedClusters; ///< as they were read
    bson::object m_readClusters;   ///< as they would be written since
};

/// The cluster of each scan, by the name of the scan.
[[nodiscard]] ZORVAN_WORKFLOW_API std::map<std::string, std::string> ClustersByName(const CSession& session);

} // namespace prereg
