// SPDX-License-Identifier: MIT
#include "frames.h"

#include "tools/virtualscanner/virtualscanner.h"

#include <algorithm>
#include <utility>

namespace live {

namespace {

constexpr float fRowShift = 100.0F; // mm

tools::VirtualScannerSettings settings() { return {.uiSeed = 1, .uiNumViews = 6, .uiNumThreads = 2}; }

Frame frameOf(tools::VirtualScan scan)
{
    return {std::move(scan.scan.points), std::move(scan.scan.normals), scan.pose};
}

} // namespace

std::vector<Frame> MakeFrames(unsigned uiCount, unsigned uiJump)
{
    tools::VirtualScannerSettings video = settings();
    video.dFieldOfView = dField;
    video.isVideo = true;
    video.uiNumViews = uiCount;
    const tools::CVirtualScanner scanner(video);
    std::vector<Frame> frames;
    for (unsigned i = 0; i < uiCount; ++i) {
        const bool isBack = uiJump > 0 && i >= uiJump;
        frames.push_back(frameOf(scanner.Render(isBack ? i - std::min(uiJump, uiJumpBack) : i)));
    }
    return frames;
}

std::vector<Frame> MakeEarlierScans(std::size_t uiNumPoints)
{
    std::vector<Frame> scans;
    std::size_t numPoints = 0;
    for (unsigned row = 0; numPoints < uiNumPoints; ++row) {
        tools::VirtualScannerSettings views = settings();
        views.uiSeed += row;
        const tools::CVirtualScanner scanner(views);
        const kdtree::Vector<3> beside(static_cast<float>(row) * fRowShift, 0, 0);
        for (unsigned view = 0; view < views.uiNumViews; ++view) {
            scans.push_back(frameOf(scanner.Render(view)));
            prereg::CTrafo& pose = scans.back().truth;
            pose = prereg::CTrafo(pose.GetQuaternion(), pose.GetTranslation() + beside);
            numPoints += scans.back().points.size();
        }
    }
    return scans;
}

} // namespace live
