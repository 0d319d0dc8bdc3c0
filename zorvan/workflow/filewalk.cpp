// SPDX-License-Identifier: MIT
#include "zorvan/workflow/filewalk.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/movestream.h"
#include "zorvan/scans/plyheader.h"
#include "zorvan/scans/thinnedscans.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

namespace prereg {

namespace {

using Zorvan::Position;

bool isFinite(const Position& p) { return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]); }

/// What is known of one scan before its sampling is measured.
struct Walked
{
    ScanInfo info;
    std::size_t uiNotFinite = 0;
    bool hasNormals = true;
    std::vector<Position> places = {}; ///< of the first of its points
};

class CScanWalk : public Zorvan::IPointListener
{
public:
    explicit CScanWalk(std::size_t uiMost) : m_most(uiMost) {}

    void BeginScan(const Zorvan::ScanHeading& heading) override
    {
        m_scans.emplace_back();
        m_scans.back().info.name = heading.name;
        m_scans.back().info.pose = heading.pose;
    }
    void TakeSensor(const Zorvan::FramePose& sensor) override { scan().info.sensor = sensor.position; }
    void TakePoint(const Position& place, const Position* normal) override
    {
        Walked& walked = scan();
        ++walked.info.points;
        walked.hasNormals = walked.hasNormals && normal != nullptr;
        if (!isFinite(place)) {
            ++walked.uiNotFinite;
            return;
        }
        grow(walked.info, place, walked.info.points - walked.uiNotFinite == 1);
        if (walked.places.size() < m_most) walked.places.push_back(place);
    }

    [[nodiscard]] std::vector<ScanInfo> Result(const std::string& notLookedAt)
    {
        std::vector<ScanInfo> infos;
        for (Walked& walked : m_scans) {
            if (walked.info.points > 0) infos.push_back(finished(walked, notLookedAt));
        }
        return infos;
    }

private:
    /// Formats of one scan do not say that it begins.
    Walked& scan()
    {
        if (m_scans.empty()) m_scans.emplace_back();
        return m_scans.back();
    }

    static void grow(ScanInfo& info, const Position& place, bool isFirst)
    {
        for (std::size_t k = 0; k < place.size(); ++k) {
            info.low[k] = isFirst ? place[k] : std::min(info.low[k], place[k]);
            info.high[k] = isFirst ? place[k] : std::max(info.high[k], place[k]);
        }
    }

    static ScanInfo finished(Walked& walked, const std::string& notLookedAt)
    {
        ScanInfo& info = walked.info;
        Zorvan::Scan first;
        Zorvan::SetPoints(first, std::exchange(walked.places, {}));
        const ScanInfo sample = DescribeScan(first);
        info.sampling = sample.sampling;
        if (walked.hasNormals) info.fields.emplace_back("normals");
        if (walked.uiNotFinite > 0)
            info.oddities.push_back(std::to_string(walked.uiNotFinite) + " points are not finite");
        std::string note = "walked through for its size";
        if (sample.points < info.points - walked.uiNotFinite)
            note += "; spacing and noise are those of the first " + std::to_string(sample.points) + " points";
        info.oddities.push_back(note + "; not looked for: points that come twice, lengths of normals" + notLookedAt);
        return std::move(info);
    }

    std::size_t m_most;
    std::vector<Walked> m_scans;
};

/// What the header has besides points and normals.
void addPlyFields(const Zorvan::PlyHeader& header, ScanInfo& info)
{
    const Zorvan::PlyElement* const faces = header.Find("face");
    if (faces != nullptr) info.faces = faces->count;
    const Zorvan::PlyElement& vertex = *header.Find("vertex");
    if (vertex.FindScalar("red") >= 0 || vertex.FindScalar("diffuse_red") >= 0) info.fields.emplace_back("colours");
    if (vertex.FindScalar("intensity") >= 0 || vertex.FindScalar("scalar_Intensity") >= 0)
        info.fields.emplace_back("intensities");
}

std::vector<ScanInfo> walkPly(const std::filesystem::path& file, CScanWalk& walk)
{
    Zorvan::CMoveStream stream(file, nullptr, Zorvan::Hooks::None());
    const Zorvan::PlyHeader header = Zorvan::ReadPlyHeader(stream.Peek(), file, stream.Size());
    try {
        Zorvan::WalkPoints(file, walk, Zorvan::Hooks::None());
    } catch (const Zorvan::CInputError&) {
        return {}; // vertices with lists, several on a line: who reads it as a whole takes them, or says why not
    }
    std::vector<ScanInfo> infos = walk.Result("");
    for (ScanInfo& info : infos) addPlyFields(header, info);
    return infos;
}

} // namespace

std::vector<ScanInfo> DescribeWalking(const std::filesystem::path& file, const Zorvan::ThinLimits& limits)
{
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(file, error);
    if (error || size <= limits.uiMostBytes) return {};
    const std::string ending = Zorvan::EndingOf(file);
    CScanWalk walk(limits.uiMostPoints);
    if (ending == ".ply") return walkPly(file, walk);
    constexpr std::array others{".pcd", ".las", ".e57", ".ptx", ".pts", ".xyz", ".xyzn"};
    if (std::ranges::find(others, ending) == others.end()) return {};
    Zorvan::WalkPoints(file, walk, Zorvan::Hooks::None());
    return walk.Result(", faces, colours, intensities");
}

} // namespace prereg
