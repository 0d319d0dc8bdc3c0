// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"

#include <pybind11/pybind11.h>

#include <string>

namespace bindings {

namespace py = pybind11;

/// Settings as a dict, checked name by name. None: no settings. @throws Zorvan::CInputError, py::type_error
[[nodiscard]] bson::object SettingsOf(const py::object& settings);

/// Numbers, texts, bytes, None, bool, identifiers and documents as Python has them; a name that comes twice becomes a
/// list.
[[nodiscard]] py::dict ToPython(const bson::object& document);
/// The way back: whole numbers as int32 or int64, float as double, bytes as a binary value.
[[nodiscard]] bson::object ToDocument(const py::dict& document);

} // namespace bindings
