// SPDX-License-Identifier: MIT
#include "documents.h"
#include "interpreter.h"
#include "modules.h"
#include "scans.h"

#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/sharedshift.h"
#include "zorvan/util/version.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/registerscans.h"
#include "zorvan/workflow/report.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace bindings {

namespace {

using Path = std::filesystem::path;
using Surfels = std::vector<Zorvan::SurfelScan>;
using Scheduler = std::shared_ptr<Zorvan::CJobScheduler>;

/// Leaves a value with threads to the process that made it: a child has none of them, and would wait for their end for
/// good.
template <typename T>
std::shared_ptr<T> OfThisProcess(T value)
{
    return {new T(std::move(value)), [pid = ::getpid()](T* made) {
                if (::getpid() == pid) delete made;
            }};
}

/// A session and what runs its jobs. Never changed: who goes on works with a copy.
struct SavedSession
{
    Scheduler scheduler; ///< outlives the session
    prereg::CSession session;
    pid_t pid = ::getpid();
};

using SessionPtr = std::shared_ptr<SavedSession>;

/// A registration as Python sees it; lengths come out in the unit of the scans.
struct Registration
{
    prereg::RegisterResult result;
    pid_t pid = ::getpid();

    [[nodiscard]] double Unit() const { return result.table.dMmPerUnit; }
};

SessionPtr loadSession(const Path& file, const py::object& threads)
{
    auto scheduler = std::make_shared<Zorvan::CJobScheduler>(ThreadsOf(threads));
    return WithoutLock([&] {
        prereg::CSession session = prereg::CSession::Load(file, scheduler->CreateJobGroup({}, {}));
        return OfThisProcess(SavedSession{scheduler, std::move(session)});
    });
}

void requireNames(const std::vector<ScanPtr>& scans, const prereg::CSession* session)
{
    std::set<std::string> names;
    for (const ScanPtr& scan : scans) {
        const std::string name = scan->surfels.file.filename().string();
        if (!names.insert(name).second || (session != nullptr && session->Contains(name)))
            throw py::value_error("two scans are named " + name + ", and poses are found by name; rename one of them");
    }
}

/// One a scan, without a pose where none is given.
std::vector<Zorvan::ScanPose> startsOf(const py::object& starts, const Surfels& scans, double mmPerUnit)
{
    std::vector<Zorvan::ScanPose> poses(scans.size());
    if (starts.is_none()) return poses;
    const auto byName = starts.cast<py::dict>();
    std::size_t found = 0;
    for (std::size_t i = 0; i < scans.size(); ++i) {
        const py::str name(scans[i].file.filename().string());
        if (!byName.contains(name)) continue;
        poses[i] = PoseOf(byName[name], "start", mmPerUnit);
        ++found;
    }
    if (found != byName.size()) throw py::value_error("start: has a pose of a scan that is not there");
    return poses;
}

/// Gives the start poses to the options, and the shift of their frame.
void setStarts(prereg::RegisterOptions& options, const Surfels& scans, const std::vector<Zorvan::ScanPose>& starts,
               const SavedSession* session)
{
    if (scans.empty()) return;
    std::vector<const Zorvan::ScanPose*> known;
    known.reserve(starts.size());
    for (const Zorvan::ScanPose& start : starts) known.push_back(&start);
    options.frameShift =
        session != nullptr ? session->session.GetShift() : Zorvan::FrameShiftFor(scans, known, scans.front().shift);
    for (std::size_t i = 0; i < scans.size(); ++i)
        options.startPoses.push_back(AboutShifts(starts[i], scans[i].shift, *options.frameShift));
}

prereg::RegisterOptions optionsOf(double mmPerUnit, const py::kwargs& how)
{
    prereg::RegisterOptions options;
    options.dMmPerUnit = mmPerUnit;
    options.isOptimized = py::bool_(how["optimize"]);
    if (!how["weighed"].is_none()) options.isWeighed = how["weighed"].cast<bool>();
    options.isKeptGoing = py::bool_(how["keep_going"]);
    options.uiNumTasks = ThreadsOf(how["threads"]);
    if (const auto grid = LengthOf(how["grid"], "grid")) options.dGrid = *grid * mmPerUnit;
    options.settings = SettingsOf(how["settings"]);
    options.stamp = prereg::StampNow(std::string("zorvan for Python ") + Zorvan::Version());
    return options;
}

double unitOf(const std::vector<ScanPtr>& scans, const SavedSession* session)
{
    for (const ScanPtr& scan : scans) static_cast<void>(CommonUnit(*scans.front(), *scan));
    if (scans.empty()) return session != nullptr ? session->session.GetMmPerUnit() : 1.0;
    return scans.front()->dMmPerUnit;
}

std::shared_ptr<Registration> registerScans(const std::vector<ScanPtr>& scans, const SavedSession* session,
                                            const py::object& progress, const py::object& stop, const py::kwargs& how)
{
    if (session != nullptr && (!how["grid"].is_none() || !how["settings"].is_none()))
        throw py::value_error("grid and settings: a session keeps those that it began with");
    if (session != nullptr && session->pid != ::getpid())
        throw py::value_error("session: another process has made it; save it there, and load it here");
    requireNames(scans, session != nullptr ? &session->session : nullptr);
    const double mmPerUnit = unitOf(scans, session);
    prereg::RegisterOptions options = optionsOf(mmPerUnit, how);
    const Zorvan::Position known = session != nullptr ? session->session.GetSharedShift() : Zorvan::Position{};
    Surfels surfels;
    for (const ScanPtr& scan : AboutOneShift(scans, known)) surfels.push_back(scan->surfels);
    setStarts(options, surfels, startsOf(how["start"], surfels, mmPerUnit), session);
    CLongCall call(progress, stop);
    return OfThisProcess(Registration{call.Run([&](const Zorvan::Hooks& hooks) {
        if (session == nullptr) return prereg::RegisterScans(surfels, options, hooks);
        return prereg::RegisterScans(session->scheduler, session->session, surfels, options, hooks);
    })});
}

/// Between the coordinates of the scan and of its cluster as the caller has them.
py::object poseOf(const Registration& registration, const prereg::ScanRow& scan)
{
    return ToPython(scan.pose, registration.Unit(), scan.shift, registration.result.table.shift);
}

py::dict posesOf(const Registration& registration)
{
    py::dict poses;
    for (const prereg::ScanRow& scan : registration.result.table.scans)
        poses[py::str(scan.file)] = poseOf(registration, scan);
    return poses;
}

/// Names by cluster, the largest first, and inside one as they came.
std::vector<std::vector<std::string>> clustersOf(const Registration& registration)
{
    std::vector<std::vector<std::string>> clusters;
    std::vector<std::string> ids;
    for (const prereg::ScanRow& scan : registration.result.table.scans) {
        const auto known = std::find(ids.begin(), ids.end(), scan.cluster);
        const auto index = static_cast<std::size_t>(known - ids.begin());
        if (known == ids.end()) {
            ids.push_back(scan.cluster);
            clusters.emplace_back();
        }
        clusters[index].push_back(scan.file);
    }
    std::stable_sort(clusters.begin(), clusters.end(),
                     [](const auto& a, const auto& b) { return a.size() > b.size(); });
    return clusters;
}

py::list tableOf(const Registration& registration)
{
    py::list rows;
    for (const prereg::ScanRow& scan : registration.result.table.scans) {
        py::dict row;
        row["name"] = scan.file;
        row["id"] = scan.id;
        row["cluster"] = scan.cluster;
        row["pose"] = poseOf(registration, scan);
        row["points"] = scan.uiPoints;
        row["overlap"] = scan.dOverlap;
        row["rmse"] = scan.dRmse / registration.Unit();
        row["slip"] = scan.dSlip / registration.Unit();
        row["verdict"] = scan.verdict;
        row["placed"] = scan.isPlaced;
        rows.append(row);
    }
    return rows;
}

py::list pairsOf(const Registration& registration)
{
    const prereg::RegistrationTable& table = registration.result.table;
    py::list rows;
    for (const prereg::PairRow& pair : table.pairs) {
        py::dict row;
        row["a"] = table.scans[pair.a].file;
        row["b"] = table.scans[pair.b].file;
        row["overlap"] = pair.dOverlap;
        row["rmse"] = pair.dRmse / registration.Unit();
        rows.append(row);
    }
    return rows;
}

/// A place in a cluster, as its points come out.
py::array placeOf(const Registration& registration, const kdtree::Vector<3>& point)
{
    std::vector<double> place;
    for (unsigned k = 0; k < 3; ++k)
        place.push_back((static_cast<double>(point[k]) + registration.result.table.shift[k]) / registration.Unit());
    return Owned(std::move(place), {3});
}

py::list sightsOf(const Registration& registration, const prereg::DisputeRow& dispute)
{
    const auto showsOf = [&](std::size_t scan) {
        if (std::ranges::find(dispute.showing, scan) != dispute.showing.end()) return "surface";
        return std::ranges::find(dispute.lacking, scan) != dispute.lacking.end() ? "hole" : "unclear";
    };
    py::list rows;
    for (const prereg::SightRow& sight : dispute.sights) {
        const prereg::ScanRow& scan = registration.result.table.scans[sight.scan];
        py::dict row;
        row["name"] = scan.file;
        row["shows"] = showsOf(sight.scan);
        row["surface"] = sight.uiSurface;
        row["open"] = sight.uiOpen;
        row["through"] = sight.uiThrough;
        row["cluster"] = scan.cluster;
        row["at"] = placeOf(registration, sight.at);
        row["verdict"] = scan.verdict;
        row["placed"] = scan.isPlaced;
        rows.append(row);
    }
    return rows;
}

py::list disputesOf(const Registration& registration)
{
    const prereg::RegistrationTable& table = registration.result.table;
    const auto namesOf = [&](const std::vector<std::size_t>& scans) {
        std::vector<std::string> names;
        names.reserve(scans.size());
        for (const std::size_t i : scans) names.push_back(table.scans[i].file);
        return names;
    };
    py::list rows;
    for (const prereg::DisputeRow& dispute : table.disputes) {
        py::dict row;
        row["showing"] = namesOf(dispute.showing);
        row["lacking"] = namesOf(dispute.lacking);
        row["unclear"] = namesOf(dispute.unclear);
        row["left_out"] = namesOf(dispute.leftOut);
        row["width"] = dispute.dWidth / registration.Unit();
        row["at"] = py::dict(py::arg("showing") = placeOf(registration, dispute.atShowing),
                             py::arg("lacking") = placeOf(registration, dispute.atLacking));
        row["samples"] = dispute.uiSamples;
        row["sights"] = sightsOf(registration, dispute);
        row["words"] = prereg::ToText(dispute, table);
        rows.append(row);
    }
    return rows;
}

void writeReport(const Registration& registration, const Path& file)
{
    const prereg::CSession& session = registration.result.session;
    std::vector<std::shared_ptr<const prereg::CFPFHPointSet>> sets;
    std::vector<prereg::SurfelSpan> surfaces;
    for (const prereg::CSession::ScanFile& scan : session.GetFiles()) {
        sets.push_back(session.GetRegistration().GetPointSetAndTransform(scan.id).first);
        surfaces.push_back({sets.back()->GetPoints(), sets.back()->GetNormals()});
    }
    prereg::WriteReport(file, registration.result.table, surfaces);
}

/// The points of a scan as the registration keeps them, and their normals.
py::tuple surfaceOf(const Registration& registration, const std::string& name)
{
    const prereg::CSession& session = registration.result.session;
    for (const prereg::CSession::ScanFile& scan : session.GetFiles()) {
        if (scan.name != name) continue;
        using Set = std::shared_ptr<const prereg::CFPFHPointSet>;
        auto* const set = new Set(session.GetRegistration().GetPointSetAndTransform(scan.id).first);
        const py::capsule owner(set, [](void* p) { delete static_cast<Set*>(p); });
        return py::make_tuple(PointsOf((*set)->GetPoints(), scan.shift, owner), ViewOf((*set)->GetNormals(), owner));
    }
    throw py::key_error(name);
}

} // namespace

void AddRegister(py::module_& module)
{
    py::class_<SavedSession, SessionPtr>(
        module, "Session",
        "A registration that goes on: scans with their places and all that was found out about them. "
        "Immutable.")
        .def_static("load", &loadSession, py::arg("file"), py::arg("threads") = 1,
                    "A session.zdoc that `zorvan register` or `Registration.save` has written.")
        .def(
            "save",
            [](const SavedSession& s, const Path& file) {
                WithoutLock([&] {
                    s.session.Save(file);
                    return 0;
                });
            },
            py::arg("file"), "Whole or not at all.")
        .def_property_readonly("mm_per_unit", [](const SavedSession& s) { return s.session.GetMmPerUnit(); })
        .def_property_readonly("names",
                               [](const SavedSession& s) {
                                   std::vector<std::string> names;
                                   for (const auto& file : s.session.GetFiles()) names.push_back(file.name);
                                   return names;
                               })
        .def("__len__", [](const SavedSession& s) { return s.session.GetFiles().size(); });

    py::class_<Registration, std::shared_ptr<Registration>>(
        module, "Registration",
        "Scans in clusters, each with a frame of its own. True when all came in and lie in one frame. "
        "Lengths are in\nthe unit of the scans.")
        .def_property_readonly("poses", &posesOf,
                               "By name, (4, 4) float64, scan to cluster coordinates: p_cluster = pose @ p_scan; None "
                               "without a place.")
        .def_property_readonly("clusters", &clustersOf, "Lists of names, the largest first.")
        .def_property_readonly("table", &tableOf,
                               "A dict a scan: name, id, cluster, pose, points, overlap, rmse, slip, verdict, placed.")
        .def_property_readonly("pairs", &pairsOf, "A dict a pair that overlaps: a, b, overlap, rmse.")
        .def_property_readonly(
            "disputes", &disputesOf,
            "A dict a spot that scans were divided about, since they are of objects that differ there.\n"
            "showing, lacking, unclear: names of scans, by what they show of it. left_out: of those that may be of\n"
            "any of the objects. width. at: its middle, a dict of (3,) float64: \"showing\" in the cluster of the\n"
            "first scan that shows it, \"lacking\" in that of the first that lacks it. samples: that each scan was\n"
            "asked about. words: for people. sights: a dict a scan that sees something of it: name;\n"
            "shows, \"surface\", \"hole\" or \"unclear\"; of how many samples it has surface, open, and looked\n"
            "through; and what became of it: cluster, at (the middle there), placed, verdict.")
        .def_property_readonly(
            "session",
            [](const Registration& r) {
                return OfThisProcess(SavedSession{r.result.scheduler, r.result.session, r.pid});
            },
            "To go on with: register(more, session=...).")
        .def_property_readonly(
            "left_out", [](const Registration& r) { return r.result.leftOut; },
            "For people: which scans did not come in, and why.")
        .def_property_readonly(
            "words",
            [](const Registration& r) {
                return std::vector<std::string>{r.result.settingsWords, r.result.times};
            },
            "For people: what was chosen, what it took.")
        .def_property_readonly(
            "stopped", [](const Registration& r) { return r.result.isStopped; },
            "By Ctrl-C or `stop`; this is what was found until then, and scans of objects that differ may still\n"
            "lie in one cluster.")
        .def("surface", &surfaceOf, py::arg("name"),
             "Points and normals of a scan as the registration keeps them, thinned: (N, 3) float32, mm, read-only;\n"
             "points far from the origin are float64.")
        .def("report", &writeReport, py::arg("file"), "Writes the page to look at: one HTML file.")
        .def(
            "save",
            [](const Registration& r, const Path& file) {
                WithoutLock([&] {
                    r.result.session.Save(file);
                    return 0;
                });
            },
            py::arg("file"), "Writes the session, whole or not at all.")
        .def(
            "write",
            [](const Registration& r, const Path& folder) {
                WithoutLock([&] {
                    std::filesystem::create_directories(folder);
                    prereg::WriteRegistration(folder, r.result.session, r.result.table);
                    return 0;
                });
            },
            py::arg("folder"),
            "Writes poses.json, merged.ply, report.html and session.zdoc, as `zorvan register -o` does.")
        .def("__bool__", [](const Registration& r) { return r.result.IsOneCluster() && !r.result.isStopped; })
        .def("__str__", [](const Registration& r) { return prereg::ToText(r.result.table); })
        .def("__repr__", [](const Registration& r) {
            return "<zorvan.Registration of " + std::to_string(r.result.table.scans.size()) + " scans in " +
                   std::to_string(clustersOf(r).size()) + " clusters>";
        });
    module.def("_register", &registerScans, py::arg("scans"), py::arg("session"), py::arg("progress"), py::arg("stop"));
}

} // namespace bindings
