// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/core/vector.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/util/universaluniqueid.h"
#include "zorvan/workflow/export.h"

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
        std::string name;                          ///< without folder
        std::optional<kdtree::Vector<3>> ray = {}; ///< to the sensor, in scan coordinates, where the points show it
        Zorvan::Position shift = {};               ///< mm, was taken off the coordinates of the scan
    };

    CSession(const ConfigurationFPFH& config, double dMmPerUnit, const Group& group);
    /// Of its parts; each entity of the registration is one of the files.
    CSession(CClusterRegistration registration, double dMmPerUnit, std::vector<ScanFile> files);
    /// @throws CInputError when the file is no whole session
    static CSession Load(const std::filesystem::path& file, const Group& group);
    /// Whole or not at all. @throws CInputError
    void Save(const std::filesystem::path& file) const;

    /// Adds a scan as a cluster of its own, under an identifier made of its number, name and points; clusters are tried
    /// in the order of identifiers, so in the order in which scans come, and neighbours meet early.
    /// @param preTrafo   scan to world coordinates (mm), or invalid
    /// @param isRayKept  finds the way to the sensor while all points are there, for those who weigh pairs later
    /// @return           false when it has too few points or features
    bool Add(const Zorvan::SurfelScan& scan, const std::shared_ptr<const CFPFHPointSet>& set, const CTrafo& preTrafo,
             bool isRayKept = false);
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

private:
    CClusterRegistration m_registration;
    double m_mmPerUnit;
    Zorvan::Position m_shift = {};
    std::vector<ScanFile> m_files;
};

} // namespace prereg
