// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scan.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace bindings {

namespace py = pybind11;
using Vector3 = kdtree::Vector<3>;

/// Points or directions that Python gives: an array of shape (N, 3), float32 or float64, or (N, 4), float32 whose
/// fourth column has no meaning. The latter is taken as it lies where it can be, everything else is copied once.
class CVectorsIn
{
public:
    /// @param name  what messages call the array
    /// @throws py::type_error, py::value_error
    CVectorsIn(const py::handle& array, const std::string& name);

    [[nodiscard]] std::size_t Size() const { return m_size; }
    /// Lives as long as this does.
    [[nodiscard]] const Vector3* Data() const { return m_data; }
    [[nodiscard]] std::span<const Vector3> Span() const { return {m_data, m_size}; }
    /// A copy, with zeros in the fourth lanes.
    [[nodiscard]] prereg::Vectors Copy() const;

private:
    py::array m_array;
    prereg::Vectors m_copy;
    const Vector3* m_data = nullptr;
    std::size_t m_size = 0;
};

/// The same in double precision, where the array has it. @throws as above
[[nodiscard]] std::vector<Zorvan::Position> PositionsOf(const py::handle& array, const std::string& name);

/// Whether an array has to be read in double precision.
[[nodiscard]] bool IsDouble(const py::handle& array);

/// An (M, 3) array of any integers from 0 to below `numPoints`. @throws as above
[[nodiscard]] std::vector<Zorvan::Face> FacesOf(const py::handle& array, std::size_t numPoints);

/// A (3,) array or a sequence of three finite numbers. @throws as above
[[nodiscard]] Zorvan::Position PositionOf(const py::handle& value, const std::string& name);
[[nodiscard]] Vector3 VectorOf(const py::handle& value, const std::string& name);

/// A rigid pose as a (4, 4) array whose last row is 0, 0, 0, 1, with all its digits. @throws as above
[[nodiscard]] Zorvan::ScanPose PoseOf(const py::handle& array, const std::string& name, double dMmPerUnit);
[[nodiscard]] std::vector<Zorvan::ScanPose> PosesOf(const py::handle& arrays, const std::string& name,
                                                    double dMmPerUnit);
/// That pose as one between points about shifts, mm.
[[nodiscard]] prereg::CTrafo AboutShifts(Zorvan::ScanPose pose, const Zorvan::Position& from,
                                         const Zorvan::Position& to);

/// A (4, 4) array of float64, which holds every float as it is; None for an invalid pose.
/// @param from, to  shifts of the coordinates that the pose goes between, mm
[[nodiscard]] py::object ToPython(const prereg::CTrafo& pose, double dMmPerUnit, const Zorvan::Position& from = {},
                                  const Zorvan::Position& to = {});

/// (N, 3), float32, read-only, over the memory of `owner`.
[[nodiscard]] py::array ViewOf(std::span<const Vector3> vectors, const py::object& owner);
/// The same of points about a shift; where that is not zero, a copy of float64 where they stand.
[[nodiscard]] py::array PointsOf(std::span<const Vector3> points, const Zorvan::Position& shift,
                                 const py::object& owner);

/// An array of this shape over values that it owns.
template <typename T>
[[nodiscard]] py::array Owned(std::vector<T> values, std::vector<py::ssize_t> shape)
{
    auto* const held = new std::vector<T>(std::move(values));
    const py::capsule owner(held, [](void* p) { delete static_cast<std::vector<T>*>(p); });
    return py::array_t<T>(std::move(shape), held->data(), owner);
}

} // namespace bindings
