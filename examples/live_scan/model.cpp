// SPDX-License-Identifier: MIT
#include "model.h"

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/features/cfpfhdatasource.h"

#include <chrono>
#include <cstdio>
#include <numeric>
#include <tuple>
#include <utility>

namespace live {

namespace {

constexpr unsigned uiEarlier = 0xFFFF0000U;

constexpr std::size_t uiMostNeighbours = 12; // as many as lie around one patch on a surface, and some that lie on it

/// Of the cluster that a patch is placed on. It is the greatest: a registration takes the later one as moving.
const UniversalUniqueID& regionID()
{
    static const UniversalUniqueID id("ffffffff-0000-4000-8000-000000000001");
    return id;
}

UniversalUniqueID idOf(unsigned number)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08x-0000-4000-8000-000000000001", number + 1);
    return UniversalUniqueID(text);
}

/// Of the world, around the corners of the patch's own box.
kdtree::Range<3> boxOf(const CModel::Patch& patch)
{
    const auto [low, high] = patch.set->GetAABB();
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (unsigned corner = 0; corner < 8; ++corner) {
        const kdtree::Vector<3> p =
            patch.pose * kdtree::Vector<3>((corner & 1U) != 0 ? high.x : low.x, (corner & 2U) != 0 ? high.y : low.y,
                                           (corner & 4U) != 0 ? high.z : low.z);
        box = {kdtree::Min(box.low, p), kdtree::Max(box.high, p)};
    }
    return box;
}

bool overlap(const kdtree::Range<3>& a, const kdtree::Range<3>& b)
{
    return a.low.x <= b.high.x && b.low.x <= a.high.x && a.low.y <= b.high.y && b.low.y <= a.high.y &&
           a.low.z <= b.high.z && b.low.z <= a.high.z;
}

PatchPtr patchOf(const Frame& frame, const prereg::ConfigurationFPFH& config)
{
    prereg::CFPFHDataSource source(config, 1, nullptr);
    source.Load(frame.points, frame.normals, nullptr);
    return std::make_shared<const prereg::CFPFHPointSet>(source);
}

} // namespace

CModel::CModel(const prereg::ConfigurationFPFH& config) : m_config(config), m_scheduler(1), m_thread([this] { work(); })
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

void CModel::Start(const std::vector<Frame>& scans)
{
    Patches patches;
    for (const Frame& scan : scans)
        patches[uiEarlier + static_cast<unsigned>(patches.size())] = {patchOf(scan, m_config), scan.truth};
    const std::lock_guard lock(m_mutex);
    m_state.patches = std::move(patches);
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
        const auto next = m_waiting.extract(m_waiting.begin());
        lock.unlock();
        const auto start = std::chrono::steady_clock::now();
        take(next.key(), next.mapped());
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        lock.lock();
        --m_state.uiWaiting;
        m_state.uiUnplaced = m_unplaced.size();
        m_state.seconds.push_back(taken.count());
        m_changed.notify_all();
    }
}

void CModel::take(unsigned number, const Patch& patch)
{
    if (!place(number, patch, patch.pose ? around(patch) : m_state.patches)) {
        m_unplaced[number] = patch;
        return;
    }
    // One that had no place may lie on this one.
    const Patches region = m_unplaced.empty() ? Patches() : around(m_state.patches.at(number));
    std::erase_if(m_unplaced, [&](const auto& other) { return place(other.first, other.second, region); });
}

bool CModel::place(unsigned number, const Patch& patch, const Patches& region)
{
    const prereg::CTrafo pose = m_state.patches.empty() ? patch.pose : poseOn(region, number, patch);
    if (!pose) return false;
    const std::lock_guard lock(m_mutex);
    m_state.patches[number] = {patch.set, pose};
    return true;
}

/// The patches whose boxes meet that of this one, the nearest when there are many.
CModel::Patches CModel::around(const Patch& patch) const
{
    const kdtree::Range<3> box = boxOf(patch);
    std::multimap<float, Patches::const_iterator> near;
    for (auto other = m_state.patches.begin(); other != m_state.patches.end(); ++other) {
        const kdtree::Range<3> its = boxOf(other->second);
        if (overlap(box, its)) near.emplace((its.low + its.high - box.low - box.high).LengthSq(), other);
    }
    Patches region;
    for (const auto& [distance, other] : near) {
        region.insert(*other);
        if (region.size() == uiMostNeighbours) break;
    }
    return region;
}

prereg::CTrafo CModel::poseOn(const Patches& region, unsigned number, const Patch& patch)
{
    if (region.empty()) return prereg::CTrafo::Invalid();
    std::vector<prereg::CClusterRegistration::EntityTuple> entities;
    for (const auto& [other, placed] : region) entities.emplace_back(idOf(other), placed.pose, placed.pose, placed.set);
    prereg::CClusterRegistration registration(m_config, nullptr, m_scheduler.CreateJobGroup({}, {}));
    registration.CreateCluster(regionID(), std::get<0>(entities.front()), prereg::CTrafo::Identity(), entities);
    registration.SetPrimaryClusterID(regionID());
    registration.AddPointSet(idOf(number), patch.set, &patch.pose);
    registration.Run();
    const bool isPlaced = registration.GetClusterID(idOf(number)) == regionID();
    return isPlaced ? registration.GetTrafo(idOf(number)) : prereg::CTrafo::Invalid();
}

std::size_t CountPoints(const CModel::Patches& patches)
{
    return std::accumulate(patches.begin(), patches.end(), std::size_t(0),
                           [](std::size_t sum, const auto& patch) { return sum + patch.second.set->Size(); });
}

} // namespace live
