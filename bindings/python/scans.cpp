// SPDX-License-Identifier: MIT
#include "scans.h"

#include "interpreter.h"
#include "modules.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/meshsampling.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/sharedshift.h"
#include "zorvan/scans/stlwriter.h"
#include "zorvan/scans/surfacemodel.h"

#include <pybind11/stl/filesystem.h>

#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace bindings {

namespace {

using Path = std::filesystem::path;

Zorvan::EMesh meshOf(const std::string& mesh)
{
    if (mesh == "auto") return Zorvan::EMesh::Auto;
    if (mesh == "model") return Zorvan::EMesh::Model;
    if (mesh == "scan") return Zorvan::EMesh::Scan;
    throw py::value_error("mesh: \"" + mesh + "\" is none of auto, model and scan");
}

Zorvan::ScanOptions optionsOf(double dMmPerUnit, const py::object& sensor, const std::string& mesh)
{
    Zorvan::ScanOptions options;
    options.dMmPerUnit = UnitOf(dMmPerUnit);
    if (!sensor.is_none()) {
        const kdtree::Vector<3> place = VectorOf(sensor, "sensor");
        options.sensor = {static_cast<double>(place.x), static_cast<double>(place.y), static_cast<double>(place.z)};
    }
    options.eMesh = meshOf(mesh);
    return options;
}

void warn(const Zorvan::SurfelScan& scan)
{
    const std::string words = scan.Warning();
    if (!words.empty()) py::module_::import("logging").attr("getLogger")("zorvan").attr("warning")("%s", words);
}

std::shared_ptr<ReadyScan> ready(Zorvan::SurfelScan surfels, double dMmPerUnit)
{
    warn(surfels);
    return std::make_shared<ReadyScan>(ReadyScan{std::move(surfels), dMmPerUnit});
}

/// What the arrays hold, as a file would.
Zorvan::Scan scanOf(const py::object& points, const py::object& normals, const py::object& faces)
{
    Zorvan::Scan scan;
    if (IsDouble(points))
        Zorvan::SetPoints(scan, PositionsOf(points, "points"));
    else
        scan.points = CVectorsIn(points, "points").Copy();
    if (!normals.is_none()) scan.normals = CVectorsIn(normals, "normals").Copy();
    if (!normals.is_none() && scan.normals.size() != scan.points.size())
        throw py::value_error("normals: needs one a point, " + std::to_string(scan.points.size()) + ", not " +
                              std::to_string(scan.normals.size()));
    if (!faces.is_none()) scan.faces = FacesOf(faces, scan.points.size());
    return scan;
}

std::shared_ptr<ReadyScan> makeScan(const py::object& points, const py::object& normals, const py::object& faces,
                                    const py::object& sensor, const std::string& name, double mmPerUnit,
                                    const std::string& mesh)
{
    const Zorvan::ScanOptions options = optionsOf(mmPerUnit, sensor, mesh);
    Zorvan::Scan scan = scanOf(points, normals, faces);
    return ready(WithoutLock([&] { return Zorvan::ToSurfels(std::move(scan), name, options); }), mmPerUnit);
}

std::shared_ptr<ReadyScan> readScan(const Path& file, const py::object& sensor, double mmPerUnit,
                                    const std::string& mesh)
{
    Zorvan::ScanOptions options = optionsOf(mmPerUnit, sensor, mesh);
    options.isShifted = true;
    return ready(WithoutLock([&] { return Zorvan::ReadScan(file, options); }), mmPerUnit);
}

py::object facesOf(const std::vector<Zorvan::Face>& faces)
{
    std::vector<std::uint32_t> indices;
    for (const Zorvan::Face& face : faces) indices.insert(indices.end(), face.begin(), face.end());
    return Owned(std::move(indices), {static_cast<py::ssize_t>(faces.size()), 3});
}

py::array rowsOf(const prereg::Vectors& vectors)
{
    std::vector<float> rows;
    for (const Vector3& v : vectors) rows.insert(rows.end(), {v.x, v.y, v.z});
    return Owned(std::move(rows), {static_cast<py::ssize_t>(vectors.size()), 3});
}

/// One scan of a file, as it stands there.
py::dict cloudOf(const Zorvan::Scan& scan)
{
    py::dict cloud;
    cloud["name"] = scan.name;
    const bool isNear = scan.shift == Zorvan::Position{};
    cloud["points"] = isNear ? rowsOf(scan.points) : PointsOf(scan.points, scan.shift, {});
    const auto numPoints = static_cast<py::ssize_t>(scan.points.size());
    if (!scan.normals.empty()) cloud["normals"] = rowsOf(scan.normals);
    if (!scan.faces.empty()) cloud["faces"] = facesOf(scan.faces);
    if (!scan.colours.empty()) {
        std::vector<std::uint8_t> colours;
        for (const Zorvan::Rgb& c : scan.colours) colours.insert(colours.end(), c.begin(), c.end());
        cloud["colours"] = Owned(std::move(colours), {numPoints, 3});
    }
    if (!scan.intensities.empty()) cloud["intensities"] = Owned(scan.intensities, {numPoints});
    return cloud;
}

py::list readClouds(const Path& file)
{
    const std::vector<Zorvan::Scan> scans = WithoutLock([&] { return Zorvan::ReadScans(file); });
    py::list clouds;
    for (const Zorvan::Scan& scan : scans) clouds.append(cloudOf(scan));
    return clouds;
}

std::vector<Zorvan::Rgb> coloursOf(const py::object& value, std::size_t numPoints)
{
    if (!py::isinstance<py::array_t<std::uint8_t>>(value))
        throw py::type_error("colours: needs a numpy array of shape (N, 3), uint8");
    const auto colours = py::cast<py::array_t<std::uint8_t>>(value);
    if (colours.ndim() != 2 || colours.shape(1) != 3 || static_cast<std::size_t>(colours.shape(0)) != numPoints)
        throw py::value_error("colours: needs one row of three a point");
    const auto at = colours.unchecked<2>();
    std::vector<Zorvan::Rgb> rows(numPoints);
    for (std::size_t i = 0; i < numPoints; ++i) {
        for (std::size_t k = 0; k < 3; ++k) rows[i][k] = at(static_cast<py::ssize_t>(i), static_cast<py::ssize_t>(k));
    }
    return rows;
}

void writeCloud(const Path& file, const py::object& points, const py::object& normals, const py::object& faces,
                const py::object& colours)
{
    Zorvan::Scan scan = scanOf(points, normals, faces);
    if (!colours.is_none()) scan.colours = coloursOf(colours, scan.points.size());
    const std::string ending = file.extension().string();
    if (ending != ".ply" && ending != ".stl")
        throw py::value_error("file: writes .ply and .stl, not \"" + ending + "\"");
    WithoutLock([&] {
        if (ending == ".ply")
            Zorvan::WritePly(file, scan);
        else
            Zorvan::WriteStl(file, scan);
        return 0;
    });
}

std::pair<py::object, py::object> sampleMesh(const py::object& points, const py::object& faces, double grid)
{
    const Zorvan::Scan mesh = scanOf(points, py::none(), faces);
    const auto samples =
        std::make_shared<Zorvan::MeshSamples>(WithoutLock([&] { return Zorvan::SampleMesh(mesh, grid); }));
    const py::capsule owner(new std::shared_ptr<Zorvan::MeshSamples>(samples),
                            [](void* p) { delete static_cast<std::shared_ptr<Zorvan::MeshSamples>*>(p); });
    return {ViewOf(samples->points, owner), ViewOf(samples->normals, owner)};
}

std::string scanText(const ReadyScan& scan)
{
    const char* const kind = scan.surfels.model.faces.empty() ? "scan" : "model";
    return "<zorvan.Scan " + scan.surfels.file.filename().string() + ": " + kind + " of " +
           std::to_string(scan.surfels.points.size()) + " points>";
}

const char* normalsName(Zorvan::ENormalSource eSource)
{
    if (eSource == Zorvan::ENormalSource::File) return "given";
    return eSource == Zorvan::ENormalSource::Faces ? "faces" : "fitted";
}

} // namespace

std::vector<ScanPtr> AboutOneShift(std::vector<ScanPtr> scans, const Zorvan::Position& known)
{
    std::vector<Zorvan::Position> shifts{known};
    for (const ScanPtr& scan : scans) shifts.push_back(scan->surfels.shift);
    const Zorvan::Position shared = Zorvan::CommonShift(shifts);
    std::vector<Zorvan::SurfelScan*> others;
    for (ScanPtr& scan : scans) {
        if (scan->surfels.shift == shared) continue;
        const auto copy = std::make_shared<ReadyScan>(*scan);
        others.push_back(&copy->surfels);
        scan = copy;
    }
    Zorvan::ShareShift(others, shared);
    return scans;
}

double UnitOf(double dMmPerUnit)
{
    if (!(dMmPerUnit > 0.0) || !std::isfinite(dMmPerUnit))
        throw py::value_error("mm_per_unit: needs a positive number, as 1000.0 for metres");
    return dMmPerUnit;
}

double NumberOf(const py::handle& value, const std::string& name)
{
    const double number = PyFloat_AsDouble(value.ptr());
    if (PyErr_Occurred() == nullptr) return number;
    PyErr_Clear();
    throw py::type_error(name + ": needs a number, not " + py::repr(value).cast<std::string>());
}

std::optional<double> LengthOf(const py::handle& value, const std::string& name)
{
    if (value.is_none()) return std::nullopt;
    const double length = NumberOf(value, name);
    if (!(length > 0.0) || !std::isfinite(length)) throw py::value_error(name + ": needs a positive length");
    return length;
}

unsigned ThreadsOf(const py::handle& threads)
{
    if (PyIndex_Check(threads.ptr()) == 0)
        throw py::type_error("threads: needs a whole number, not " + py::repr(threads).cast<std::string>());
    const double number = NumberOf(threads, "threads");
    if (!(number >= 1.0 && number <= 1024.0)) throw py::value_error("threads: needs a number from 1 to 1024");
    return static_cast<unsigned>(number);
}

double CommonUnit(const ReadyScan& a, const ReadyScan& b)
{
    if (a.dMmPerUnit != b.dMmPerUnit) throw py::value_error("mm_per_unit: the scans have different units of length");
    return a.dMmPerUnit;
}

void AddScans(py::module_& module)
{
    py::class_<ReadyScan, std::shared_ptr<ReadyScan>>(
        module, "Scan",
        "A scan, or a model of a surface, that is ready for registration: millimetres, every "
        "point finite and with a unit\nnormal, none twice. Immutable; any thread may use it.")
        .def(py::init(&makeScan), py::arg("points"), py::arg("normals") = py::none(), py::kw_only(),
             py::arg("faces") = py::none(), py::arg("sensor") = py::none(), py::arg("name") = "scan",
             py::arg("mm_per_unit") = 1.0, py::arg("mesh") = "auto",
             "points: (N, 3) float32 or float64, or (N, 4) float32. normals: the same, or None: from the faces or the\n"
             "neighbours, turned to the sensor. faces: (M, 3) integers. sensor: where it stood, three numbers in the\n"
             "unit of the points (default: far along +z). mesh: auto, model or scan.")
        .def_static("read", &readScan, py::arg("file"), py::kw_only(), py::arg("sensor") = py::none(),
                    py::arg("mm_per_unit") = 1.0, py::arg("mesh") = "auto",
                    "The scan of a PLY, PCD, LAS, E57, PTX, PTS, STL, OBJ or XYZ file.")
        .def_property_readonly(
            "points", [](const py::object& self) { return ViewOf(self.cast<const ReadyScan&>().surfels.points, self); },
            "(N, 3) float32, millimetres, about `shift`, read-only.")
        .def_property_readonly(
            "normals",
            [](const py::object& self) { return ViewOf(self.cast<const ReadyScan&>().surfels.normals, self); },
            "(N, 3) float32, unit length, read-only.")
        .def_property_readonly(
            "faces", [](const ReadyScan& scan) { return facesOf(scan.surfels.model.faces); },
            "(M, 3) uint32 of a model, into the points as they were given; no rows for a scan.")
        .def_property_readonly("name", [](const ReadyScan& scan) { return scan.surfels.file.string(); })
        .def_property_readonly(
            "is_model", [](const ReadyScan& scan) { return !scan.surfels.model.faces.empty(); },
            "Whether its surface counts and not its points.")
        .def_property_readonly(
            "normals_from", [](const ReadyScan& scan) { return normalsName(scan.surfels.eNormals); },
            "given, faces or fitted.")
        .def_property_readonly(
            "shift", [](const ReadyScan& scan) { return scan.surfels.shift; },
            "What was taken off all points in double precision because they are far from the origin, mm; mostly "
            "zeros. Poses\ncome back for the coordinates as they were given.")
        .def_readonly("mm_per_unit", &ReadyScan::dMmPerUnit)
        .def("__len__", [](const ReadyScan& scan) { return scan.surfels.points.size(); })
        .def("__repr__", &scanText);
    module.def("read_clouds", &readClouds, py::arg("file"),
               "The scans of a file as they stand there: a list of dicts with points (N, 3), and where the file has\n"
               "them normals, faces, colours (N, 3) uint8 and intensities (N,).");
    module.def("write_cloud", &writeCloud, py::arg("file"), py::arg("points"), py::arg("normals") = py::none(),
               py::kw_only(), py::arg("faces") = py::none(), py::arg("colours") = py::none(),
               "Writes a PLY, or the faces as STL, whole or not at all.");
    module.def("sample_mesh", &sampleMesh, py::arg("points"), py::arg("faces"), py::arg("grid"),
               "Points and normals spread evenly over the faces, one for each square of side `grid`: (N, 3) float32.");
}

} // namespace bindings
