// SPDX-License-Identifier: MIT
#pragma once

#include "raytracing.h"
#include "sensoreffects.h"
#include "viewpoints.h"
#include "virtualobject.h"

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace tools {

struct VirtualScannerSettings
{
    unsigned uiSeed = 1;
    unsigned uiNumViews = 6;
    double dNoise = 0.01;        ///< standard deviation along the ray, mm
    double dPixelSpacing = 0.12; ///< mm; of a lidar along its rings
    double dFieldOfView = 40.0;  ///< width and height of a view of a jaw, mm; others are seen whole
    bool isVideo = false;        ///< of a jaw: frames of one sweep along it instead of views of their own
    unsigned uiNumThreads = 1;   ///< does not change the result
};

/// What one view of the scanner saw. The scan lies in the frame of the sensor, which looks along -z: points (mm),
/// normals from the faces, faces between neighbouring pixels. Rings have points only, and z is the axis of the spin.
struct VirtualScan
{
    Zorvan::Scan scan;
    prereg::CTrafo pose; ///< scan to object coordinates, the truth
};

/// A depth camera with parallel rays that looks at a `CVirtualJaw` from several places along its arch, at patches of
/// any object, or at it from all around, and then with the effects of other sensors. Noise lies along the rays; pixels
/// on steep places (beyond 75 degrees) and at steps in depth stay empty, and for a jaw some small random holes.
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
    /// Looks at a jaw of the seed along its arch.
    explicit CVirtualScanner(const VirtualScannerSettings& settings);
    /// Looks at an object from all around; a lidar walks around it.
    CVirtualScanner(std::shared_ptr<const AVirtualObject> object, const SensorEffects& effects,
                    const VirtualScannerSettings& settings, EDirections directions = EDirections::Fibonacci);
    /// Looks at a jaw of the seed along its arch, with the effects of a sensor that takes images. Its holes are those
    /// of the effects, when they have any. @throws std::invalid_argument for rings
    CVirtualScanner(const SensorEffects& effects, const VirtualScannerSettings& settings);
    /// Looks at patches of an object as at those of a jaw.
    /// @param views  sensor to object coordinates, as many as the settings say
    CVirtualScanner(std::shared_ptr<const AVirtualObject> object, std::vector<prereg::CTrafo> views,
                    const SensorEffects& effects, const VirtualScannerSettings& settings);

    [[nodiscard]] const AVirtualObject& GetObject() const { return *m_object; }
    [[nodiscard]] const VirtualScannerSettings& GetSettings() const { return m_settings; }
    /// Scan to object coordinates of a view.
    [[nodiscard]] prereg::CTrafo GetPose(unsigned view) const;
    [[nodiscard]] VirtualScan Render(unsigned view) const;

    /// Pixel spacing (mm) at which a view has about `uiNumPoints` points in the mean over all views; not for rings.
    [[nodiscard]] double FindSpacing(std::size_t uiNumPoints) const;

private:
    [[nodiscard]] DepthMap traceAll(unsigned view, double spacing) const;
    [[nodiscard]] std::vector<bool> findHoles(unsigned view, const DepthMap& map) const;
    [[nodiscard]] Zorvan::Scan renderRings(unsigned view) const;
    [[nodiscard]] Zorvan::Scan assemble(unsigned view, const DepthMap& map) const;
    void turnFromRays(Zorvan::Scan& scan) const;

    VirtualScannerSettings m_settings;
    SensorEffects m_effects;
    std::shared_ptr<const AVirtualObject> m_object;
    RayBundle m_rays;
    std::vector<prereg::CTrafo> m_poses; ///< of the rays
};

/// The same poses, each turned by `dDegrees` about a random axis through `middle` and shifted by `dMm` in a random
/// direction; the first one, which gives the others their frame, stays.
/// @param middle  in the frame that the poses lead to
[[nodiscard]] std::vector<prereg::CTrafo> DisturbPoses(const std::vector<prereg::CTrafo>& poses,
                                                       const Zorvan::Vector3& middle, double dDegrees, double dMm,
                                                       unsigned uiSeed);

} // namespace tools
