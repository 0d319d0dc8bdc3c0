// SPDX-License-Identifier: MIT
#include "tracker.h"

#include "zorvan/scans/vectors.h"

#include <ctime>
#include <utility>

namespace live {

namespace {

using prereg::CTrafo;

constexpr unsigned uiFramesAPatch = 10;
constexpr double dReach = 1.0; // mm; no frame is further from where the last two lead to

/// Processor time of this thread: a busy machine does not count.
double now()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Made an exact rotation again: each prediction multiplies the last two poses, and would double what rounding adds.
CTrafo rigid(const CTrafo& pose) { return {pose.GetQuaternion(), pose.GetTranslation()}; }

/// Seconds since the last call.
double lap(double& since)
{
    const double start = std::exchange(since, now());
    return since - start;
}

/// The means that `Update` leaves, at unit length.
prereg::Vectors unitNormals(const prereg::CFPFHDataSource& source)
{
    const auto [normals, size] = source.GetNormals();
    prereg::Vectors units(normals, normals + size);
    for (auto& n : units) n = Zorvan::Normalized(n);
    return units;
}

} // namespace

CTracker::CTracker(const prereg::ConfigurationFPFH& config, CModel& model)
    : m_config(config), m_model(model), m_source(config, 1, nullptr)
{
    m_config.icpConfig.dInitialQueryRadiusScaling = dReach / m_config.icpConfig.dMinQueryRadius;
    begin(CTrafo::Identity());
}

PlacedFrame CTracker::Take(const Frame& frame, const CTrafo& start)
{
    PlacedFrame placed;
    double time = now();
    if (m_number == 0 && m_numFrames == 0) m_previousToWorld = start;
    CTrafo pose = place(frame);
    placed.isLost = !pose;
    if (placed.isLost) {
        Finish();
        begin(CTrafo::Invalid());
        pose = CTrafo::Identity();
    }
    m_step = m_last.GetInverse(true) * pose;
    m_last = pose;
    placed.times.dPlacing = lap(time);

    for (std::size_t i = 0; i < frame.points.size(); ++i) {
        const auto [point, normal] = pose.Transform(frame.points[i], frame.normals[i]);
        m_points.push_back(point);
        m_normals.push_back(normal);
    }
    m_source.Update(m_points, m_normals, nullptr);
    placed.times.dFeatures = lap(time);

    const auto [points, numPoints] = m_source.GetPoints();
    const prereg::Vectors normals = unitNormals(m_source);
    m_surface = std::make_unique<const prereg::CPointSet>(points, normals.data(), numPoints);
    const CTrafo toWorld = patchToWorld();
    placed.pose = toWorld ? toWorld * pose : CTrafo::Invalid();
    if (++m_numFrames == uiFramesAPatch) {
        handOver();
        begin(m_last);
        // The new patch begins where the frame lies, with its points.
        m_points = frame.points;
        m_normals = frame.normals;
        m_surface = std::make_unique<const prereg::CPointSet>(m_points.data(), m_normals.data(), m_points.size());
    }
    placed.times.dUpdate = lap(time);
    return placed;
}

void CTracker::Finish()
{
    if (m_numFrames > 0) handOver();
    m_numFrames = 0;
}

CTrafo CTracker::place(const Frame& frame)
{
    if (m_surface == nullptr) return CTrafo::Identity();
    const prereg::CPointSet set(frame.points.data(), frame.normals.data(), frame.points.size());
    const auto found =
        m_surface->ComputeICPRegistration(m_config.icpConfig, m_rng, set, m_last * m_step, nullptr, false);
    return found ? rigid(found.GetTrafo()) : CTrafo::Invalid();
}

/// @param toLast  the frame of the patch, that of the frame at hand, in the patch before
void CTracker::begin(CTrafo toLast)
{
    m_toPrevious = toLast;
    m_source.Clear();
    m_points.clear();
    m_normals.clear();
    m_surface.reset();
    m_last = CTrafo::Identity();
    m_step = toLast && m_step ? m_step : CTrafo::Identity();
    m_numFrames = 0;
}

void CTracker::handOver()
{
    const CTrafo toWorld = patchToWorld();
    m_model.Add(m_number, std::make_shared<const prereg::CFPFHPointSet>(m_source), toWorld);
    m_previousToWorld = toWorld;
    ++m_number;
}

CTrafo CTracker::patchToWorld() const
{
    if (!m_toPrevious) return CTrafo::Invalid();
    const auto refined = m_number == 0 ? std::nullopt : m_model.PoseOf(m_number - 1);
    const CTrafo previous = refined.value_or(m_previousToWorld);
    return previous ? previous * m_toPrevious : CTrafo::Invalid();
}

} // namespace live
