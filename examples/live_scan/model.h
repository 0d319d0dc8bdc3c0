// SPDX-License-Identifier: MIT
#pragma once

#include "frames.h"

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/runtime/cjobscheduler.h"

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace live {

using PatchPtr = std::shared_ptr<const prereg::CFPFHPointSet>;

/// The model: patches in a `CClusterRegistration`, on a thread of its own, so that whoever scans never waits for its
/// lock. Patches that come while it works wait for each other and are then taken together.
class CModel
{
public:
    struct Patch
    {
        PatchPtr set;
        prereg::CTrafo pose; ///< to the world
    };
    /// What the page and the tables ask for.
    struct State
    {
        std::map<unsigned, Patch> patches; ///< in the model, by number
        std::size_t uiWaiting = 0;         ///< patches that the model has not taken yet
        std::vector<double> seconds;       ///< that each round took, wall clock
    };

    explicit CModel(const prereg::ConfigurationFPFH& config);
    ~CModel();
    CModel(const CModel&) = delete;
    CModel& operator=(const CModel&) = delete;

    /// Before the first patch: what is there already.
    void Start(const std::vector<EarlierScan>& scans);
    /// @param pose  to the world; invalid: not known, the model searches for it
    void Add(unsigned number, PatchPtr patch, const prereg::CTrafo& pose);
    /// Of a patch in the model.
    [[nodiscard]] std::optional<prereg::CTrafo> PoseOf(unsigned number) const;
    [[nodiscard]] State GetState() const;
    /// Waits until no patch waits.
    void Finish();
    /// Points of the merged surface. Only when finished.
    [[nodiscard]] std::size_t CountMergedPoints() const { return m_registration.GetPrimaryClusterPointSet().Size(); }

private:
    using Patches = std::map<unsigned, Patch>;

    void work();
    void take(const Patches& patches);

    prereg::ConfigurationFPFH m_config;
    Zorvan::CJobScheduler m_scheduler;
    prereg::CClusterRegistration m_registration;
    Patches m_patches; ///< all that came, for the working thread

    mutable std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    Patches m_waiting;
    bool m_isEnding = false;
    State m_state;

    std::thread m_thread;
};

} // namespace live
