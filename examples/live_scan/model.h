// SPDX-License-Identifier: MIT
#pragma once

#include "frames.h"

#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/runtime/cjobscheduler.h"

#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace live {

using PatchPtr = std::shared_ptr<const prereg::CFPFHPointSet>;

/// The model: patches and their poses, on a thread of its own, so that whoever scans never waits for it. A patch is
/// placed on those around it, by a `CClusterRegistration` of them alone: that merges all it has for each patch that it
/// takes, which for a whole model of a million points takes seconds. Only a patch that nobody knows a pose of is
/// searched for on all of it.
class CModel
{
public:
    struct Patch
    {
        PatchPtr set;
        prereg::CTrafo pose; ///< to the world
    };
    using Patches = std::map<unsigned, Patch>; ///< by number
    /// What the page and the tables ask for.
    struct State
    {
        Patches patches;             ///< in the model
        std::size_t uiWaiting = 0;   ///< patches that the model has not taken yet
        std::size_t uiUnplaced = 0;  ///< patches that it has found no place for so far
        std::vector<double> seconds; ///< that each patch took, wall clock
    };

    explicit CModel(const prereg::ConfigurationFPFH& config);
    ~CModel();
    CModel(const CModel&) = delete;
    CModel& operator=(const CModel&) = delete;

    /// Before the first patch: what is there already.
    void Start(const std::vector<Frame>& scans);
    /// @param pose  to the world; invalid: not known, the model searches for it
    void Add(unsigned number, PatchPtr patch, const prereg::CTrafo& pose);
    /// Of a patch in the model.
    [[nodiscard]] std::optional<prereg::CTrafo> PoseOf(unsigned number) const;
    [[nodiscard]] State GetState() const;
    /// Waits until no patch waits.
    void Finish();

private:
    void work();
    void take(unsigned number, const Patch& patch);
    bool place(unsigned number, const Patch& patch, const Patches& region);
    [[nodiscard]] Patches around(const Patch& patch) const;
    [[nodiscard]] prereg::CTrafo poseOn(const Patches& region, unsigned number, const Patch& patch);

    prereg::ConfigurationFPFH m_config;
    Zorvan::CJobScheduler m_scheduler;
    Patches m_unplaced; ///< of the working thread

    mutable std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    Patches m_waiting;
    bool m_isEnding = false;
    State m_state; ///< its patches change on the working thread alone, which reads them without the lock

    std::thread m_thread;
};

/// Points of all patches.
[[nodiscard]] std::size_t CountPoints(const CModel::Patches& patches);

} // namespace live
