#pragma once

#include "virtualjaw.h"

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <vector>

namespace tools {

struct VirtualScannerSettings
{
    unsigned uiSeed = 1;
    unsigned uiNumViews = 6;
    double dNoise = 0.01;        ///< standard deviation along the ray, mm
    double dPixelSpacing = 0.12; ///< mm
    double dFieldOfView = 40.0;  ///< width and height of a view, mm
    unsigned uiNumThreads = 1;   ///< does not change the result
};

/// What one view of the scanner saw. The scan lies in the frame of the sensor, which looks along -z: points (mm),
/// normals from the faces, faces between neighbouring pixels.
struct VirtualScan
{
    Zorvan::Scan scan;
    prereg::CTrafo pose; ///< sensor to object coordinates, the truth
};

/// A depth camera with parallel rays that looks at a `CVirtualJaw` from several places along its arch. Neighbouring
/// views share more than half of what they see. Noise lies along the rays; pixels on steep places (beyond 75 degrees),
/// at steps in depth and in some small random holes stay empty.
///
///     const tools::CVirtualScanner scanner({.uiSeed = 7, .uiNumViews = 2});
///     const tools::VirtualScan a = scanner.Render(0);
///     const tools::VirtualScan b = scanner.Render(1);
///     const prereg::CTrafo truth = a.pose.GetInverse(true) * b.pose; // b in the frame of a
///
/// The same settings give the same bytes, whatever the number of threads.
class CVirtualScanner
{
public:
    explicit CVirtualScanner(const VirtualScannerSettings& settings);

    [[nodiscard]] const CVirtualJaw& GetObject() const { return m_jaw; }
    [[nodiscard]] const VirtualScannerSettings& GetSettings() const { return m_settings; }
    /// Sensor to object coordinates of a view.
    [[nodiscard]] prereg::CTrafo GetPose(unsigned view) const { return m_poses[view]; }
    [[nodiscard]] VirtualScan Render(unsigned view) const;

    /// Pixel spacing (mm) at which a view has about `uiNumPoints` points in the mean over all views.
    [[nodiscard]] double FindSpacing(std::size_t uiNumPoints) const;

private:
    struct DepthMap;

    [[nodiscard]] DepthMap traceAll(unsigned view, double spacing) const;
    void traceRow(const prereg::CTrafo& pose, std::size_t row, DepthMap& map) const;
    [[nodiscard]] float trace(const Zorvan::Vector3& start, const Zorvan::Vector3& direction) const;
    [[nodiscard]] std::vector<bool> findHoles(unsigned view, const DepthMap& map) const;
    [[nodiscard]] VirtualScan assemble(unsigned view, const DepthMap& map) const;

    VirtualScannerSettings m_settings;
    CVirtualJaw m_jaw;
    std::vector<prereg::CTrafo> m_poses;
};

/// The same poses, each turned by `dDegrees` about a random axis through `middle` and shifted by `dMm` in a random
/// direction; the first one, which gives the others their frame, stays.
/// @param middle  in the frame that the poses lead to
[[nodiscard]] std::vector<prereg::CTrafo> DisturbPoses(const std::vector<prereg::CTrafo>& poses,
                                                       const Zorvan::Vector3& middle, double dDegrees, double dMm,
                                                       unsigned uiSeed);

} // namespace tools
