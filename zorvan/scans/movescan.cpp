// SPDX-License-Identifier: MIT
#include "zorvan/scans/movescan.h"

#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/movestream.h"
#include "zorvan/scans/newfile.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/stagingfolder.h"

#include <array>
#include <string_view>
#include <utility>

namespace Zorvan {

namespace {

MoveResult moveFile(const std::filesystem::path& from, const std::filesystem::path& to, const CMovement& movement,
                    const Hooks& hooks)
{
    RequireApart(to, {from.string()});
    RequireReplaceable(to);
    CStagingFolder staging(to.parent_path());
    CNewFile written(staging / to.filename());
    try {
        CMoveStream stream(from, written, hooks);
        MoveResult result{false, MoveAnyFormat(stream, movement)};
        stream.Flush();
        written.Close();
        staging.Publish();
        hooks.Finish();
        return result;
    } catch (const Stopped&) {
        hooks.Finish();
        return {true, {}};
    }
}

} // namespace

std::string MoveAnyFormat(CMoveStream& stream, const CMovement& movement)
{
    const std::string ending = EndingOf(stream.File());
    using Mover = std::string (*)(CMoveStream&, const CMovement&);
    constexpr std::array<std::pair<std::string_view, Mover>, 11> movers{{{".ply", MovePly},
                                                                         {".pcd", MovePcd},
                                                                         {".las", MoveLas},
                                                                         {".laz", MoveLas},
                                                                         {".stl", MoveStl},
                                                                         {".e57", MoveE57},
                                                                         {".ptx", MovePtx},
                                                                         {".pts", MovePts},
                                                                         {".xyz", MoveXyz},
                                                                         {".xyzn", MoveXyz},
                                                                         {".obj", MoveObj}}};
    for (const auto& [name, mover] : movers) {
        if (name == ending) return mover(stream, movement);
    }
    throw CInputError(stream.File(), "unknown kind of file", ReadFormats() + " are read");
}

MoveResult MoveScanFile(const std::filesystem::path& from, const std::filesystem::path& to, const FramePose& pose,
                        const Hooks& hooks)
{
    return moveFile(from, to, CMovement(pose), hooks);
}

MoveResult MoveScanFile(const std::filesystem::path& from, const std::filesystem::path& to,
                        const std::map<std::size_t, FramePose>& ofScans, const Hooks& hooks)
{
    return moveFile(from, to, CMovement(FramePose{}, ofScans), hooks);
}

} // namespace Zorvan
