// SPDX-License-Identifier: MIT
#include "zorvan/scans/thinreading.h"

#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/movestream.h"
#include "zorvan/scans/pcdheader.h"
#include "zorvan/scans/plyheader.h"
#include "zorvan/scans/thinnedcloud.h"

#include <algorithm>
#include <string>
#include <system_error>

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
        if (ending == ".pcd") {
            const PcdHeader header = ReadPcdHeader(stream.Peek(), file, size);
            return header.eData != EPcdData::Compressed && !header.IsImage();
        }
    } catch (const CInputError&) {
        return false; // who reads it for good says why not
    }
    return ending == ".las" || ending == ".pts" || ending == ".xyz" || ending == ".xyzn";
}

ThinnedScan ReadThinned(const std::filesystem::path& file, const ThinLimits& limits, const Hooks& hooks)
{
    CThinnedCloud cloud(limits.uiMostPoints);
    try {
        CMoveStream stream(file, &cloud, hooks);
        MoveAnyFormat(stream, CMovement(FramePose{}));
    } catch (const Stopped&) {
        throw CInputError(file, "stopped while it was read", "call again");
    }
    hooks.Finish();
    ThinnedScan thinned{{}, cloud.NumTaken(), cloud.NumNotFinite(), cloud.GetCell()};
    thinned.scan = cloud.ToScan();
    if (thinned.scan.points.empty()) throw CInputError(file, "holds no point", "give a scan of a surface");
    return thinned;
}

} // namespace Zorvan
