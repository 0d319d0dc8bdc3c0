// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/verdict/posecovariance.h"
#include "zorvan/verdict/scansampling.h"

#include <cstddef>
#include <memory>
#include <span>

namespace prereg {

/// A scan, which has to outlive the call, and its pose in a common frame.
struct ScanInFrame
{
    const IPointSet* set = nullptr;
    CTrafo pose; ///< scan to common coordinates, optimised with the others
    ScanSampling sampling;
};

/// How well the poses of scans are known that were optimised together, and distances from one scan to another.
///
///     const CJointCovariance joint(scans, config.uiNumSamples, group);
///     const Matrix6 ofThird = joint.Of(2);
///     const double sigma = joint.DistanceDeviation(0, hole, 2, edge); // mm
///
/// The frame is that of the first scan, whose pose counts as exact; a distance does not depend on that. Points of all
/// pairs of scans that match are equations of one joint system with six unknowns a scan; a sparse factor solves it.
/// Their residuals hang together, by pairs that share a scan and by neighbours that share normals: so they are summed
/// over patches of the surface, of all pairs together, and patches count as independent (the sandwich estimate; K.-Y.
/// Liang and S. Zeger, Biometrika 73 (1986)). It sees what the residuals show: noise, and errors of the sensor that
/// differ from patch to patch; and what the draw of the optimisation adds. What all scans have in common, as a wrong
/// scale, it does not. Immutable, safe to use from any thread. Same input, same bytes for any number of threads.
class ZORVAN_API CJointCovariance
{
public:
    /// @param uiSamples  points that the optimisation draws of a pair, see ConfigurationICP: the fewer, the less it
    /// knows;
    ///                   0: it took all
    /// @param maySlide   there are plane faces: a motion that no surface holds is known as well as contradictions tell,
    ///                   to one and a half pixels, though the lean of noisy normals feigns that it is held
    /// @param group      where pairs are matched side by side; null: on this thread
    /// @throws std::invalid_argument for a scan without points or with an invalid pose
    explicit CJointCovariance(std::span<const ScanInFrame> scans, unsigned uiSamples = 0, bool maySlide = false,
                              const std::shared_ptr<Zorvan::CJobScheduler::Group>& group = nullptr);
    CJointCovariance(CJointCovariance&& other) noexcept;
    CJointCovariance& operator=(CJointCovariance&& other) noexcept;
    ~CJointCovariance();

    /// Matches link the scan with the first one, directly or along others.
    [[nodiscard]] bool IsKnown(std::size_t scan) const;
    /// Of the error of the pose as a small motion of the common frame, done after it: a rotation vector (radians) about
    /// `CentreOf`, then a shift (mm). Rotation first. Zeros for the first scan, NaN for one that is not known.
    [[nodiscard]] Matrix6 Of(std::size_t scan) const;
    /// Mean of the points, common coordinates, mm.
    [[nodiscard]] kdtree::Vector<3> CentreOf(std::size_t scan) const;
    /// Standard deviation (mm) of the distance between two points, each in the coordinates of its scan; what their own
    /// noise adds is not in it. 0 within one scan, NaN where one is not known or the points are the same.
    [[nodiscard]] double DistanceDeviation(std::size_t scanA, const kdtree::Vector<3>& pointA, std::size_t scanB,
                                           const kdtree::Vector<3>& pointB) const;

private:
    struct System;

    std::unique_ptr<const System> m_system;
};

} // namespace prereg
