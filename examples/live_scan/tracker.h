// SPDX-License-Identifier: MIT
#pragma once

#include "model.h"

#include "zorvan/features/cfpfhdatasource.h"

#include <random>

namespace live {

/// Seconds of processor time of the scanning thread, stage by stage.
struct FrameTimes
{
    double dPlacing = 0.0;  ///< the frame on the patch
    double dFeatures = 0.0; ///< the grown patch into its data source
    double dUpdate = 0.0;   ///< the next surface to place on; at the end of a patch, its snapshot for the model
};

struct PlacedFrame
{
    FrameTimes times;
    prereg::CTrafo pose; ///< to the world, as far as it is known by now; else invalid
    bool isLost = false; ///< it fitted nowhere and began a patch that the model has to find a place for
};

/// Places each frame on the patch of surface that the last ones made, and grows that. After ten frames the patch goes
/// to the model, and the next one begins with the frame at hand. So a frame costs the same whatever the size of the
/// model, and what the model finds out corrects the poses of all later frames. Used by one thread.
class CTracker
{
public:
    CTracker(const prereg::ConfigurationFPFH& config, CModel& model);

    /// @param start  where the first frame is in the world
    PlacedFrame Take(const Frame& frame, const prereg::CTrafo& start);
    /// Gives what is left to the model.
    void Finish();

private:
    [[nodiscard]] prereg::CTrafo place(const Frame& frame);
    void begin(prereg::CTrafo toLast);
    void handOver();
    [[nodiscard]] prereg::CTrafo patchToWorld() const;

    prereg::ConfigurationFPFH m_config;
    CModel& m_model;
    std::mt19937 m_rng{47110815};
    prereg::CFPFHDataSource m_source;
    prereg::Vectors m_points; ///< of all frames of the patch, in its frame: that of its first one
    prereg::Vectors m_normals;
    std::unique_ptr<const prereg::CPointSet> m_surface;
    prereg::CTrafo m_last;            ///< pose of the last frame in the patch
    prereg::CTrafo m_step;            ///< from the last frame but one to the last
    prereg::CTrafo m_toPrevious;      ///< the patch in the frame of the one before; invalid: not known
    prereg::CTrafo m_previousToWorld; ///< as the tracker had it when it left that patch
    unsigned m_number = 0;            ///< of the patch
    unsigned m_numFrames = 0;
};

} // namespace live
