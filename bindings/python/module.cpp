// SPDX-License-Identifier: MIT
#include "interpreter.h"
#include "modules.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/util/version.h"

PYBIND11_MODULE(_core, module)
{
    module.doc() = "The compiled part of zorvan; import zorvan instead.";
    module.attr("__version__") = Zorvan::Version();
    pybind11::register_exception<Zorvan::CInputError>(module, "InputError", PyExc_ValueError).attr("__doc__") =
        "Scans, files or settings that cannot be used: which, why, and what to do.";
    bindings::AddInterpreter(module);
    bindings::AddScans(module);
    bindings::AddDocuments(module);
    bindings::AddAlign(module);
    bindings::AddRegister(module);
    bindings::AddPointSets(module);
    bindings::AddFits(module);
    bindings::AddColours(module);
}
