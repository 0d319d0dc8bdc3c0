// SPDX-License-Identifier: MIT
#include "documents.h"
#include "interpreter.h"
#include "modules.h"
#include "scans.h"

#include "zorvan/preregistration/settingsserialization.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/workflow/align.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bindings {

namespace {

/// A result with the scans that it speaks of. Lengths come out in their unit.
struct Alignment
{
    prereg::AlignResult result;
    ScanPtr fix;
    ScanPtr flt;

    [[nodiscard]] double Unit() const { return fix->dMmPerUnit; }
    [[nodiscard]] py::object Pose(const prereg::CTrafo& pose) const
    {
        return bindings::ToPython(pose, Unit(), flt->surfels.shift, fix->surfels.shift);
    }
};

prereg::SensorKnowledge knowledge(const py::object& sensor, const py::object& ray, const ReadyScan& scan,
                                  const char* name)
{
    prereg::SensorKnowledge known;
    if (!sensor.is_none()) {
        const Zorvan::Position at = PositionOf(sensor, name + std::string("_sensor"));
        known.position.emplace();
        for (unsigned k = 0; k < 3; ++k)
            (*known.position)[k] = Zorvan::ToFloat(at[k] * scan.dMmPerUnit - scan.surfels.shift[k]);
    }
    if (!ray.is_none()) known.direction = VectorOf(ray, name + std::string("_ray"));
    if (known.direction && !(known.direction->LengthSq() > 0.0F))
        throw py::value_error(name + std::string("_ray: a direction has a length"));
    return known;
}

/// What align and judge have in common.
prereg::AlignOptions optionsOf(const ReadyScan& fix, const ReadyScan& flt, const py::kwargs& how)
{
    prereg::AlignOptions options;
    options.dMmPerUnit = CommonUnit(fix, flt);
    if (const auto grid = LengthOf(how["grid"], "grid")) options.dGrid = *grid * options.dMmPerUnit;
    options.settings = SettingsOf(how["settings"]);
    options.uiNumTasks = ThreadsOf(how["threads"]);
    options.fixSensor = knowledge(how["fix_sensor"], how["fix_ray"], fix, "fix");
    options.fltSensor = knowledge(how["flt_sensor"], how["flt_ray"], flt, "flt");
    return options;
}

/// A pose of the caller's as one between the points about their shifts.
prereg::CTrafo poseBetween(const ReadyScan& fix, const ReadyScan& flt, const Zorvan::ScanPose& pose)
{
    return AboutShifts(pose, flt.surfels.shift, fix.surfels.shift);
}

Alignment align(const ScanPtr& givenFix, const ScanPtr& givenFlt, const py::object& start, const py::object& progress,
                const py::object& stop, const py::kwargs& how)
{
    const auto pair = AboutOneShift({givenFix, givenFlt});
    const ScanPtr& fix = pair[0];
    const ScanPtr& flt = pair[1];
    prereg::AlignOptions options = optionsOf(*fix, *flt, how);
    if (!start.is_none()) options.start = poseBetween(*fix, *flt, PoseOf(start, "start", options.dMmPerUnit));
    CLongCall call(progress, stop);
    auto result =
        call.Run([&](const Zorvan::Hooks& hooks) { return prereg::Align(fix->surfels, flt->surfels, options, hooks); });
    return {std::move(result), fix, flt};
}

Alignment judge(const ScanPtr& givenFix, const ScanPtr& givenFlt, const py::object& poses, const py::kwargs& how)
{
    const auto pair = AboutOneShift({givenFix, givenFlt});
    const ScanPtr& fix = pair[0];
    const ScanPtr& flt = pair[1];
    const prereg::AlignOptions options = optionsOf(*fix, *flt, how);
    std::vector<prereg::CTrafo> list;
    for (const Zorvan::ScanPose& pose : PosesOf(poses, "poses", options.dMmPerUnit))
        list.push_back(poseBetween(*fix, *flt, pose));
    if (list.empty()) throw py::value_error("poses: needs at least one");
    return {WithoutLock([&] { return prereg::WeighPoses(fix->surfels, flt->surfels, list, options); }), fix, flt};
}

/// NaN where nothing is known.
py::dict numbersOf(const prereg::ICPResult& result, double mmPerUnit)
{
    const Zorvan::RegistrationSummary summary = prereg::Summarize(result);
    py::dict numbers;
    numbers["rmse"] = summary.dRmse / mmPerUnit;
    numbers["overlap"] = summary.dOverlap;
    numbers["slip"] = summary.dSlip / mmPerUnit;
    return numbers;
}

py::dict countsOf(const prereg::PoseCounts& counts)
{
    py::dict dict;
    dict["samples"] = counts.uiSamples;
    dict["matched"] = counts.uiMatched;
    dict["seen_through"] = counts.uiInFront;
    dict["solid"] = counts.uiSolid;
    dict["disputed"] = counts.uiDisputed;
    dict["missing"] = counts.uiMissing;
    dict["in_gap"] = counts.uiInGap;
    dict["turned"] = counts.uiTurned;
    dict["opposed"] = counts.uiOpposed;
    dict["tail"] = counts.uiTail;
    dict["shallow"] = counts.uiShallow;
    dict["telling"] = counts.uiTelling;
    return dict;
}

py::dict candidateOf(const Alignment& alignment, const prereg::PairCandidate& candidate)
{
    py::dict dict = numbersOf(candidate.refined, alignment.Unit());
    dict["pose"] = alignment.Pose(candidate.refined.GetTrafo());
    dict["finding"] = prereg::FindingName(candidate.verdict.eFinding);
    dict["text"] = candidate.verdict.ToString();
    dict["proposer"] = prereg::ProposerName(candidate.eProposer);
    dict["contradiction"] = candidate.verdict.counts.Contradiction();
    dict["counts"] = countsOf(candidate.verdict.counts);
    return dict;
}

py::list candidatesOf(const Alignment& alignment, std::size_t count)
{
    py::list list;
    for (std::size_t i = 0; i < count; ++i) list.append(candidateOf(alignment, alignment.result.candidates[i]));
    return list;
}

bool isKnown(const Alignment& alignment) { return alignment.result && alignment.result.estimate; }

/// Turns in radians, shifts in the unit of the scans.
py::object covarianceOf(const Alignment& alignment)
{
    if (!isKnown(alignment)) return py::none();
    std::vector<double> values;
    for (std::size_t i = 0; i < 6; ++i) {
        for (std::size_t k = 0; k < 6; ++k) {
            const double lengths = std::pow(alignment.Unit(), (i < 3 ? 0 : 1) + (k < 3 ? 0 : 1));
            values.push_back(alignment.result.estimate.covariance[i][k] / lengths);
        }
    }
    return Owned(std::move(values), {6, 6});
}

py::object centreOf(const Alignment& alignment)
{
    if (!isKnown(alignment)) return py::none();
    std::vector<double> centre;
    for (unsigned k = 0; k < 3; ++k)
        centre.push_back((static_cast<double>(alignment.result.estimate.centre[k]) + alignment.fix->surfels.shift[k]) /
                         alignment.Unit());
    return Owned(std::move(centre), {3});
}

void save(const Alignment& alignment, const std::filesystem::path& file, bool isAll)
{
    if (alignment.fix->surfels.file.filename() == alignment.flt->surfels.file.filename())
        throw py::value_error("both scans are named " + alignment.fix->surfels.file.filename().string() +
                              ", and poses are matched by name; give Scan(..., name=...)");
    Zorvan::WritePoses(file, prereg::ToPoses(alignment.result, alignment.fix->surfels, alignment.flt->surfels,
                                             alignment.Unit(), isAll));
}

std::string textOf(const Alignment& alignment)
{
    return "<zorvan.Alignment of " + alignment.flt->surfels.file.filename().string() + " to " +
           alignment.fix->surfels.file.filename().string() + ": " + alignment.result.verdict.ToString() + ">";
}

} // namespace

void AddAlign(py::module_& module)
{
    py::class_<Alignment>(
        module, "Alignment",
        "What is known of two scans. True when they are aligned. Lengths are in the unit of the scans.")
        .def_property_readonly(
            "verdict", [](const Alignment& a) { return prereg::VerdictName(a.result.verdict.eVerdict); },
            "aligned, ambiguous, not aligned, or too little to go on.")
        .def_property_readonly(
            "reason", [](const Alignment& a) { return a.result.verdict.Reason(); },
            "In a sentence or two, what speaks for the verdict.")
        .def_property_readonly(
            "pose", [](const Alignment& a) { return a.result ? a.Pose(a.result.Pose()) : py::object(py::none()); },
            "(4, 4) float64, floating into fixed coordinates: p_fix = pose @ p_flt. None unless the scans are aligned.")
        .def_property_readonly(
            "poses",
            [](const Alignment& a) {
                py::list poses;
                for (std::size_t i = 0; i < a.result.verdict.explanations.size(); ++i)
                    poses.append(a.Pose(a.result.candidates[i].refined.GetTrafo()));
                return poses;
            },
            "All poses that explain the scans equally well, best first: one when aligned, several or a sliding one "
            "when "
            "ambiguous.")
        .def_property_readonly(
            "covariance", &covarianceOf,
            "(6, 6) float64 of a small motion done after the pose: a rotation vector (radians) about "
            "`centre`, then a\nshift. None unless the scans are aligned.")
        .def_property_readonly("centre", &centreOf,
                               "(3,) float64, fixed coordinates: the mean of the matched points, or None.")
        .def_property_readonly(
            "free", [](const Alignment& a) { return isKnown(a) ? a.result.estimate.ToString() : std::string(); },
            "Which motions the surfaces do not hold, in words.")
        .def_property_readonly(
            "candidates", [](const Alignment& a) { return candidatesOf(a, a.result.candidates.size()); },
            "All poses that were weighed, best first: dicts of pose, finding, text, proposer, contradiction, counts, "
            "rmse,\n"
            "overlap and slip.")
        .def_property_readonly(
            "rmse", [](const Alignment& a) { return prereg::Summarize(a.result.Best()).dRmse / a.Unit(); },
            "Of the best pose; NaN when there is none.")
        .def_property_readonly(
            "overlap", [](const Alignment& a) { return prereg::Summarize(a.result.Best()).dOverlap; },
            "Share of the samples that found a partner, of the best pose.")
        .def_property_readonly(
            "slip", [](const Alignment& a) { return prereg::Summarize(a.result.Best()).dSlip / a.Unit(); },
            "Standard deviation of the best pose's place along the surfaces.")
        .def_property_readonly(
            "settings", [](const Alignment& a) { return ToPython(bson::to_object(a.result.config)); },
            "All settings as they were used; lengths in mm.")
        .def_property_readonly(
            "words",
            [](const Alignment& a) {
                std::vector<std::string> lines;
                for (const std::string& line : {a.result.settingsWords, a.result.searchWords, a.result.times}) {
                    if (!line.empty()) lines.push_back(line);
                }
                return lines;
            },
            "For people: what was chosen and why, what became of the proposals, what it took.")
        .def_property_readonly(
            "stopped", [](const Alignment& a) { return a.result.isStopped; },
            "By Ctrl-C or `stop`; this is what was found until then.")
        .def("save", &save, py::arg("file"), py::arg("all") = false,
             "Writes a poses file, as `zorvan align -o` does; `all`: every candidate.")
        .def("__bool__", [](const Alignment& a) { return static_cast<bool>(a.result); })
        .def("__repr__", &textOf);
    module.def("_align", &align, py::arg("fix"), py::arg("flt"), py::arg("start"), py::arg("progress"),
               py::arg("stop"));
    module.def("_judge", &judge, py::arg("fix"), py::arg("flt"), py::arg("poses"));
}

} // namespace bindings
