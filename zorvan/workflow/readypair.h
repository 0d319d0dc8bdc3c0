// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/scanreader.h"
#include "zorvan/verdict/cscanview.h"
#include "zorvan/workflow/align.h"
#include "zorvan/workflow/autosettings.h"

#include <memory>
#include <string>

namespace prereg {

/// Two scans as registration wants them: a model is a surface sampled by area, one point per square of the grid, and
/// has no sensor; of a spinning lidar it is the surface between its rings, in equal steps. The grid comes from the
/// scan, of two scans from the fixed one. Not installed.
class CReadyPair
{
public:
    /// The scans must outlive it.
    CReadyPair(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt, const AlignOptions& options);

    [[nodiscard]] const Zorvan::SurfelScan& GetFix() const { return m_fix.Get(); }
    [[nodiscard]] const Zorvan::SurfelScan& GetFlt() const { return m_flt.Get(); }
    [[nodiscard]] const CPointSet& GetFixSet() const { return *m_fix.set; }
    [[nodiscard]] const CPointSet& GetFltSet() const { return *m_flt.set; }
    [[nodiscard]] const std::shared_ptr<const CScanView>& GetFixView() const { return m_fix.view; }
    [[nodiscard]] const std::shared_ptr<const CScanView>& GetFltView() const { return m_flt.view; }
    [[nodiscard]] const AutoSettings& GetSettings() const { return m_settings; }
    /// For people, of each model and each scan on rings: its name and how many points stand for it. Else empty.
    [[nodiscard]] const std::string& GetWords() const { return m_words; }

private:
    struct Side
    {
        const Zorvan::SurfelScan* scan;
        SensorKnowledge sensor;
        Zorvan::SurfelScan sampled = {}; ///< of a model, or of the surface between the rings of a spinning sensor
        std::unique_ptr<CPointSet> set = {};
        std::shared_ptr<const CScanView> view = {};
        std::string words = {}; ///< see GetWords

        [[nodiscard]] bool IsModel() const { return !scan->model.faces.empty(); }
        [[nodiscard]] const Zorvan::SurfelScan& Get() const { return sampled.points.empty() ? *scan : sampled; }
        void MakeSet();
        void MakeView() { view = std::make_shared<const CScanView>(*set, sensor); }
        /// Of a model that is still to be sampled nothing.
        [[nodiscard]] ScanSampling GetSampling() const { return view ? view->GetSampling() : ScanSampling{}; }
    };

    void sample(Side& side);
    static void sampleRings(Side& side);

    Side m_fix;
    Side m_flt;
    AutoSettings m_settings;
    std::string m_words;
};

} // namespace prereg
