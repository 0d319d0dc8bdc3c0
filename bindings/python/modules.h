// SPDX-License-Identifier: MIT
#pragma once

#include <pybind11/pybind11.h>

namespace bindings {

// What each source adds to the module.
void AddScans(pybind11::module_& module);
void AddAlign(pybind11::module_& module);
void AddRegister(pybind11::module_& module);
void AddDocuments(pybind11::module_& module);
void AddPointSets(pybind11::module_& module);
void AddFits(pybind11::module_& module);
void AddColours(pybind11::module_& module);

} // namespace bindings
