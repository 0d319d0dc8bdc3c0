// SPDX-License-Identifier: MIT
#include "interpreter.h"
#include "modules.h"
#include "scans.h"

#include "zorvan/workflow/primitivefit.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bindings {

namespace {

prereg::EPrimitive primitiveOf(const std::string& name)
{
    if (const auto ePrimitive = prereg::PrimitiveNamed(name)) return *ePrimitive;
    throw py::value_error("primitive: \"" + name + "\" is none of sphere, cylinder and cone");
}

prereg::RadiusLimits limitsOf(const py::object& radius, prereg::EPrimitive ePrimitive, double mmPerUnit)
{
    if (radius.is_none()) return {};
    if (ePrimitive == prereg::EPrimitive::Cone) throw py::value_error("radius: a cone has none of its own");
    if (!py::isinstance<py::tuple>(radius)) {
        const double fixed = LengthOf(radius, "radius").value() * mmPerUnit;
        return {fixed, fixed};
    }
    if (py::len(radius) != 2) throw py::value_error("radius: a tuple is (low, high)");
    const double low = NumberOf(radius[py::int_(0)], "radius");
    const double high = NumberOf(radius[py::int_(1)], "radius");
    if (!(low > 0.0) || !(low < high)) throw py::value_error("radius: needs two lengths, the smaller one first");
    return {low * mmPerUnit, high * mmPerUnit};
}

/// @param shift  of the points, which a place is about
py::object toPython(const Eigen::VectorXd& values, double factor, const Zorvan::Position& shift = {})
{
    if (values.size() == 1) return py::float_(values(0) * factor);
    std::vector<double> list;
    for (const double value : values) list.push_back((value + shift[list.size()]) * factor);
    return Owned(std::move(list), {static_cast<py::ssize_t>(values.size())});
}

py::dict fit(const std::shared_ptr<const ReadyScan>& scan, const std::string& primitive, const py::object& radius)
{
    const prereg::EPrimitive ePrimitive = primitiveOf(primitive);
    const prereg::RadiusLimits limits = limitsOf(radius, ePrimitive, scan->dMmPerUnit);
    prereg::PrimitiveFit found = WithoutLock([&] { return prereg::FitPrimitive(scan->surfels, ePrimitive, limits); });
    const double unit = 1.0 / scan->dMmPerUnit;
    py::dict dict;
    dict["found"] = found.IsFound();
    dict["rmse"] = found.dRmse * unit;
    for (double& residual : found.residuals) residual *= unit;
    const auto numPoints = static_cast<py::ssize_t>(found.residuals.size());
    dict["residuals"] = Owned(std::move(found.residuals), {numPoints});
    py::dict deviations;
    for (const prereg::PrimitiveProperty& property : found.properties) {
        std::string name = property.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        const double factor = property.isLength ? unit : 1.0;
        dict[py::str(name)] =
            toPython(property.value, factor, property.isLength ? scan->surfels.shift : Zorvan::Position{});
        if (property.deviation.size() > 0) deviations[py::str(name)] = toPython(property.deviation, factor);
    }
    dict["deviations"] = deviations;
    return dict;
}

} // namespace

void AddFits(py::module_& module)
{
    module.def("_fit", &fit, py::arg("scan"), py::arg("primitive"), py::arg("radius"));
}

} // namespace bindings
