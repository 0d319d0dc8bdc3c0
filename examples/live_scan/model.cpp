// SPDX-License-Identifier: MIT
#include "model.h"

#include "zorvan/features/cfpfhdatasource.h"

#include <chrono>
#include <cstdio>
#include <utility>

namespace live {

namespace {

constexpr unsigned uiEarlier = 0xFFFF0000U;

/// Earlier ones are greater: the registration tries the greatest first, and takes the later patch as the moving one.
UniversalUniqueID idOf(unsigned number)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08x-0000-4000-8000-000000000001", number + 1);
    return UniversalUniqueID(text);
}

PatchPtr patchOf(const Frame& frame, const prereg::ConfigurationFPFH& config)
{
    prereg::CFPFHDataSource source(config, 1, nullptr);
    source.Load(frame.points, frame.normals, nullptr);
    return std::make_shared<const prereg::CFPFHPointSet>(source);
}

} // namespace

CModel::CModel(const prereg::ConfigurationFPFH& config)
    : m_config(config),
      m_scheduler(1),
      m_registration(config, nullptr, m_scheduler.CreateJobGroup({}, {})),
      m_thread([this] { work(); })
{
}

CModel::~CModel()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void CModel::Start(const std::vector<EarlierScan>& scans)
{
    std::map<const Frame*, PatchPtr> patches;
    std::vector<prereg::CClusterRegistration::EntityTuple> entities;
    for (const EarlierScan& scan : scans) {
        PatchPtr& patch = patches[scan.scan.get()];
        if (patch == nullptr) patch = patchOf(*scan.scan, m_config);
        entities.emplace_back(idOf(uiEarlier + static_cast<unsigned>(entities.size())), scan.pose, scan.pose, patch);
    }
    if (entities.empty()) return;
    const UniversalUniqueID first = std::get<0>(entities.front());
    m_registration.CreateCluster(first, first, prereg::CTrafo::Identity(), entities);
    m_registration.SetPrimaryClusterID(first);
}

void CModel::Add(unsigned number, PatchPtr patch, const prereg::CTrafo& pose)
{
    {
        const std::lock_guard lock(m_mutex);
        m_waiting[number] = {std::move(patch), pose};
        ++m_state.uiWaiting;
    }
    m_changed.notify_all();
}

std::optional<prereg::CTrafo> CModel::PoseOf(unsigned number) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_state.patches.find(number);
    return found == m_state.patches.end() ? std::nullopt : std::optional(found->second.pose);
}

CModel::State CModel::GetState() const
{
    const std::lock_guard lock(m_mutex);
    return m_state;
}

void CModel::Finish()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_state.uiWaiting == 0; });
}

void CModel::work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_isEnding || !m_waiting.empty(); });
        if (m_isEnding) return;
        const Patches patches = std::exchange(m_waiting, {});
        lock.unlock();
        take(patches);
        lock.lock();
    }
}

void CModel::take(const Patches& patches)
{
    const auto start = std::chrono::steady_clock::now();
    for (const auto& [number, patch] : patches) {
        m_patches[number] = patch;
        m_registration.AddPointSet(idOf(number), patch.set, &patch.pose);
    }
    m_registration.Run();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    const auto poses = m_registration.GetTrafos(m_registration.GetPrimaryClusterID(), false);

    const std::lock_guard lock(m_mutex);
    for (const auto& [number, patch] : m_patches) {
        const auto found = poses.find(idOf(number));
        if (found != poses.end()) m_state.patches[number] = {patch.set, found->second};
    }
    m_state.uiWaiting -= patches.size();
    m_state.seconds.push_back(taken.count());
    m_changed.notify_all();
}

} // namespace live
