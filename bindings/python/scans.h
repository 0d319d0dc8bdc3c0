// SPDX-License-Identifier: MIT
#pragma once

#include "arrays.h"

#include "zorvan/scans/scanreader.h"

#include <memory>
#include <optional>
#include <string>

namespace bindings {

/// A scan that is ready for registration, with the unit that its points had.
struct ReadyScan
{
    Zorvan::SurfelScan surfels; ///< mm
    double dMmPerUnit = 1.0;

    /// @throws py::value_error for a scan about a shift, where poses cannot be given back
    void RequireNear() const;
};

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
