// SPDX-License-Identifier: MIT
#include "zorvan/scans/movescan.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/movestream.h"
#include "zorvan/scans/newfile.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/stagingfolder.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>

namespace Zorvan {

namespace {

std::string lowerEnding(const std::filesystem::path& file)
{
    std::string ending = file.extension().string();
    std::ranges::transform(ending, ending.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ending;
}

std::string move(CMoveStream& stream, const CMovement& movement, const CNewFile& to)
{
    const std::string ending = lowerEnding(stream.File());
    if (ending == ".las" || ending == ".laz") return MoveLas(stream, movement, to);
    using Mover = std::string (*)(CMoveStream&, const CMovement&);
    constexpr std::array<std::pair<std::string_view, Mover>, 9> movers{{{".ply", MovePly},
                                                                        {".pcd", MovePcd},
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

MoveResult moveFile(const std::filesystem::path& from, const std::filesystem::path& to, const CMovement& movement,
                    const Hooks& hooks)
{
    RequireApart(to, {from.string()});
    RequireReplaceable(to);
    CStagingFolder staging(to.parent_path());
    CNewFile written(staging / to.filename());
    try {
        CMoveStream stream(from, written, hooks);
        MoveResult result{false, move(stream, movement, written)};
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
