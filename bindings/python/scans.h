// SPDX-License-Identifier: MIT
#pragma once

#include "arrays.h"

#include "zorvan/scans/scanreader.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bindings {

/// A scan that is ready for registration, with the unit that its points had.
struct ReadyScan
{
    Zorvan::SurfelScan surfels; ///< mm
    double dMmPerUnit = 1.0;
};

using ScanPtr = std::shared_ptr<const ReadyScan>;

/// The scans about one shift, as the program brings them there: those that have another one as copies.
/// @param known  of scans that are there already, mm
[[nodiscard]] std::vector<ScanPtr> AboutOneShift(std::vector<ScanPtr> scans, const Zorvan::Position& known = {});

/// The unit of both. @throws py::value_error when they differ
[[nodiscard]] double CommonUnit(const ReadyScan& a, const ReadyScan& b);

/// Millimetres a unit. @throws py::value_error unless positive and finite
[[nodiscard]] double UnitOf(double dMmPerUnit);

/// @throws py::type_error for what is no number
[[nodiscard]] double NumberOf(const py::handle& value, const std::string& name);
/// Nothing for None; else positive, as UnitOf. @throws as above
[[nodiscard]] std::optional<double> LengthOf(const py::handle& value, const std::string& name);
/// @throws py::type_error, py::value_error unless from 1 to 1024
[[nodiscard]] unsigned ThreadsOf(const py::handle& threads);

} // namespace bindings
