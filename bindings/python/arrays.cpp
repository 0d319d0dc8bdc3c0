// SPDX-License-Identifier: MIT
#include "arrays.h"

#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/vectors.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace bindings {

namespace {

constexpr py::ssize_t iMostPoints = 2147483647; // indices are 31 bits wide

std::string typeName(const py::handle& value)
{
    return py::str(py::type::of(value).attr("__name__")).cast<std::string>();
}

std::string shapeText(const py::array& array) { return py::str(array.attr("shape")).cast<std::string>(); }

py::array arrayOf(const py::handle& value, const std::string& name, const char* wanted)
{
    if (!py::isinstance<py::array>(value))
        throw py::type_error(name + ": needs a numpy array " + wanted + ", not " + typeName(value));
    if (py::hasattr(value, "mask"))
        throw py::type_error(name + ": a masked array; leave out the masked rows, as array[~mask.any(axis=1)].data");
    return py::reinterpret_borrow<py::array>(value);
}

bool holds(const py::array& array, char kind, py::ssize_t size)
{
    return array.dtype().kind() == kind && array.itemsize() == size && array.dtype().attr("isnative").cast<bool>();
}

/// An array of points.
py::array rowsOf(const py::handle& value, const std::string& name)
{
    constexpr const char* sWanted = "of shape (N, 3), float32 or float64, or (N, 4), float32";
    py::array array = arrayOf(value, name, sWanted);
    const bool isSingle = holds(array, 'f', 4);
    if (!isSingle && !holds(array, 'f', 8))
        throw py::type_error(name + ": needs numbers of float32 or float64, not " +
                             py::str(array.dtype()).cast<std::string>() + "; use array.astype(numpy.float64)");
    const bool isRows = array.ndim() == 2 && (array.shape(1) == 3 || (array.shape(1) == 4 && isSingle));
    if (!isRows) throw py::value_error(name + ": needs an array " + sWanted + "; its shape is " + shapeText(array));
    if (array.shape(0) > iMostPoints) throw py::value_error(name + ": more than 2147483647 rows");
    return array;
}

/// Value `k` of row `i`, wherever the array has it.
template <typename T>
T at(const py::array& array, std::size_t i, std::size_t k)
{
    T value;
    const auto* const bytes = static_cast<const char*>(array.data());
    std::memcpy(&value,
                bytes + static_cast<py::ssize_t>(i) * array.strides(0) + static_cast<py::ssize_t>(k) * array.strides(1),
                sizeof value);
    return value;
}

template <typename T>
void copyRows(const py::array& array, prereg::Vectors& to)
{
    for (std::size_t i = 0; i < to.size(); ++i)
        to[i] = {Zorvan::ToFloat(at<T>(array, i, 0)), Zorvan::ToFloat(at<T>(array, i, 1)),
                 Zorvan::ToFloat(at<T>(array, i, 2))};
}

bool liesAsVectors(const py::array& array)
{
    return array.itemsize() == 4 && array.shape(1) == 4 && array.strides(1) == 4 && array.strides(0) == 16 &&
           reinterpret_cast<std::uintptr_t>(array.data()) % alignof(Vector3) == 0;
}

/// Any integer of the array.
std::int64_t integerAt(const py::array& array, std::size_t i, std::size_t k)
{
    switch (array.itemsize()) {
    case 1:
        return array.dtype().kind() == 'u' ? at<std::uint8_t>(array, i, k) : at<std::int8_t>(array, i, k);
    case 2:
        return array.dtype().kind() == 'u' ? at<std::uint16_t>(array, i, k) : at<std::int16_t>(array, i, k);
    case 4:
        return array.dtype().kind() == 'u' ? at<std::uint32_t>(array, i, k) : at<std::int32_t>(array, i, k);
    default: // beyond 2^63 it turns negative, and is refused
        return at<std::int64_t>(array, i, k);
    }
}

} // namespace

CVectorsIn::CVectorsIn(const py::handle& array, const std::string& name) : m_array(rowsOf(array, name))
{
    m_size = static_cast<std::size_t>(m_array.shape(0));
    if (m_size > 0 && liesAsVectors(m_array)) {
        m_data = static_cast<const Vector3*>(m_array.data());
        return;
    }
    m_copy.resize(m_size);
    if (m_array.itemsize() == 4)
        copyRows<float>(m_array, m_copy);
    else
        copyRows<double>(m_array, m_copy);
    m_data = m_copy.data();
}

prereg::Vectors CVectorsIn::Copy() const
{
    prereg::Vectors copy(m_data, m_data + m_size);
    for (Vector3& v : copy) v.w = 0.0F;
    return copy;
}

std::vector<Zorvan::Position> PositionsOf(const py::handle& array, const std::string& name)
{
    const py::array rows = rowsOf(array, name);
    std::vector<Zorvan::Position> positions(static_cast<std::size_t>(rows.shape(0)));
    const bool isSingle = rows.itemsize() == 4;
    for (std::size_t i = 0; i < positions.size(); ++i) {
        for (std::size_t k = 0; k < 3; ++k)
            positions[i][k] = isSingle ? static_cast<double>(at<float>(rows, i, k)) : at<double>(rows, i, k);
    }
    return positions;
}

bool IsDouble(const py::handle& array)
{
    return py::isinstance<py::array>(array) && py::reinterpret_borrow<py::array>(array).itemsize() == 8;
}

std::vector<Zorvan::Face> FacesOf(const py::handle& value, std::size_t numPoints)
{
    const py::array array = arrayOf(value, "faces", "of shape (M, 3), integers");
    const char kind = array.dtype().kind();
    if ((kind != 'i' && kind != 'u') || !array.dtype().attr("isnative").cast<bool>())
        throw py::type_error("faces: needs integers, not " + py::str(array.dtype()).cast<std::string>());
    if (array.ndim() != 2 || array.shape(1) != 3)
        throw py::value_error("faces: needs an array of shape (M, 3); its shape is " + shapeText(array));
    if (array.shape(0) > iMostPoints) throw py::value_error("faces: more than 2147483647 rows");
    std::vector<Zorvan::Face> faces(static_cast<std::size_t>(array.shape(0)));
    for (std::size_t i = 0; i < faces.size(); ++i) {
        for (std::size_t k = 0; k < 3; ++k) {
            const std::int64_t index = integerAt(array, i, k);
            if (index < 0 || static_cast<std::uint64_t>(index) >= numPoints)
                throw py::value_error("faces: row " + std::to_string(i) +
                                      " names a point that is not there; there are " + std::to_string(numPoints));
            faces[i][k] = static_cast<std::uint32_t>(index);
        }
    }
    return faces;
}

Zorvan::Position PositionOf(const py::handle& value, const std::string& name)
{
    Zorvan::Position xyz{};
    const bool isSequence = PySequence_Check(value.ptr()) != 0 && !py::isinstance<py::str>(value);
    if (!isSequence) throw py::type_error(name + ": needs three numbers, not " + typeName(value));
    if (py::len(value) != 3)
        throw py::value_error(name + ": needs three numbers, not " + std::to_string(py::len(value)));
    for (std::size_t k = 0; k < 3; ++k) {
        xyz[k] = PyFloat_AsDouble(py::object(value[py::int_(k)]).ptr());
        if (PyErr_Occurred() != nullptr) throw py::error_already_set();
        if (!std::isfinite(xyz[k])) throw py::value_error(name + ": needs finite numbers");
    }
    return xyz;
}

Vector3 VectorOf(const py::handle& value, const std::string& name)
{
    const Zorvan::Position xyz = PositionOf(value, name);
    return {Zorvan::ToFloat(xyz[0]), Zorvan::ToFloat(xyz[1]), Zorvan::ToFloat(xyz[2])};
}

Zorvan::ScanPose PoseOf(const py::handle& value, const std::string& name, double dMmPerUnit)
{
    const py::array array = arrayOf(value, name, "of shape (4, 4)");
    const bool isSingle = holds(array, 'f', 4);
    if (!isSingle && !holds(array, 'f', 8))
        throw py::type_error(name + ": needs numbers of float32 or float64, not " +
                             py::str(array.dtype()).cast<std::string>());
    if (array.ndim() != 2 || array.shape(0) != 4 || array.shape(1) != 4)
        throw py::value_error(name + ": needs an array of shape (4, 4); its shape is " + shapeText(array));
    std::array<Zorvan::Position, 3> rotation{};
    std::array<std::array<double, 4>, 4> m{};
    for (std::size_t i = 0; i < 4; ++i) {
        for (std::size_t k = 0; k < 4; ++k)
            m[i][k] = isSingle ? static_cast<double>(at<float>(array, i, k)) : at<double>(array, i, k);
    }
    for (std::size_t i = 0; i < 3; ++i) rotation[i] = {m[i][0], m[i][1], m[i][2]};
    if (m[3] != std::array<double, 4>{0.0, 0.0, 0.0, 1.0} || !Zorvan::FromRows(rotation, {m[0][3], m[1][3], m[2][3]}))
        throw py::value_error(name + ": no pose: needs a rotation, a translation, and 0, 0, 0, 1 in the last row");
    Zorvan::ScanPose pose;
    std::array<Vector3, 4> rows;
    pose.exact.emplace();
    for (std::size_t i = 0; i < 3; ++i) {
        m[i][3] *= dMmPerUnit;
        (*pose.exact)[i] = m[i];
        rows[i] = {Zorvan::ToFloat(m[i][0]), Zorvan::ToFloat(m[i][1]), Zorvan::ToFloat(m[i][2])};
        rows[3][static_cast<unsigned>(i)] = Zorvan::ToFloat(m[i][3]);
    }
    pose.pose = {rows[0], rows[1], rows[2], rows[3]};
    return pose;
}

std::vector<Zorvan::ScanPose> PosesOf(const py::handle& arrays, const std::string& name, double dMmPerUnit)
{
    if (py::isinstance<py::array>(arrays) && py::reinterpret_borrow<py::array>(arrays).ndim() == 2)
        return {PoseOf(arrays, name, dMmPerUnit)};
    if (PySequence_Check(arrays.ptr()) == 0)
        throw py::type_error(name + ": needs a (4, 4) array or a list of such, not " + typeName(arrays));
    std::vector<Zorvan::ScanPose> poses;
    for (const py::handle array : py::reinterpret_borrow<py::sequence>(arrays))
        poses.push_back(PoseOf(array, name + "[" + std::to_string(poses.size()) + "]", dMmPerUnit));
    return poses;
}

prereg::CTrafo AboutShifts(Zorvan::ScanPose pose, const Zorvan::Position& from, const Zorvan::Position& to)
{
    if (!pose.pose || (from == Zorvan::Position{} && to == Zorvan::Position{})) return pose.pose;
    // By the rows as they were given: a rotation of single precision that is made an exact one turns by some 1e-8,
    // which would move coordinates of a map by decimetres.
    for (std::size_t i = 0; i < 3; ++i) {
        auto& row = (*pose.exact)[i];
        row[3] += row[0] * from[0] + row[1] * from[1] + row[2] * from[2] - to[i];
    }
    return Zorvan::ToTrafo(Zorvan::ExactPoseOf(pose));
}

py::object ToPython(const prereg::CTrafo& pose, double dMmPerUnit, const Zorvan::Position& from,
                    const Zorvan::Position& to)
{
    if (!pose) return py::none();
    Zorvan::ScanPose scan;
    Zorvan::SetPoseAbout(scan, pose, from, to);
    std::vector<double> values;
    for (unsigned i = 0; i < 4; ++i) {
        for (unsigned k = 0; k < 4; ++k) {
            const bool isExact = scan.exact && i < 3;
            const double value = isExact ? (*scan.exact)[i][k] : static_cast<double>(pose(i, k));
            values.push_back(i < 3 && k == 3 ? value / dMmPerUnit : value);
        }
    }
    return Owned(std::move(values), {4, 4});
}

py::array ViewOf(std::span<const Vector3> vectors, const py::object& owner)
{
    static const Vector3 none;
    const Vector3* const data = vectors.empty() ? &none : vectors.data();
    py::array view(py::dtype::of<float>(), {static_cast<py::ssize_t>(vectors.size()), py::ssize_t{3}},
                   {static_cast<py::ssize_t>(sizeof(Vector3)), static_cast<py::ssize_t>(sizeof(float))}, &data->x,
                   owner);
    view.attr("flags").attr("writeable") = false;
    return view;
}

py::array PointsOf(std::span<const Vector3> points, const Zorvan::Position& shift, const py::object& owner)
{
    if (shift == Zorvan::Position{}) return ViewOf(points, owner);
    std::vector<double> placed;
    placed.reserve(3 * points.size());
    for (const Vector3& p : points) {
        for (unsigned k = 0; k < 3; ++k) placed.push_back(static_cast<double>(p[k]) + shift[k]);
    }
    return Owned(std::move(placed), {static_cast<py::ssize_t>(points.size()), 3});
}

} // namespace bindings
