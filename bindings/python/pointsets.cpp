// SPDX-License-Identifier: MIT
#include "documents.h"
#include "interpreter.h"
#include "modules.h"
#include "scans.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/preregistration/settingsserialization.h"
#include "zorvan/verdict/scansampling.h"
#include "zorvan/workflow/align.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/featureset.h"
#include "zorvan/workflow/settingsfile.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace bindings {

namespace {

using Tree = Zorvan::TKdTree<3, 48>;

/// A tree and the arrays that its answers become.
struct Neighbours
{
    std::vector<std::int64_t> indices;
    std::vector<float> distances;

    [[nodiscard]] py::tuple ToPython(const std::vector<py::ssize_t>& shape)
    {
        return py::make_tuple(Owned(std::move(indices), shape), Owned(std::move(distances), shape));
    }
};

float radiusSq(double radius)
{
    if (!(radius > 0.0)) throw py::value_error("radius: needs a positive length");
    return Zorvan::ToFloat(radius * radius);
}

std::shared_ptr<Tree> makeTree(const py::object& points)
{
    const CVectorsIn in(points, "points");
    return WithoutLock([&] { return std::make_shared<Tree>(in.Data(), in.Size()); });
}

py::tuple findNearest(const Tree& tree, const py::object& queries, double radius)
{
    const CVectorsIn in(queries, "queries");
    const float limit = radiusSq(radius);
    Neighbours found = WithoutLock([&] {
        Neighbours answer;
        for (const Vector3& point : in.Span()) {
            Zorvan::NearestQuery query{point, -1, limit};
            if (point.IsFinite()) tree.FindNearest(query);
            answer.indices.push_back(query.index);
            answer.distances.push_back(query.index < 0 ? std::numeric_limits<float>::infinity()
                                                       : std::sqrt(query.distSq));
        }
        return answer;
    });
    return found.ToPython({static_cast<py::ssize_t>(in.Size())});
}

py::array findInBall(const Tree& tree, const py::object& center, double radius)
{
    const kdtree::Ball<3> ball{VectorOf(center, "center"), radiusSq(radius)};
    std::vector<unsigned> found;
    tree.FindInBall(found, ball);
    const auto size = static_cast<py::ssize_t>(found.size());
    return Owned(std::vector<std::int64_t>(found.begin(), found.end()), {size});
}

using PointSetPtr = std::shared_ptr<const prereg::CPointSet>;

PointSetPtr makePointSet(const py::object& points, const py::object& normals)
{
    const CVectorsIn p(points, "points");
    const CVectorsIn n(normals, "normals");
    if (p.Size() != n.Size())
        throw py::value_error("normals: needs one a point, " + std::to_string(p.Size()) + ", not " +
                              std::to_string(n.Size()));
    return WithoutLock(
        [&]() -> PointSetPtr { return std::make_shared<prereg::CPointSet>(p.Data(), n.Data(), p.Size()); });
}

py::tuple boxOf(const prereg::CPointSet& set)
{
    const auto [low, high] = set.GetAABB();
    return py::make_tuple(Owned(std::vector<float>{low.x, low.y, low.z}, {3}),
                          Owned(std::vector<float>{high.x, high.y, high.z}, {3}));
}

py::dict samplingOf(const prereg::CPointSet& set)
{
    const prereg::ScanSampling sampling =
        WithoutLock([&] { return prereg::MeasureSampling(set.GetPoints(), set.GetKdTree()); });
    py::dict dict;
    dict["spacing"] = sampling.dSpacing;
    dict["noise"] = sampling.dNoise;
    return dict;
}

py::array signedDistances(const prereg::CPointSet& set, const py::object& points, double radius)
{
    const CVectorsIn in(points, "points");
    static_cast<void>(radiusSq(radius));
    auto distances = WithoutLock([&] {
        std::vector<float> answer;
        for (const Vector3& p : in.Span()) answer.push_back(set.SignedDistance(p, Zorvan::ToFloat(radius)));
        return answer;
    });
    return Owned(std::move(distances), {static_cast<py::ssize_t>(in.Size())});
}

/// ICP from a pose that is near.
py::dict icp(const PointSetPtr& fix, const PointSetPtr& flt, const py::object& start, const py::object& grid,
             const py::object& settings, std::uint32_t seed)
{
    const prereg::CTrafo initial = PoseOf(start, "start", 1.0).pose;
    prereg::AutoSettings chosen =
        prereg::ChooseSettings(*fix, grid.is_none() ? std::nullopt : std::optional(UnitOf(grid.cast<double>())));
    const prereg::ConfigurationICP config =
        prereg::WithSettings(prereg::AllSettingsForGrid(chosen.dGrid), SettingsOf(settings)).icpConfig;
    std::mt19937 rng(seed);
    const prereg::ICPResult result =
        WithoutLock([&] { return fix->ComputeICPRegistration(config, rng, *flt, initial, nullptr, false); });
    const Zorvan::RegistrationSummary summary = prereg::Summarize(result);
    py::dict dict;
    dict["success"] = static_cast<bool>(result);
    dict["text"] = summary.text;
    dict["pose"] = ToPython(result.GetTrafo(), 1.0);
    dict["rmse"] = summary.dRmse;
    dict["overlap"] = summary.dOverlap;
    dict["slip"] = summary.dSlip;
    dict["iterations"] = result.iStop_Iterations;
    return dict;
}

/// Feature points, their normals and histograms.
py::tuple features(const std::shared_ptr<const ReadyScan>& scan, const py::object& grid, const py::object& settings,
                   const py::object& threads)
{
    const bson::object changes = SettingsOf(settings);
    std::optional<double> wanted = LengthOf(grid, "grid");
    if (wanted) *wanted *= scan->dMmPerUnit;
    const unsigned numTasks = ThreadsOf(threads);
    const auto set = WithoutLock([&] {
        const Zorvan::SurfelScan& surfels = scan->surfels;
        const prereg::CPointSet points(surfels.points.data(), surfels.normals.data(), surfels.points.size());
        const double size = prereg::ChooseSettings(points, wanted).dGrid;
        return prereg::ComputeFeatureSet(surfels, prereg::WithSettings(prereg::AllSettingsForGrid(size), changes),
                                         numTasks, scan->dMmPerUnit);
    });
    std::vector<float> histograms;
    for (const prereg::CPointFeatureHistogram& feature : set->GetFeatures())
        histograms.insert(histograms.end(), feature.AsArray().begin(), feature.AsArray().end());
    const auto numFeatures = static_cast<py::ssize_t>(set->SizeFeatures());
    const py::capsule owner(new std::shared_ptr<const prereg::CFPFHPointSet>(set),
                            [](void* p) { delete static_cast<std::shared_ptr<const prereg::CFPFHPointSet>*>(p); });
    return py::make_tuple(PointsOf({set->GetFeaturePoints().data(), set->SizeFeatures()}, scan->surfels.shift, owner),
                          ViewOf({set->GetFeatureNormals().data(), set->SizeFeatures()}, owner),
                          Owned(std::move(histograms), {numFeatures, 33}));
}

} // namespace

void AddPointSets(py::module_& module)
{
    py::class_<Tree, std::shared_ptr<Tree>>(
        module, "KdTree", "A search tree over a copy of points. Points that are not finite are left out.")
        .def(py::init(&makeTree), py::arg("points"), "points: (N, 3) or (N, 4), as everywhere.")
        .def(
            "nearest", &findNearest, py::arg("queries"), py::arg("radius"),
            "Index and distance of the nearest point nearer than `radius` to each query: (M,) int64 and (M,) float32;\n"
            "-1 and infinity where there is none.")
        .def("in_ball", &findInBall, py::arg("center"), py::arg("radius"),
             "Indices of the points within `radius` of a place: (K,) int64, in tree order.")
        .def("__len__", &Tree::Size);

    py::class_<prereg::CPointSet, std::shared_ptr<prereg::CPointSet>>(
        module, "PointSet", "Points (mm) with a normal each and a search tree; immutable, for any thread.")
        .def(py::init([](const py::object& points, const py::object& normals) {
                 return std::const_pointer_cast<prereg::CPointSet>(makePointSet(points, normals));
             }),
             py::arg("points"), py::arg("normals"), "Both (N, 3) or (N, 4); normals of unit length.")
        .def_property_readonly(
            "points",
            [](const py::object& self) { return ViewOf(self.cast<const prereg::CPointSet&>().GetPoints(), self); },
            "(N, 3) float32, read-only.")
        .def_property_readonly(
            "normals",
            [](const py::object& self) { return ViewOf(self.cast<const prereg::CPointSet&>().GetNormals(), self); },
            "(N, 3) float32, read-only.")
        .def_property_readonly("box", &boxOf, "Low and high corner of the finite points: (3,) float32 each.")
        .def_property_readonly("sampling", &samplingOf,
                               "A dict: spacing, the median distance to the nearest neighbour, and noise, the standard "
                               "deviation about local quadrics; mm.")
        .def("signed_distance", &signedDistances, py::arg("points"), py::arg("radius"),
             "Distance of each point along the normal of the nearest one, positive outside: (M,) float32; NaN beyond "
             "`radius`.")
        .def("__len__", &prereg::CPointSet::Size);

    module.def(
        "icp", &icp, py::arg("fix"), py::arg("flt"), py::arg("start"), py::kw_only(), py::arg("grid") = py::none(),
        py::arg("settings") = py::none(), py::arg("seed") = 47110815,
        "Refines a rough pose of one PointSet in the frame of another: a dict of success, text, pose (4, 4), rmse,\n"
        "overlap, slip (mm) and iterations. It is no verdict: for that see judge.");
    module.def("_features", &features, py::arg("scan"), py::arg("grid"), py::arg("settings"), py::arg("threads"));
}

} // namespace bindings
