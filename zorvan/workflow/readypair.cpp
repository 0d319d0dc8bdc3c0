// SPDX-License-Identifier: MIT
#include "zorvan/workflow/readypair.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/meshsampling.h"
#include "zorvan/scans/ringsurface.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/spunsensor.h"
#include "zorvan/workflow/sensorbeside.h"

#include <array>
#include <cmath>
#include <utility>

namespace prereg {

namespace {

constexpr double dPointsOfModels = 30000; ///< of the fixed one, where no scan says how densely

/// Of two models.
AutoSettings settingsByArea(const Zorvan::Scan& model, const std::optional<double>& dGrid)
{
    const double area = Zorvan::SampleMesh(model, 1.0, 1).dArea;
    const double grid = dGrid.value_or(std::sqrt(area / dPointsOfModels));
    return {grid, dGrid ? "as asked for" : "30000 points on the fixed model", SettingsForGrid(grid)};
}

/// What the caller knows; else the place that the file states, or that rings show.
SensorKnowledge sensorOf(const Zorvan::SurfelScan& scan, const SensorKnowledge& known)
{
    if (known.isSurface || known.position || known.direction) return known;
    SensorKnowledge extended = known;
    extended.position = SensorBeside(scan);
    return extended;
}

} // namespace

void CReadyPair::Side::MakeSet()
{
    const Zorvan::SurfelScan& points = Get();
    set = std::make_unique<CPointSet>(points.points.data(), points.normals.data(), points.points.size());
}

CReadyPair::CReadyPair(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt, const AlignOptions& options)
    : m_fix{&fix, sensorOf(fix, options.fixSensor)}, m_flt{&flt, sensorOf(flt, options.fltSensor)}
{
    const std::array<Side*, 2> sides{&m_fix, &m_flt};
    Zorvan::ForEachTask(sides.size(), options.uiNumTasks, [&](std::size_t i) {
        if (sides[i]->IsModel()) return;
        sampleRings(*sides[i]);
        sides[i]->MakeView();
    });
    m_settings = m_fix.set || m_flt.set ? ChoosePairSettings(m_fix.set.get(), m_flt.set.get(), options.dGrid,
                                                             m_fix.GetSampling(), m_flt.GetSampling())
                                        : settingsByArea(fix.model, options.dGrid);
    for (Side* side : sides) {
        if (!side->IsModel()) continue;
        sample(*side);
        side->MakeView();
    }
    for (const Side* side : sides) m_words += (m_words.empty() || side->words.empty() ? "" : "; ") + side->words;
}

/// Along a ring points are dense and their noise large, across it they are sparse: the surface between the rings is
/// what a raster of any other sensor is. A scan with normals of its file is taken as it is.
void CReadyPair::sampleRings(Side& side)
{
    side.MakeSet();
    const Zorvan::SurfelScan& scan = *side.scan;
    if (scan.eNormals != Zorvan::ENormalSource::PlaneFit || !scan.sensor) return;
    if (!Zorvan::IsSpunAboutOrigin(scan.points, side.set->GetKdTree())) return;
    const auto rings = Zorvan::FindRings(scan.points, {});
    if (!rings) return;
    Zorvan::SurfaceSamples samples = Zorvan::CRingSurface(*rings).Sample();
    if (samples.points.size() < 3) return;
    side.sampled.file = scan.file;
    side.sampled.points = std::move(samples.points);
    side.sampled.normals = std::move(samples.normals);
    side.sampled.eNormals = scan.eNormals;
    side.sampled.shift = scan.shift;
    side.sampled.sensor = scan.sensor;
    side.sensor.isEven = true;
    side.words = Zorvan::ToShown(scan.file.filename().string()) + " lies on " + std::to_string(rings->rings.size()) +
                 " rings: " + std::to_string(side.sampled.points.size()) + " points of the surface between them";
    side.MakeSet();
}

void CReadyPair::sample(Side& side)
{
    Zorvan::MeshSamples samples = Zorvan::SampleMesh(side.scan->model, m_settings.dGrid);
    side.sampled.file = side.scan->file;
    side.sampled.points = std::move(samples.points);
    side.sampled.normals = std::move(samples.normals);
    side.sampled.eNormals = Zorvan::ENormalSource::Faces;
    if (side.sampled.points.size() < 3)
        throw Zorvan::CInputError(side.scan->file, "is a model smaller than the grid",
                                  "give both in the same unit, or a finer --grid");
    side.sensor = {.isSurface = true};
    side.MakeSet();
    side.words = Zorvan::ToShown(side.scan->file.filename().string()) +
                 " is a model: " + std::to_string(side.sampled.points.size()) + " points on its surface";
}

} // namespace prereg
