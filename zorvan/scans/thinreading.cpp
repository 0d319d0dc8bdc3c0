// SPDX-License-Identifier: MIT
#include "zorvan/scans/thinreading.h"

#include "zorvan/scans/e57reader.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/movestream.h"
#include "zorvan/scans/pcdheader.h"
#include "zorvan/scans/plyheader.h"
#include "zorvan/scans/pointlistener.h"
#include "zorvan/scans/thinnedcloud.h"
#include "zorvan/scans/thinnedscans.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace Zorvan {

namespace {

/// Faces say more than points alone.
bool arePoints(const PlyHeader& header)
{
    return std::ranges::all_of(header.elements, [](const PlyElement& element) {
        return element.count == 0 ||
               (element.name != "face" && element.name != "range_grid" && element.name != "tristrips");
    });
}

/// The points of all scans of a file in one cloud, in the frame that they share.
class CCloudOfFile : public IPointListener
{
public:
    explicit CCloudOfFile(std::size_t uiMost) : m_cloud(uiMost) {}

    void BeginScan(const ScanHeading& heading) override
    {
        m_pose = heading.pose;
        m_sensor.reset();
        m_isNew = true;
    }
    void TakeSensor(const FramePose& sensor) override { m_sensor = m_pose ? Compose(*m_pose, sensor) : sensor; }
    void TakePoint(const Position& place, const Position* normal) override
    {
        if (m_isNew) countScan();
        if (!m_pose) {
            m_cloud.TakePoint(place, normal);
            return;
        }
        const Position turned = normal != nullptr ? Rotate(*m_pose, *normal) : Position{};
        m_cloud.TakePoint(Transform(*m_pose, place), normal != nullptr ? &turned : nullptr);
    }

    ThinnedScan Result() { return ResultOf(m_cloud); }

    static ThinnedScan ResultOf(CThinnedCloud& cloud)
    {
        ThinnedScan thinned{{}, cloud.NumTaken(), cloud.NumNotFinite(), cloud.GetCell()};
        thinned.scan = cloud.ToScan();
        return thinned;
    }

private:
    /// One with points; of several, none stands for all.
    void countScan()
    {
        m_isNew = false;
        m_cloud.SetSensor(++m_scans == 1 ? m_sensor : std::nullopt);
    }

    CThinnedCloud m_cloud;
    std::optional<FramePose> m_pose;
    std::optional<FramePose> m_sensor;
    bool m_isNew = true;
    std::size_t m_scans = 0;
};

/// A cloud for each scan, in its own frame.
class CCloudsOfScans : public IPointListener
{
public:
    explicit CCloudsOfScans(std::size_t uiMost) : m_most(uiMost), m_cloud(uiMost) {}

    void BeginScan(const ScanHeading& heading) override
    {
        finish();
        m_heading = heading;
    }
    void TakeSensor(const FramePose& sensor) override { m_cloud.SetSensor(sensor); }
    void TakePoint(const Position& place, const Position* normal) override { m_cloud.TakePoint(place, normal); }

    std::vector<ThinnedScan> Result()
    {
        finish();
        return std::move(m_done);
    }

private:
    void finish()
    {
        ThinnedScan thinned = CCloudOfFile::ResultOf(m_cloud);
        m_cloud = CThinnedCloud(m_most);
        if (thinned.scan.points.empty()) return;
        thinned.scan.number = m_heading.number;
        thinned.scan.name = m_heading.name;
        thinned.scan.pose = m_heading.pose;
        m_done.push_back(std::move(thinned));
    }

    std::size_t m_most;
    CThinnedCloud m_cloud;
    ScanHeading m_heading;
    std::vector<ThinnedScan> m_done;
};

[[noreturn]] void refuseEmpty(const std::filesystem::path& file)
{
    throw CInputError(file, "holds no point", "give a scan of a surface");
}

} // namespace

bool IsReadThinned(const std::filesystem::path& file, const ThinLimits& limits)
{
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(file, error);
    if (error || size <= limits.uiMostBytes) return false;
    const std::string ending = EndingOf(file);
    try {
        CMoveStream stream(file, nullptr, Hooks::None());
        if (ending == ".ply") return arePoints(ReadPlyHeader(stream.Peek(), file, size));
        if (ending == ".pcd") return !ReadPcdHeader(stream.Peek(), file, size).IsImage();
    } catch (const CInputError&) {
        return false; // who reads it for good says why not
    }
    constexpr std::array others{".las", ".e57", ".ptx", ".pts", ".xyz", ".xyzn"};
    return std::ranges::find(others, ending) != others.end();
}

void WalkPoints(const std::filesystem::path& file, IPointListener& listener, const Hooks& hooks)
{
    try {
        if (EndingOf(file) == ".e57") {
            StreamE57(file, listener, hooks);
        } else {
            CMoveStream stream(file, &listener, hooks);
            MoveAnyFormat(stream, CMovement(FramePose{}));
        }
    } catch (const Stopped&) {
        throw CInputError(file, "stopped while it was read", "call again");
    }
    hooks.Finish();
}

ThinnedScan ReadThinned(const std::filesystem::path& file, const ThinLimits& limits, const Hooks& hooks)
{
    CCloudOfFile cloud(limits.uiMostPoints);
    WalkPoints(file, cloud, hooks);
    ThinnedScan thinned = cloud.Result();
    if (thinned.scan.points.empty()) refuseEmpty(file);
    return thinned;
}

std::vector<ThinnedScan> ReadEachThinned(const std::filesystem::path& file, const ThinLimits& limits,
                                         const Hooks& hooks)
{
    CCloudsOfScans clouds(limits.uiMostPoints);
    WalkPoints(file, clouds, hooks);
    std::vector<ThinnedScan> scans = clouds.Result();
    if (scans.empty()) refuseEmpty(file);
    return scans;
}

} // namespace Zorvan
